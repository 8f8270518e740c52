#include "sim/process/forked_life.h"

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
#include "sim/process/scratch.h"
#include "sim/seam/file_events.h"
#include "sim/seam/simulated/driver.h"

namespace brisko::lives {
namespace {

// The parent sends an order, the child answers with one byte when it stands there. A line that ends says
// that the other side is gone.
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

// What the parent sends.
struct Order {
  double horizon;     // machine time
  rlim_t mostOfFile;  // bytes; a process can limit itself on every system, and its children on few
};

// A child whose parent is gone ends without a word: nothing of the daemon may run on its own account.
double nextHorizon(const Line& line) {
  Order order{};
  if (!line.receive(order)) ::_exit(1);
  const rlimit limit{order.mostOfFile, RLIM_INFINITY};
  if (::setrlimit(RLIMIT_FSIZE, &limit) != 0) giveUp("setrlimit");
  return order.horizon;
}

// The child. It must not get back into the code above it, whatever the daemon throws: hence noexcept.
[[noreturn]] void liveOn(const Line& line, const std::vector<std::string>& arguments, const Birth& birth,
                         int output, int errors) noexcept {
  const int nothing = ::open("/dev/null", O_RDONLY);
  ::dup2(nothing, STDIN_FILENO);
  ::dup2(output, STDOUT_FILENO);
  ::dup2(errors, STDERR_FILENO);
  for (const int unneeded : {nothing, output, errors}) ::close(unneeded);

  virtual_mac::setHorizon(nextHorizon(line), [&line, &birth] {
    if (birth.standing) birth.standing();
    constexpr char stands = '.';
    if (!line.send(stands)) ::_exit(1);
    const double horizon = nextHorizon(line);
    if (birth.goesOn) birth.goesOn();
    return horizon;
  });
  // As after the end of main(): exit hooks run, also the sanitizers'.
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

struct ForkedLife::Inside {
  virtual_mac::MachineStore& store;
  pid_t child = -1;
  std::unique_ptr<Line> line = nullptr;
  int output = namelessFile();
  int errors = namelessFile();
  rlim_t mostOfFile = RLIM_INFINITY;
  int waitStatus = 0;
  bool alive = true;

  explicit Inside(virtual_mac::MachineStore& machine) : store(machine) {}
  ~Inside() {
    ::close(output);
    ::close(errors);
  }
  Inside(const Inside&) = delete;
  Inside& operator=(const Inside&) = delete;

  void reap() {
    while (::waitpid(child, &waitStatus, 0) < 0 && errno == EINTR) continue;
    virtual_mac::forgetPowerClient(store.update().machine());
    alive = false;
  }
};

ForkedLife::ForkedLife(const Birth& birth) : inside_(std::make_unique<Inside>(birth.store)) {
  std::vector<std::string> arguments{platform::executablePath().value_or("brisko-daemon")};
  arguments.insert(arguments.end(), birth.arguments.begin(), birth.arguments.end());
  std::array<int, 2> ends{};
  if (::socketpair(AF_UNIX, SOCK_STREAM, 0, ends.data()) != 0) giveUp("socketpair");
  // What is buffered here would be written twice.
  std::fflush(nullptr);
  inside_->child = ::fork();
  if (inside_->child < 0) giveUp("fork");
  if (inside_->child == 0) {
    ::close(ends[0]);
    const Line line(ends[1]);
    virtual_mac::useFileEventQueue(birth.fileEvents);
    if (birth.prepare) birth.prepare();
    liveOn(line, arguments, birth, inside_->output, inside_->errors);
  }
  ::close(ends[1]);
  inside_->line = std::make_unique<Line>(ends[0]);
}

ForkedLife::~ForkedLife() { kill(); }

void ForkedLife::run(double seconds) {
  if (!inside_->alive) return;
  const Order order{.horizon = inside_->store.look().machine().now + seconds,
                    .mostOfFile = inside_->mostOfFile};
  char standing = 0;
  if (!inside_->line->send(order) || !inside_->line->receive(standing)) inside_->reap();
}

void ForkedLife::signal(int number) {
  if (inside_->alive) ::kill(inside_->child, number);
}

void ForkedLife::kill() {
  if (!inside_->alive) return;
  ::kill(inside_->child, SIGKILL);
  inside_->reap();
}

void ForkedLife::limitFileSize(std::optional<std::uint64_t> bytes) {
  inside_->mostOfFile = bytes ? static_cast<rlim_t>(*bytes) : RLIM_INFINITY;
}

bool ForkedLife::alive() const { return inside_->alive; }

std::optional<int> ForkedLife::status() const {
  if (inside_->alive || !WIFEXITED(inside_->waitStatus)) return std::nullopt;
  return WEXITSTATUS(inside_->waitStatus);
}

std::optional<int> ForkedLife::endSignal() const {
  if (inside_->alive || !WIFSIGNALED(inside_->waitStatus)) return std::nullopt;
  return WTERMSIG(inside_->waitStatus);
}

std::string ForkedLife::output(std::size_t from) const { return contentsOf(inside_->output, from); }
std::string ForkedLife::errors() const { return contentsOf(inside_->errors, 0); }

}  // namespace brisko::lives
