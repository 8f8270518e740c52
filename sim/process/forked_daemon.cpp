#include "sim/process/forked_daemon.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <system_error>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include "daemon/entry.h"
#include "platform/host.h"
#include "sim/process/default_signals.h"
#include "sim/process/kept_files.h"
#include "sim/process/scratch.h"
#include "sim/process/shared_memory.h"
#include "sim/seam/call_watch.h"
#include "sim/seam/file_events.h"
#include "sim/seam/simulated/driver.h"

namespace brisko::sim {
namespace {

// The parent sends an order, and the child answers with one byte when it has reached the horizon. End of file
// means that the other side has ended.
class Channel {
 public:
  explicit Channel(int end) : end_(end) {}
  ~Channel() { ::close(end_); }
  Channel(const Channel&) = delete;
  Channel& operator=(const Channel&) = delete;

  template <class Message>
  [[nodiscard]] bool send(const Message& message) const {
    ssize_t sent = -1;
    do {
      sent = ::send(end_, &message, sizeof message, MSG_NOSIGNAL);
    } while (sent < 0 && errno == EINTR);
    return sent == static_cast<ssize_t>(sizeof message);
  }
  template <class Message>
  [[nodiscard]] bool receive(Message& message) const {
    ssize_t received = -1;
    do {
      received = ::recv(end_, &message, sizeof message, MSG_WAITALL);
    } while (received < 0 && errno == EINTR);
    return received == static_cast<ssize_t>(sizeof message);
  }

 private:
  int end_;
};

[[noreturn]] void throwError(const char* what) {
  throw std::system_error(errno, std::generic_category(), what);
}

// An order of the parent.
struct RunCommand {
  double horizon;      // machine time
  double step;         // seconds from there to the next horizon …
  int steps;           // … if there is more than one …
  double end;          // … before this machine time
  rlim_t maxFileSize;  // bytes; set by the child, because few systems let a process limit another
};

// A child whose parent has ended exits silently, because the daemon must not run on its own.
double nextHorizon(const Channel& channel, RunCommand& command) {
  if (!channel.receive(command)) ::_exit(1);
  const rlimit limit{command.maxFileSize, RLIM_INFINITY};
  if (::setrlimit(RLIMIT_FSIZE, &limit) != 0) throwError("setrlimit");
  // Every call for a file that may fail has to be made.
  resumeWithFiles(command.maxFileSize == RLIM_INFINITY && !virtual_mac::callsAreWatched());
  return command.horizon;
}

// Whether the child continues without a pause. If so, the command is the rest of it.
bool takeNextStep(RunCommand& command, const ForkOptions& options) {
  const double now = options.store.view().machine().now;
  if (command.steps <= 1 || now >= command.end || !options.stepEnded || !options.stepEnded()) return false;
  --command.steps;
  command.horizon = std::min(now + command.step, command.end);
  return true;
}

// The child. noexcept, because it must never return into the caller's code, whatever the daemon throws.
[[noreturn]] void runChild(const Channel& channel, const std::vector<std::string>& arguments,
                           const ForkOptions& options, int output, int errors) noexcept {
  const int nothing = ::open("/dev/null", O_RDONLY);
  ::dup2(nothing, STDIN_FILENO);
  ::dup2(output, STDOUT_FILENO);
  ::dup2(errors, STDERR_FILENO);
  for (const int unneeded : {nothing, output, errors}) ::close(unneeded);

  RunCommand command{};
  virtual_mac::setHorizon(nextHorizon(channel, command), [&channel, &options, &command] {
    if (options.onPause) options.onPause();
    if (!takeNextStep(command, options)) {
      constexpr char pausedByte = '.';
      if (!channel.send(pausedByte)) ::_exit(1);
      static_cast<void>(nextHorizon(channel, command));
    }
    if (options.onResume) options.onResume();
    return command.horizon;
  });
  // As after the end of main(): exit hooks run, including those of the sanitizers.
  std::exit(enter(arguments));
}

std::string contentsOf(int file, std::size_t from) {
  std::string text;
  std::array<char, 4096> part{};
  for (;;) {
    const ssize_t count = ::pread(file, part.data(), part.size(), static_cast<off_t>(from + text.size()));
    if (count <= 0) return text;
    text.append(part.data(), static_cast<std::size_t>(count));
  }
}

}  // namespace

struct ForkedDaemon::Impl {
  virtual_mac::MachineStore& store;
  pid_t child = -1;
  std::unique_ptr<Channel> channel = nullptr;
  int output = namelessFile();
  int errors = namelessFile();
  SharedMemory<KeptFiles> keptFiles;
  rlim_t maxFileSize = RLIM_INFINITY;
  int waitStatus = 0;
  bool alive = true;

