#include "platform/macos/handled_signals.h"

#include <array>
#include <atomic>
#include <cerrno>
#include <cmath>
#include <csignal>
#include <cstdint>
#include <limits>

#include <dispatch/dispatch.h>
#include <mach/mach.h>
#include <mach/mach_time.h>
#include <mach/semaphore.h>
#include <mach/sync_policy.h>
#include <mach/task.h>
#include <pthread.h>

#include "platform/clock.h"
#include "platform/run_loop.h"

// A separate thread, the standby thread, receives the signals. Its handler only records the signal, wakes the
// main run loop and notifies the standby thread. The next iteration of the loop then calls the installed
// handler.
//
// The main thread always blocks these signals. So nothing interrupts it, neither in a piece of work nor in
// the run loop itself, which holds locks of its own; and a signal is noticed even if the main thread is stuck
// in the kernel, where no signal could reach it.
//
// If the loop does not respond in time, the standby thread calls the installed handler itself, while the main
// thread may be anywhere and may hold any lock of this process. Nothing here takes a lock, and the handler
// writes the keys before everything else, for which it needs neither memory nor a lock. The later steps
// (statistics, the scheduled wake, the log) may have to wait for the main thread, in the worst case forever:
// then launchd ends the process, with the charge given back. One thing cannot be prevented: a write that the
// main thread had begun, and in which it is stuck, may reach the controller after ours.

