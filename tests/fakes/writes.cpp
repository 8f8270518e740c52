// Every write of the program comes here, by the linker.

#include <cerrno>
#include <csignal>

#include <sys/types.h>

#include "fakes/system.h"
#include "fakes/threads.h"

std::function<void(std::string_view)> brisko::fakes::gBeforeWrite;

namespace {

// As a Mac has it when the reader of a pipe is gone: the signal is the process's, not that of the thread that
// wrote, and so it is taken by any thread that lets it in. There is always such a thread, once there is any
// besides the main one.
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
