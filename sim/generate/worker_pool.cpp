#include "sim/generate/worker_pool.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <exception>
#include <list>
#include <optional>
#include <system_error>

#include <fcntl.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include "sim/process/scratch.h"

namespace brisko::lab {
namespace {

using Clock = std::chrono::steady_clock;

constexpr double progressEvery = 86400;  // of machine time
constexpr std::size_t errorTailBytes = 2000;

class File {
 public:
  explicit File(int number) : number_(number) {}
  ~File() { close(); }
  File(File&& other) noexcept : number_(std::exchange(other.number_, -1)) {}
  File(const File&) = delete;
  File& operator=(const File&) = delete;
  File& operator=(File&&) = delete;
  void close() {
    if (number_ >= 0) ::close(number_);
    number_ = -1;
  }
  [[nodiscard]] int number() const { return number_; }

 private:
  int number_;
};

struct Pipe {
  Pipe() {
    std::array<int, 2> ends{};
    if (::pipe(ends.data()) != 0) throw std::system_error(errno, std::generic_category(), "pipe");
    out = ends[0];
    in = ends[1];
  }
  int out = -1;
  int in = -1;
};

void say(int pipe, const std::string& line) {
  std::string_view rest = line;
  while (!rest.empty()) {
    const ssize_t count = ::write(pipe, rest.data(), rest.size());
    if (count < 0 && errno != EINTR) ::_exit(1);  // the pipe is closed
    if (count > 0) rest.remove_prefix(static_cast<std::size_t>(count));
  }
}

// Nothing is ever sent through the pipe. It is closed when the lab cancels the run, or ends.
bool hasEnded(int pipe) {
  pollfd look{.fd = pipe, .events = POLLIN, .revents = 0};
  return ::poll(&look, 1, 0) > 0;
}

[[noreturn]] void runAndReport(const WorkerPool::Task& task, int resultPipe, int stopPipe) noexcept {
  double reported = 0;
  const ShouldContinue shouldContinue = [&](double seconds) {
    if (seconds - reported >= progressEvery) {
      say(resultPipe, std::to_string(static_cast<std::int64_t>(seconds)) + "\n");
      reported = seconds;
    }
    return !hasEnded(stopPipe);
  };
  try {
    say(resultPipe, lineOf(task(shouldContinue)) + "\n");
  } catch (const std::exception& error) {
    static_cast<void>(std::fprintf(stderr, "%s\n", error.what()));
    ::_exit(1);
  }
  ::_exit(0);
}

// From a pipe that does not wait.
void takeAll(int pipe) {
  std::array<char, 64> part{};
  while (::read(pipe, part.data(), part.size()) > 0) continue;
}

std::string endOf(int file) {
  std::array<char, errorTailBytes> text{};
  const off_t size = ::lseek(file, 0, SEEK_END);
  const off_t from = std::max<off_t>(0, size - static_cast<off_t>(text.size()));
  const ssize_t count = ::pread(file, text.data(), text.size(), from);
  return {text.data(), count > 0 ? static_cast<std::size_t>(count) : 0};
}

std::string endText(int status) {
  if (WIFSIGNALED(status)) return "by signal " + std::to_string(WTERMSIG(status));
  return "with status " + std::to_string(WEXITSTATUS(status));
}

// Waits for the end of a worker and ends its child processes with it. Returns the status of waitpid.
int reap(pid_t process) {
  int status = 0;
  while (::waitpid(process, &status, 0) < 0 && errno == EINTR) continue;
  ::kill(-process, SIGKILL);
  return status;
}

struct Worker {
  std::uint64_t number;
  pid_t process;
  File progress;  // the worker's reports
  File errors;    // its standard error
  std::string received = {};
  double seconds = 0;  // machine time run so far
  Clock::time_point receivedAt = Clock::now();
  bool timedOut = false;
};

}  // namespace

struct WorkerPool::Impl {
  unsigned most;
  std::chrono::milliseconds timeout;
  sim::ScratchFolder folder{"brisko-workers-" + std::to_string(::getpid())};
  Pipe shouldContinue{};
  std::list<Worker> workers{};

