#include "sim/process/default_signals.h"

#include <csignal>
#include <initializer_list>

#include <unistd.h>

namespace brisko::sim {

void takeDefaultSignals() {
  for (const int signal : {SIGHUP, SIGINT, SIGQUIT, SIGTERM, SIGPIPE}) {
    struct sigaction byDefault {};
    byDefault.sa_handler = SIG_DFL;
    ::sigaction(signal, &byDefault, nullptr);
  }
  sigset_t none;
  sigemptyset(&none);
  ::pthread_sigmask(SIG_SETMASK, &none, nullptr);
}

pid_t forkWithDefaultSignals() {
  // While it is blocked, a signal stays pending even if it is ignored.
  sigset_t all;
  sigset_t before;
  sigfillset(&all);
  ::pthread_sigmask(SIG_BLOCK, &all, &before);
  const pid_t child = ::fork();
  if (child == 0) {
    takeDefaultSignals();
  } else {
    ::pthread_sigmask(SIG_SETMASK, &before, nullptr);
  }
  return child;
}

}  // namespace brisko::sim