namespace brisko::platform {
namespace {

using Handler = void (*)(int);
using SignalBits = std::uint64_t;  // bit n is signal n, of the signals that exist on a Mac

constexpr double timeoutSeconds = 5;  // of uptime, for the main thread
constexpr int signalNumbers = 32;
constexpr SignalBits allSignals = 0xFFFFFFFF;
constexpr SignalBits mainThreadHandles = SignalBits{1} << 32U;
constexpr SignalBits standbyHandles = SignalBits{1} << 33U;

constexpr SignalBits bitOf(int signal) { return SignalBits{1} << static_cast<unsigned>(signal); }

std::array<std::atomic<Handler>, signalNumbers> gHandlers{};
std::atomic<SignalBits> gHandled{0};
// The signals that have arrived and are not yet handled, and which thread handles some. One word, because it
// decides which of the two threads calls the handlers.
std::atomic<SignalBits> gPending{0};
std::atomic<pthread_t> gStandby{};
dispatch_source_t gWake = nullptr;         // its work, on the main thread, handles the recorded signals
semaphore_t gCheckAgain = SEMAPHORE_NULL;  // makes the standby thread check again
semaphore_t gUnblocked = SEMAPHORE_NULL;   // signalled when it has unblocked all handled signals

bool anyPending() { return (gPending & allSignals) != 0; }

// Claims all recorded signals for a thread; none if there are none, or if a thread has claimed some and has
// not finished.
SignalBits claimSignals(SignalBits who) {
  SignalBits pending = gPending;
  do {
    if ((pending & allSignals) == 0 || (pending & ~allSignals) != 0) return 0;
  } while (!gPending.compare_exchange_weak(pending, who));
  return pending;
}

// Runs on the standby thread, which is waiting at that moment and never inside Dispatch. Merging takes no
// lock and no memory.
void recordSignal(int signal) {
  const int before = errno;
  gPending.fetch_or(bitOf(signal));
  dispatch_source_merge_data(gWake, 1);
  semaphore_signal(gCheckAgain);
  errno = before;
}

void callHandlers(SignalBits pending) {
  sigset_t both;
  sigset_t before;
  sigemptyset(&both);
  sigaddset(&both, SIGINT);
  sigaddset(&both, SIGTERM);
  ::pthread_sigmask(SIG_BLOCK, &both, &before);
  for (int signal = 1; signal < signalNumbers; ++signal) {
    if ((pending & bitOf(signal)) != 0) gHandlers[static_cast<std::size_t>(signal)].load()(signal);
  }
  ::pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

// -- On the main thread

void handleSignals(void* /*context*/) {
  const SignalBits pending = claimSignals(mainThreadHandles);
  if (pending == 0) return stopIfStandbyTookOver();
  callHandlers(pending);
  gPending.fetch_and(~mainThreadHandles);
  semaphore_signal(gCheckAgain);
}

// -- On the standby thread

// A signal ends the wait early; its handler has already recorded everything.
void awaitCheck() {
  while (semaphore_wait(gCheckAgain) == KERN_ABORTED) {
  }
}

// Never zero, so that time passes.
void awaitCheckFor(double seconds) {
  constexpr std::int64_t perSecond = 1'000'000'000;
  const auto nanoseconds = static_cast<std::int64_t>(std::ceil(seconds * static_cast<double>(perSecond)));
  semaphore_timedwait(gCheckAgain, {.tv_sec = static_cast<unsigned>(nanoseconds / perSecond),
                                    .tv_nsec = static_cast<int>(nanoseconds % perSecond)});
}

// Signals gUnblocked when more signals are unblocked than before.
void unblockHandledSignals() {
  static SignalBits open = 0;
  const SignalBits handled = gHandled;
  if (handled == open) return;
  open = handled;
  sigset_t signals;
  sigemptyset(&signals);
  for (int signal = 1; signal < signalNumbers; ++signal) {
    if ((handled & bitOf(signal)) != 0) sigaddset(&signals, signal);
  }
  ::pthread_sigmask(SIG_UNBLOCK, &signals, nullptr);
  semaphore_signal(gUnblocked);
}

void waitForMainThread() {
  const double deadline = uptime() + timeoutSeconds;
  for (double left = timeoutSeconds; anyPending() && left > 0; left = deadline - uptime()) {
    awaitCheckFor(left);
    unblockHandledSignals();
  }
}

void* standBy(void* /*context*/) {
  gStandby = ::pthread_self();
  for (;;) {
    awaitCheck();
    unblockHandledSignals();
    waitForMainThread();
    // Never released, so a main thread whose call returns stops.
    if (const SignalBits pending = claimSignals(standbyHandles); pending != 0) callHandlers(pending);
  }
  return nullptr;
}

// -- Setup

void makeWakeSource() {
  // Used until the process ends, so neither released nor destroyed.
  gWake = dispatch_source_create(DISPATCH_SOURCE_TYPE_DATA_OR, 0, 0, dispatch_get_main_queue());
  dispatch_source_set_event_handler_f(gWake, handleSignals);
  dispatch_resume(gWake);
}

bool startStandby() {
  makeWakeSource();
  for (semaphore_t* semaphore : {&gCheckAgain, &gUnblocked}) {
    if (semaphore_create(mach_task_self(), semaphore, SYNC_POLICY_FIFO, 0) != KERN_SUCCESS) return false;
  }
  pthread_t thread{};
  if (::pthread_create(&thread, nullptr, standBy, nullptr) != 0) return false;
  ::pthread_detach(thread);
  return true;
}

// The standby thread unblocks the signal before this thread blocks it: while all threads block a signal, the
// kernel assigns it to one of them, which need not be the one that will unblock it.
void passToStandby(int signal) {
  if ((gHandled.fetch_or(bitOf(signal)) & bitOf(signal)) != 0) return;
  semaphore_signal(gCheckAgain);
  while (semaphore_wait(gUnblocked) == KERN_ABORTED) {
  }
  sigset_t one;
  sigemptyset(&one);
  sigaddset(&one, signal);
  // The parent of the process may have blocked it, and a signal that arrived since then is pending on this
  // thread.
  ::pthread_sigmask(SIG_UNBLOCK, &one, nullptr);
  ::pthread_sigmask(SIG_BLOCK, &one, nullptr);
}

}  // namespace

void installSignalHandler(int signal, Handler handler) {
  gHandlers.at(static_cast<std::size_t>(signal)).store(handler);
  static const bool standsBy = startStandby();
  struct sigaction action {};
  action.sa_handler = recordSignal;
  action.sa_flags = SA_RESTART;
  sigemptyset(&action.sa_mask);
  sigaddset(&action.sa_mask, SIGINT);
  sigaddset(&action.sa_mask, SIGTERM);
  sigaction(signal, &action, nullptr);
  // Without a standby thread the main thread handles its signals itself, and no thread replaces it.
  if (standsBy) passToStandby(signal);
}

void stopIfStandbyTookOver() {
  if ((gPending & standbyHandles) == 0 || ::pthread_equal(gStandby, ::pthread_self()) != 0) return;
  for (;;) mach_wait_until(std::numeric_limits<std::uint64_t>::max());
}

}  // namespace brisko::platform
