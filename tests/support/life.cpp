#include "support/life.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <system_error>
#include <utility>

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include "core/entry.h"
#include "platform/host.h"
#include "platform/virtual/file_events.h"
#include "platform/virtual/simulated/driver.h"
#include "support/record_schemas.h"
#include "support/scratch_folder.h"

namespace brisko::test {

namespace {

// The test sends a horizon, the child answers with one byte when it stands there. A line that ends says that
// the other side is gone.
class Line {
 public:
  explicit Line(int end) : end_(end) {}
  ~Line() { ::close(end_); }
  Line(const Line&) = delete;
  Line& operator=(const Line&) = delete;

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

[[noreturn]] void giveUp(const char* what) { throw std::system_error(errno, std::generic_category(), what); }

// A child whose test is gone ends without a word: nothing of the daemon may run on its own account.
double nextHorizon(const Line& line) {
  double horizon = 0;
  if (!line.receive(horizon)) ::_exit(1);
  return horizon;
}

// The child. It must not get back into the test above it, whatever the daemon throws: hence noexcept.
[[noreturn]] void liveOn(const Line& line, const std::vector<std::string>& arguments, int output,
                         int errors) noexcept {
  const int nothing = ::open("/dev/null", O_RDONLY);
  ::dup2(nothing, STDIN_FILENO);
  ::dup2(output, STDOUT_FILENO);
  ::dup2(errors, STDERR_FILENO);
  for (const int unneeded : {nothing, output, errors}) ::close(unneeded);

  virtual_mac::setHorizon(nextHorizon(line), [&line] {
    constexpr char standing = '.';
    if (!line.send(standing)) ::_exit(1);
    return nextHorizon(line);
  });
  // As after the end of main(): exit hooks run, also the sanitizers'.
  std::exit(enter(arguments));
}

std::string contentsOf(int file) {
  std::string text;
  std::array<char, 4096> part{};
  for (;;) {
    const ssize_t count = ::pread(file, part.data(), part.size(), static_cast<off_t>(text.size()));
    if (count <= 0) return text;
    text.append(part.data(), static_cast<std::size_t>(count));
  }
}

}  // namespace

struct Life::Inside {
  VirtualMac& mac;
  pid_t child = -1;
  std::unique_ptr<Line> line;
  int output = namelessFile();
  int errors = namelessFile();
  int waitStatus = 0;

  explicit Inside(VirtualMac& machine) : mac(machine) {}
  ~Inside() {
    ::close(output);
    ::close(errors);
  }
  Inside(const Inside&) = delete;
  Inside& operator=(const Inside&) = delete;

  void reap() {
    while (::waitpid(child, &waitStatus, 0) < 0 && errno == EINTR) continue;
    virtual_mac::forgetPowerClient(mac.store().update().machine());
  }
};

Life::Life(VirtualMac& mac, std::vector<std::string> arguments) : inside_(std::make_unique<Inside>(mac)) {
  const int fileEvents = mac.fileEventQueue();
  arguments.insert(arguments.begin(), platform::executablePath().value_or("brisko-daemon"));
  std::array<int, 2> ends{};
  if (::socketpair(AF_UNIX, SOCK_STREAM, 0, ends.data()) != 0) giveUp("socketpair");
  // What is buffered here would be written twice.
  std::fflush(nullptr);
  inside_->child = ::fork();
  if (inside_->child < 0) giveUp("fork");
  if (inside_->child == 0) {
    ::close(ends[0]);
    const Line line(ends[1]);
    virtual_mac::useFileEventQueue(fileEvents);
    liveOn(line, arguments, inside_->output, inside_->errors);
  }
  ::close(ends[1]);
  inside_->line = std::make_unique<Line>(ends[0]);
}

Life::~Life() { kill(); }

Life& Life::run(double seconds) {
  if (!alive_) return *this;
  const double horizon = inside_->mac.store().look().machine().now + seconds;
  char standing = 0;
  if (!inside_->line->send(horizon) || !inside_->line->receive(standing)) {
    inside_->reap();
    alive_ = false;
  }
  checkRecords(inside_->mac.path(""));
  return *this;
}

Life& Life::signal(int number) {
  if (alive_) ::kill(inside_->child, number);
  return *this;
}

Life& Life::kill() {
  if (!alive_) return *this;
  ::kill(inside_->child, SIGKILL);
  inside_->reap();
  alive_ = false;
  return *this;
}

std::optional<int> Life::status() const {
  if (alive_ || !WIFEXITED(inside_->waitStatus)) return std::nullopt;
  return WEXITSTATUS(inside_->waitStatus);
}

std::optional<int> Life::endSignal() const {
  if (alive_ || !WIFSIGNALED(inside_->waitStatus)) return std::nullopt;
  return WTERMSIG(inside_->waitStatus);
}

std::string Life::output() const { return contentsOf(inside_->output); }
std::string Life::errors() const { return contentsOf(inside_->errors); }

}  // namespace brisko::test
