// The linker redirects every write of the program to this file.

#include <cerrno>
#include <csignal>

#include <sys/types.h>

#include "fakes/system.h"
#include "fakes/threads.h"

std::function<void(std::string_view)> brisko::fakes::gBeforeWrite;

namespace {

// On a Mac a write to a closed pipe sends the signal to the process, not to the thread that wrote, so any
// thread that does not block it handles it. As soon as there is a thread besides the main one, there is
// always such a thread.
void raiseForTheProcess() {
  struct sigaction action {};
  sigset_t brokenPipe;
  ::sigaction(SIGPIPE, nullptr, &action);
  if (!brisko::fakes::hasOtherThreads() || action.sa_handler != SIG_DFL) return;
  sigemptyset(&brokenPipe);
  sigaddset(&brokenPipe, SIGPIPE);
  ::pthread_sigmask(SIG_UNBLOCK, &brokenPipe, nullptr);
  ::raise(SIGPIPE);
}

}  // namespace

extern "C" {

ssize_t __real_write(int descriptor, const void* bytes, size_t size);

ssize_t __wrap_write(int descriptor, const void* bytes, size_t size) {
  if (brisko::fakes::gBeforeWrite) {
    brisko::fakes::gBeforeWrite({static_cast<const char*>(bytes), size});
  }
  const ssize_t written = __real_write(descriptor, bytes, size);
  if (written < 0 && errno == EPIPE) raiseForTheProcess();
  return written;
}
}
