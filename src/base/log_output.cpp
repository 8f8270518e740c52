#include "base/log_output.h"

#include <array>
#include <atomic>
#include <cerrno>
#include <climits>
#include <string>

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include "base/files.h"

namespace brisko {
namespace {

// The unwritten rest of a line. Constructed before main() and destroyed after every exit hook.
std::string gRest;

// On a Mac whose main thread is stuck, another thread ends the process and logs that. Meanwhile the main
// thread may continue, or be stuck while it writes a line.
std::atomic_flag gInALine;

// Passes the beginning of `bytes` to `write`, piece by piece, until it accepts no more. Returns how many
// bytes it accepted.
template <typename Write>
std::size_t writeWhatFits(std::string_view bytes, const Write& write) {
  std::size_t taken = 0;
  while (taken < bytes.size()) {
    const ssize_t written = write(bytes.substr(taken, PIPE_BUF));
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) break;
    taken += static_cast<std::size_t>(written);
  }
  return taken;
}

template <typename Write>
void offer(std::string_view line, const Write& write) {
  if (gInALine.test_and_set()) return;
  const std::string text = gRest + std::string(line);
  const std::size_t taken = writeWhatFits(text, write);
  const bool begun = taken > gRest.size();
  gRest = text.substr(taken, (begun ? text.size() : gRest.size()) - taken);
  gInALine.clear();
}

bool hasRoom(int pipeOrSocket) {
  pollfd stream{.fd = pipeOrSocket, .events = POLLOUT, .revents = 0};
  while (::poll(&stream, 1, 0) < 0 && errno == EINTR) {
  }
  // With an error or a hang-up there is no reader any more.
  return stream.revents == POLLOUT;
}

// O_NONBLOCK would also apply to the shell and all other users of the stream. But if there is room at all,
// there is room for PIPE_BUF bytes, which are written as a whole.
void offerToPipeOrSocket(std::string_view line) {
  offer(line, [](std::string_view piece) -> ssize_t {
    return hasRoom(STDOUT_FILENO) ? ::write(STDOUT_FILENO, piece.data(), piece.size()) : 0;
  });
}

// A terminal guarantees room for only one byte, and poll() does not support devices on some versions of
// macOS. But it has a path, by which it can be opened again, so that O_NONBLOCK applies only here.
void offerToTerminal(std::string_view line) {
  std::array<char, PATH_MAX> name{};
  if (::ttyname_r(STDOUT_FILENO, name.data(), name.size()) != 0) return;
  const Descriptor terminal(::open(name.data(), O_WRONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
  offer(line, [&terminal](std::string_view piece) {
    return ::write(terminal.number(), piece.data(), piece.size());
  });
}

}  // namespace

void offerLogLine(std::string_view line) {
  struct stat status {};
  if (::fstat(STDOUT_FILENO, &status) != 0) return;
  if (S_ISFIFO(status.st_mode) || S_ISSOCK(status.st_mode)) {
    offerToPipeOrSocket(line);
  } else if (::isatty(STDOUT_FILENO) == 1) {
    offerToTerminal(line);
  } else {
    // A file or the null device, which never block. A full disk cannot be reported anywhere.
    static_cast<void>(writeAll(STDOUT_FILENO, line));
  }
}

}  // namespace brisko