  explicit Impl(virtual_mac::MachineStore& machine) : store(machine) {}
  ~Impl() {
    ::close(output);
    ::close(errors);
  }
  Impl(const Impl&) = delete;
  Impl& operator=(const Impl&) = delete;

  void reap() {
    while (::waitpid(child, &waitStatus, 0) < 0 && errno == EINTR) continue;
    writeKeptFiles(*keptFiles);
    virtual_mac::forgetPowerClient(store.update().machine());
    alive = false;
  }
};

ForkedDaemon::ForkedDaemon(const ForkOptions& options) : impl_(std::make_unique<Impl>(options.store)) {
  std::vector<std::string> arguments{platform::executablePath().value_or("brisko-daemon")};
  arguments.insert(arguments.end(), options.arguments.begin(), options.arguments.end());
  std::array<int, 2> ends{};
  if (::socketpair(AF_UNIX, SOCK_STREAM, 0, ends.data()) != 0) throwError("socketpair");
  // Otherwise the child would write the buffered output a second time.
  std::fflush(nullptr);
  impl_->child = forkWithDefaultSignals();
  if (impl_->child < 0) throwError("fork");
  if (impl_->child == 0) {
    ::close(ends[0]);
    const Channel channel(ends[1]);
    // For the daemon a full disk must be an error, not a signal.
    std::signal(SIGXFSZ, SIG_IGN);
    virtual_mac::useFileEventQueue(options.fileEvents);
    keepFilesIn(*impl_->keptFiles);
    if (options.prepare) options.prepare();
    runChild(channel, arguments, options, impl_->output, impl_->errors);
  }
  ::close(ends[1]);
  impl_->channel = std::make_unique<Channel>(ends[0]);
}

ForkedDaemon::~ForkedDaemon() { kill(); }

void ForkedDaemon::run(double seconds) { runSteps(seconds, 1, impl_->store.view().machine().now + seconds); }

void ForkedDaemon::runSteps(double seconds, int steps, double end) {
  if (!impl_->alive) return;
  const RunCommand command{.horizon = impl_->store.view().machine().now + seconds,
                           .step = seconds,
                           .steps = steps,
                           .end = end,
                           .maxFileSize = impl_->maxFileSize};
  char paused = 0;
  if (!impl_->channel->send(command) || !impl_->channel->receive(paused)) return impl_->reap();
  writeKeptFiles(*impl_->keptFiles);
}

void ForkedDaemon::signal(int number) {
  if (impl_->alive) ::kill(impl_->child, number);
}

void ForkedDaemon::kill() {
  if (!impl_->alive) return;
  ::kill(impl_->child, SIGKILL);
  impl_->reap();
}

void ForkedDaemon::limitFileSize(std::optional<std::uint64_t> bytes) {
  impl_->maxFileSize = bytes ? static_cast<rlim_t>(*bytes) : RLIM_INFINITY;
}

bool ForkedDaemon::alive() const { return impl_->alive; }

std::optional<int> ForkedDaemon::status() const {
  if (impl_->alive || !WIFEXITED(impl_->waitStatus)) return std::nullopt;
  return WEXITSTATUS(impl_->waitStatus);
}

std::optional<int> ForkedDaemon::endSignal() const {
  if (impl_->alive || !WIFSIGNALED(impl_->waitStatus)) return std::nullopt;
  return WTERMSIG(impl_->waitStatus);
}

std::string ForkedDaemon::output(std::size_t from) const { return contentsOf(impl_->output, from); }
std::string ForkedDaemon::errors() const { return contentsOf(impl_->errors, 0); }

}  // namespace brisko::sim
