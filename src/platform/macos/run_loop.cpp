#include "platform/run_loop.h"

#include <csignal>
#include <map>
#include <memory>
#include <utility>

#include <CoreFoundation/CoreFoundation.h>
#include <dispatch/dispatch.h>

#include "platform/macos/owned.h"

namespace brisko::platform {
namespace {

// -- Timers. Everything about them happens on the main thread.

struct Timer {
  Owned<CFRunLoopTimerRef> timer;
  std::shared_ptr<const Work> work;  // it may invalidate its own timer while it runs
};

std::map<TimerToken, Timer>& timers() {
  static auto& all = *new std::map<TimerToken, Timer>;
  return all;
}

void fire(CFRunLoopTimerRef /*timer*/, void* context) {
  const auto found = timers().find(reinterpret_cast<TimerToken>(context));
  if (found == timers().end()) return;
  const std::shared_ptr<const Work> work = found->second.work;
  (*work)();
}

// -- Work on the main queue

void runAndForget(void* context) {
  const std::unique_ptr<const Work> work(static_cast<const Work*>(context));
  (*work)();
}

void runAndKeep(void* context) { (*static_cast<const Work*>(context))(); }

}  // namespace

void runMain() { CFRunLoopRun(); }

void stopMain() { CFRunLoopStop(CFRunLoopGetMain()); }

TimerToken addRepeatingTimer(double intervalSeconds, Work work) {
  static TimerToken last = 0;
  const TimerToken token = ++last;
  CFRunLoopTimerContext context{};
  // The token itself is passed to fire() and never dereferenced.
  context.info = reinterpret_cast<void*>(token);  // NOLINT(performance-no-int-to-ptr)
  // Of timers due at the same instant the one with the lower order fires first. The system keeps the timer's
  // grid.
  Owned<CFRunLoopTimerRef> timer(
      CFRunLoopTimerCreate(kCFAllocatorDefault, CFAbsoluteTimeGetCurrent() + intervalSeconds, intervalSeconds,
                           0, static_cast<CFIndex>(token), fire, &context));
  CFRunLoopAddTimer(CFRunLoopGetMain(), timer.get(), kCFRunLoopCommonModes);
  timers().emplace(token, Timer{std::move(timer), std::make_shared<const Work>(std::move(work))});
  return token;
}

void invalidateTimer(TimerToken token) {
  const auto found = timers().find(token);
  if (found == timers().end()) return;
  CFRunLoopTimerInvalidate(found->second.timer.get());
  timers().erase(found);
}

void postMain(Work work) {
  dispatch_async_f(dispatch_get_main_queue(), new Work(std::move(work)), runAndForget);
}

void postMainAfter(double seconds, Work work) {
  constexpr double inNanoseconds = 1e9;
  const auto delta = static_cast<std::int64_t>(seconds * inNanoseconds);
  dispatch_after_f(dispatch_time(DISPATCH_TIME_NOW, delta), dispatch_get_main_queue(),
                   new Work(std::move(work)), runAndForget);
}

void addSignalSource(int signal, Work work) {
  struct sigaction ignored {};
  ignored.sa_handler = SIG_IGN;
  sigaction(signal, &ignored, nullptr);
  // Used until the process ends, so neither released nor destroyed.
  const dispatch_source_t source = dispatch_source_create(
      DISPATCH_SOURCE_TYPE_SIGNAL, static_cast<uintptr_t>(signal), 0, dispatch_get_main_queue());
  dispatch_set_context(source, new Work(std::move(work)));
  dispatch_source_set_event_handler_f(source, runAndKeep);
  dispatch_resume(source);
}

}  // namespace brisko::platform
