#include "base/standard_output.h"

#include <cerrno>
#include <csignal>
#include <string>

#include <sys/select.h>
#include <unistd.h>

namespace brisko {
namespace {

bool isPending(int signal) {
  sigset_t pending;
  sigemptyset(&pending);
  ::sigpending(&pending);
  return sigismember(&pending, signal) == 1;
}

// By select(), since poll() knows no terminals on some versions of macOS. A failure shows in the next write.
void waitForRoom() {
  fd_set streams;
  FD_ZERO(&streams);
  FD_SET(STDOUT_FILENO, &streams);
  static_cast<void>(::select(STDOUT_FILENO + 1, nullptr, &streams, nullptr, nullptr));
}

// Until a failure: there is nobody else to tell.
void writeAndWait(std::string_view text) {
  while (!text.empty()) {
    const ssize_t written = ::write(STDOUT_FILENO, text.data(), text.size());
    if (written > 0) {
      text.remove_prefix(static_cast<std::size_t>(written));
    } else if (written < 0 && errno == EAGAIN) {  // whoever shares the stream has made it so
      waitForRoom();
    } else if (written == 0 || errno != EINTR) {
      return;
    }
  }
}

}  // namespace

// If standard output is a closed pipe, SIGPIPE would end the process with the charge still held. It has no
// handler, so it is blocked during this one write and discarded afterwards.
void writeStandardOutput(std::string_view text) {
  sigset_t brokenPipe;
  sigset_t before;
  sigemptyset(&brokenPipe);
  sigaddset(&brokenPipe, SIGPIPE);
  const bool somebodyElses = isPending(SIGPIPE);
  ::pthread_sigmask(SIG_BLOCK, &brokenPipe, &before);
  writeAndWait(text);
  if (!somebodyElses && isPending(SIGPIPE)) {
    int taken = 0;
    ::sigwait(&brokenPipe, &taken);
  }
  ::pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

void printLine(std::string_view text) { writeStandardOutput(std::string(text) + "\n"); }

}  // namespace brisko