  // Reads the worker's reports. Returns true when the worker has nothing more to report.
  bool receive(Worker& worker) const {
    std::array<char, 4096> part{};
    const ssize_t count = ::read(worker.progress.number(), part.data(), part.size());
    if (count < 0) return errno != EINTR && errno != EAGAIN;
    worker.received.append(part.data(), static_cast<std::size_t>(count));
    worker.receivedAt = Clock::now();
    for (std::size_t end = 0; (end = worker.received.find('\n')) != std::string::npos;) {
      if (worker.received.front() == '{') break;  // the verdict
      worker.seconds = std::stod(worker.received.substr(0, end));
      worker.received.erase(0, end + 1);
    }
    return count == 0;
  }

  Verdict takeVerdict(Worker& worker) const {
    const int status = reap(worker.process);
    if (auto verdict = verdictOf(worker.received)) return *verdict;
    Verdict crashed{.seconds = worker.seconds};
    crashed.seen = worker.timedOut ? "the worker process reported nothing for " +
                                         std::to_string(timeout.count() / 1000) + " s and was ended"
                                   : "the worker process ended " + endText(status);
    const std::string words = endOf(worker.errors.number());
    if (!words.empty()) crashed.seen += "; its standard error ended:\n" + words;
    return crashed;
  }

  void killTimedOut() {
    for (Worker& worker : workers) {
      if (worker.timedOut || Clock::now() - worker.receivedAt < timeout) continue;
      worker.timedOut = true;
      ::kill(-worker.process, SIGKILL);
    }
  }
};

WorkerPool::WorkerPool(unsigned most, std::chrono::milliseconds timeout)
    : impl_(new Impl{.most = most, .timeout = timeout}) {}

WorkerPool::~WorkerPool() {
  for (const Worker& worker : impl_->workers) {
    ::kill(-worker.process, SIGKILL);
    static_cast<void>(reap(worker.process));
  }
  ::close(impl_->shouldContinue.out);
  cancel();
}

bool WorkerPool::allBusy() const { return impl_->workers.size() >= impl_->most; }
bool WorkerPool::allIdle() const { return impl_->workers.empty(); }

void WorkerPool::begin(std::uint64_t number, const Task& task) {
  Pipe progress;
  const int errors = sim::namelessFile();
  std::fflush(nullptr);
  const pid_t process = ::fork();
  if (process < 0) throw std::system_error(errno, std::generic_category(), "fork");
  // Parent and child both call this, so that it has taken effect for either. Control-C at the terminal must
  // reach the lab alone.
  ::setpgid(process, process);
  if (process == 0) {
    for (const int signal : {SIGINT, SIGTERM, SIGPIPE}) std::signal(signal, SIG_DFL);
    ::close(progress.out);
    ::close(impl_->shouldContinue.in);
    ::dup2(errors, STDERR_FILENO);
    ::close(errors);
    sim::setScratchRoot(impl_->folder.path());
    runAndReport(task, progress.in, impl_->shouldContinue.out);
  }
  ::close(progress.in);
  impl_->workers.push_back(
      {.number = number, .process = process, .progress = File(progress.out), .errors = File(errors)});
}

std::vector<WorkerPool::Ended> WorkerPool::wait(std::chrono::milliseconds atMost, int wakeUp) {
  std::vector<pollfd> polled;
  for (const Worker& worker : impl_->workers) {
    polled.push_back({.fd = worker.progress.number(), .events = POLLIN, .revents = 0});
  }
  polled.push_back({.fd = wakeUp, .events = POLLIN, .revents = 0});
  std::vector<Ended> ended;
  const auto longest = static_cast<int>(std::min(atMost, impl_->timeout).count());
  if (::poll(polled.data(), static_cast<nfds_t>(polled.size()), longest) < 0) return ended;
  if (polled.back().revents != 0) takeAll(wakeUp);
  polled.pop_back();
  auto worker = impl_->workers.begin();
  for (const pollfd& look : polled) {
    const auto here = worker++;
    if (look.revents == 0 || !impl_->receive(*here)) continue;
    ended.push_back({here->number, impl_->takeVerdict(*here)});
    impl_->workers.erase(here);
  }
  impl_->killTimedOut();
  return ended;
}

double WorkerPool::secondsUnderWay() const {
  double seconds = 0;
  for (const Worker& worker : impl_->workers) seconds += worker.seconds;
  return seconds;
}

void WorkerPool::cancel() {
  if (impl_->shouldContinue.in >= 0) ::close(impl_->shouldContinue.in);
  impl_->shouldContinue.in = -1;
}

}  // namespace brisko::lab
