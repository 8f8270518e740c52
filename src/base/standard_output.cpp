#include "base/standard_output.h"

#include <cerrno>
#include <string>

#include <fcntl.h>
#include <sys/select.h>
#include <unistd.h>

namespace brisko {
namespace {

// Uses select(), since poll() does not support terminals on some versions of macOS. A failure shows in the
// next write.
void waitForRoom() {
  fd_set streams;
  FD_ZERO(&streams);
  FD_SET(STDOUT_FILENO, &streams);
  static_cast<void>(::select(STDOUT_FILENO + 1, nullptr, &streams, nullptr, nullptr));
}

}  // namespace

// Stops at a failure, which cannot be reported anywhere.
void writeStandardOutput(std::string_view text) {
  while (!text.empty()) {
    const ssize_t written = ::write(STDOUT_FILENO, text.data(), text.size());
    if (written > 0) {
      text.remove_prefix(static_cast<std::size_t>(written));
    } else if (written < 0 && errno == EAGAIN) {  // another user of the stream has made it non-blocking
      waitForRoom();
    } else if (written == 0 || errno != EINTR) {
      return;
    }
  }
}

void printLine(std::string_view text) { writeStandardOutput(std::string(text) + "\n"); }

void occupyStandardStreams() {
  for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    if (::fcntl(stream, F_GETFD) < 0) static_cast<void>(::open("/dev/null", O_RDWR));
  }
}

}  // namespace brisko
