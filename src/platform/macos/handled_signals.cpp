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

// A signal is taken by a thread of its own, the standby. All that its handler does is note the signal, wake
// the main run loop and tell the standby. The next iteration of the loop then calls the handler that was
// installed.
//
// The main thread has these signals shut out for good. So nothing ever interrupts it, neither in a piece of
// work nor in what the run loop does around its wait, where it holds locks of its own; and a main thread that
// is stuck in the kernel, which a signal could not reach, keeps none from being noticed.
//
// When the loop has not come round in time, the standby calls the installed handler itself. It then runs
// beside a main thread that may be anywhere, and may hold any lock of this process. Nothing here takes one,
// and the handler writes the keys before everything else, for which it needs neither memory nor a lock. What
// comes after the keys (statistics, the scheduled wake, the log) may have to wait for the main thread, and in
// the worst case for ever: then launchd ends the process, with the charge given back. One thing cannot be
// helped: a write that the main thread had begun, and in which it is stuck, may reach the controller after
// ours.

namespace brisko::platform {
namespace {

using Handler = void (*)(int);
using SignalBits = std::uint64_t;  // bit n is signal n, of those that a Mac knows

constexpr double timeoutSeconds = 5;  // of uptime, for the main thread
constexpr int signalNumbers = 32;
constexpr SignalBits allSignals = 0xFFFFFFFF;
constexpr SignalBits mainThreadHasIt = SignalBits{1} << 32U;
constexpr SignalBits standbyHasIt = SignalBits{1} << 33U;

constexpr SignalBits bitOf(int signal) { return SignalBits{1} << static_cast<unsigned>(signal); }

std::array<std::atomic<Handler>, signalNumbers> gHandlers{};
std::atomic<SignalBits> gHandled{0};
// The signals that came and were not taken up yet, and who has taken some up. All in one, for it decides who
// of the two calls the handlers.
std::atomic<SignalBits> gNoted{0};
std::atomic<pthread_t> gStandby{};
dispatch_source_t gWake = nullptr;    // its work takes up what is noted, on the main thread
semaphore_t gNews = SEMAPHORE_NULL;   // tells the standby to look again
semaphore_t gLetIn = SEMAPHORE_NULL;  // answers that it lets in all that is handled

bool anyNoted() { return (gNoted & allSignals) != 0; }

// Takes up all that is noted; none when there is nothing, or somebody has taken some up and is not done.
SignalBits takeUpAs(SignalBits who) {
  SignalBits noted = gNoted;
  do {
    if ((noted & allSignals) == 0 || (noted & ~allSignals) != 0) return 0;
  } while (!gNoted.compare_exchange_weak(noted, who));
  return noted;
}

// Runs on the standby, which waits meanwhile and is never inside Dispatch. Merging takes no lock and no
// memory.
void note(int signal) {
  const int before = errno;
  gNoted.fetch_or(bitOf(signal));
  dispatch_source_merge_data(gWake, 1);
  semaphore_signal(gNews);
  errno = before;
}

void callHandlers(SignalBits noted) {
  sigset_t both;
  sigset_t before;
  sigemptyset(&both);
  sigaddset(&both, SIGINT);
  sigaddset(&both, SIGTERM);
  ::pthread_sigmask(SIG_BLOCK, &both, &before);
  for (int signal = 1; signal < signalNumbers; ++signal) {
    if ((noted & bitOf(signal)) != 0) gHandlers[static_cast<std::size_t>(signal)].load()(signal);
  }
  ::pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

// -- On the main thread

void takeUp(void* /*context*/) {
  const SignalBits noted = takeUpAs(mainThreadHasIt);
  if (noted == 0) return stayIfAnotherTookOver();
  callHandlers(noted);
  gNoted.fetch_and(~mainThreadHasIt);
  semaphore_signal(gNews);
}

// -- On the standby

// A signal ends the wait early, and has told what there is to tell.
void awaitNews() {
  while (semaphore_wait(gNews) == KERN_ABORTED) {
  }
}

// Never for nothing, so that time passes.
void awaitNewsFor(double seconds) {
  constexpr std::int64_t perSecond = 1'000'000'000;
  const auto nanoseconds = static_cast<std::int64_t>(std::ceil(seconds * static_cast<double>(perSecond)));
  semaphore_timedwait(gNews, {.tv_sec = static_cast<unsigned>(nanoseconds / perSecond),
                              .tv_nsec = static_cast<int>(nanoseconds % perSecond)});
}

// Says so when there are more than before.
void letHandledSignalsIn() {
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
  semaphore_signal(gLetIn);
}

void giveTheMainThreadTime() {
  const double deadline = uptime() + timeoutSeconds;
  for (double left = timeoutSeconds; anyNoted() && left > 0; left = deadline - uptime()) {
    awaitNewsFor(left);
    letHandledSignalsIn();
  }
}

void* standBy(void* /*context*/) {
  gStandby = ::pthread_self();
  for (;;) {
    awaitNews();
    letHandledSignalsIn();
    giveTheMainThreadTime();
    // Never given back: a main thread that comes out of its call stays where it is.
    if (const SignalBits noted = takeUpAs(standbyHasIt); noted != 0) callHandlers(noted);
  }
  return nullptr;
}

// -- Setting up

void makeWakeSource() {
  // For the life of the process, hence neither released nor destroyed.
  gWake = dispatch_source_create(DISPATCH_SOURCE_TYPE_DATA_OR, 0, 0, dispatch_get_main_queue());
  dispatch_source_set_event_handler_f(gWake, takeUp);
  dispatch_resume(gWake);
}

bool startStandby() {
  makeWakeSource();
  for (semaphore_t* semaphore : {&gNews, &gLetIn}) {
    if (semaphore_create(mach_task_self(), semaphore, SYNC_POLICY_FIFO, 0) != KERN_SUCCESS) return false;
  }
  pthread_t thread{};
  if (::pthread_create(&thread, nullptr, standBy, nullptr) != 0) return false;
  ::pthread_detach(thread);
  return true;
}

// First the standby lets it in, then this thread shuts it out: while no thread lets a signal in, the kernel
// leaves it with one of them, and that need not be the one that will.
void giveToStandby(int signal) {
  if ((gHandled.fetch_or(bitOf(signal)) & bitOf(signal)) != 0) return;
  semaphore_signal(gNews);
  while (semaphore_wait(gLetIn) == KERN_ABORTED) {
  }
  sigset_t one;
  sigemptyset(&one);
  sigaddset(&one, signal);
  // Who started the process may have shut it out, and one that came since is left with this thread.
  ::pthread_sigmask(SIG_UNBLOCK, &one, nullptr);
  ::pthread_sigmask(SIG_BLOCK, &one, nullptr);
}

}  // namespace

void installSignalHandler(int signal, Handler handler) {
  gHandlers.at(static_cast<std::size_t>(signal)).store(handler);
  static const bool standsBy = startStandby();
  struct sigaction action {};
  action.sa_handler = note;
  action.sa_flags = SA_RESTART;
  sigemptyset(&action.sa_mask);
  sigaddset(&action.sa_mask, SIGINT);
  sigaddset(&action.sa_mask, SIGTERM);
  sigaction(signal, &action, nullptr);
  // Without a standby the main thread takes its signals itself, and nobody replaces it.
  if (standsBy) giveToStandby(signal);
}

void stayIfAnotherTookOver() {
  if ((gNoted & standbyHasIt) == 0 || ::pthread_equal(gStandby, ::pthread_self()) != 0) return;
  for (;;) mach_wait_until(std::numeric_limits<std::uint64_t>::max());
}

}  // namespace brisko::platform
