#include "base/standard_output.h"

#include <csignal>
#include <string>

#include <unistd.h>

#include "base/files.h"

namespace brisko {
namespace {

bool isPending(int signal) {
  sigset_t pending;
  sigemptyset(&pending);
  ::sigpending(&pending);
  return sigismember(&pending, signal) == 1;
}

}  // namespace

// Whoever read our standard output may be gone, and the signal that comes of it would end the process with
// the charge still held. It has no handler, so it is kept out of this one write and taken away after it.
void writeStandardOutput(std::string_view text) {
  sigset_t brokenPipe;
  sigset_t before;
  sigemptyset(&brokenPipe);
  sigaddset(&brokenPipe, SIGPIPE);
  const bool somebodyElses = isPending(SIGPIPE);
  ::pthread_sigmask(SIG_BLOCK, &brokenPipe, &before);
  // There is nobody else to tell.
  static_cast<void>(writeAll(STDOUT_FILENO, text));
  if (!somebodyElses && isPending(SIGPIPE)) {
    int taken = 0;
    ::sigwait(&brokenPipe, &taken);
  }
  ::pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

void printLine(std::string_view text) { writeStandardOutput(std::string(text) + "\n"); }

}  // namespace brisko
