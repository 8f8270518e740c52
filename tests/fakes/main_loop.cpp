#include "fakes/main_loop.h"

#include <algorithm>
#include <cmath>
#include <compare>
#include <cstdint>
#include <iterator>
#include <limits>
#include <map>
#include <tuple>
#include <utility>

#include "fakes/threads.h"
#include "fakes/values.h"
#include "sim/machine/control_requests.h"
#include "sim/machine/machine_store.h"
#include "sim/seam/file_events.h"
#include "sim/seam/signals.h"
#include "sim/seam/simulated/virtual_time.h"

namespace brisko::fakes {

namespace {

constexpr double never = std::numeric_limits<double>::infinity();

// When work is due, and its order among work due at the same time.
struct QueuePosition {
  double uptime;
  std::uint64_t added;
  auto operator<=>(const QueuePosition&) const = default;
};

struct Timer : Object {
  static constexpr TypeId kind = timerType;
  Timer(double due, double every, CFIndex rank, CFRunLoopTimerCallBack callback, void* argument)
      : Object(kind), first(due), interval(every), order(rank), callout(callback), info(argument) {}
  // A caller that wants to invalidate it later holds a reference.
  [[nodiscard]] long mayBeKept() const override { return scheduled ? 1 : 0; }

  double first;  // uptime
  double interval;
  CFIndex order;
  CFRunLoopTimerCallBack callout;
  void* info;
  bool valid = true;
  bool scheduled = false;
  QueuePosition place{};
};

// Exit hooks may still reach the loop, hence never destroyed.
struct Loop {
  std::vector<Source*> sources;
  std::vector<Timer*> timers;
  std::map<QueuePosition, Work> queue;
  std::uint64_t added = 0;
  bool stopped = false;
  long outsideCommonModes = 0;
};
Loop& loop() {
  static Loop& kept = *new Loop;
  return kept;
}

void checkLoop(CFRunLoopRef reference) {
  if (reference != CFRunLoopGetMain()) misuse("that is not the main run loop");
}

// Whether CFRunLoopRun() serves the mode.
bool isServed(CFRunLoopMode mode) {
  const std::string& name = textOf(mode);
  const bool common = name == textOf(kCFRunLoopCommonModes);
  if (!common) loop().outsideCommonModes += 1;
  return common || name == textOf(kCFRunLoopDefaultMode);
}

template <class Kind>
bool addTo(std::vector<Kind*>& all, Kind& object) {
  if (std::find(all.begin(), all.end(), &object) != all.end()) return false;
  object.holdForSystem();
  all.push_back(&object);
  return true;
}

template <class Kind>
void removeFrom(std::vector<Kind*>& all, Kind& object) {
  if (std::erase(all, &object) != 0) object.dropForSystem();
}

// -- Events

// A wait without length, in which other threads run. The data that they merge is delivered before everything
// else.
void waitForNothing() {
  do {
    virtual_mac::letPendingSignalsIn();  // those of signal sources
    runOtherThreads();
  } while (tellMergedData());
}

// While the machine sleeps nothing is delivered; changes during sleep are delivered at wake.
void listenToMachine() {
  virtual_mac::MachineStore* store = virtual_mac::attachedMachine();
  if (store == nullptr) return;
  const virtual_mac::Machine& machine = store->view().machine();
  if (machine.system.asleep) return;
  for (const Source* source : loop().sources) {
    for (Work& work : source->arrived(machine)) enqueue(std::move(work));
  }
  for (Work& work : virtual_mac::arrivedRequests(machine)) enqueue(std::move(work));
}

void collectEvents() {
  virtual_mac::raiseMachineSignals();
  waitForNothing();
  for (Work& work : virtual_mac::arrivedSignalWork()) enqueue(std::move(work));
  virtual_mac::collectFileEvents();
  listenToMachine();
}

// -- What is due

// Of timers due at the same instant the lower order fires first.
Timer* firstTimer() {
  const auto& timers = loop().timers;
  const auto first = std::min_element(timers.begin(), timers.end(), [](const Timer* one, const Timer* other) {
    return std::tie(one->place.uptime, one->order, one->place.added) <
           std::tie(other->place.uptime, other->order, other->place.added);
  });
  return first == timers.end() ? nullptr : *first;
}

QueuePosition firstPosition() {
  QueuePosition first{never, 0};
  if (!loop().queue.empty()) first = loop().queue.begin()->first;
  const Timer* timer = firstTimer();
  return timer != nullptr && timer->place < first ? timer->place : first;
}

// The next point of its grid in the future. However many points have passed, the timer fires once.
void setForward(Timer& timer) {
  const double from = std::max(virtual_mac::virtualUptime(), timer.place.uptime);
  double steps = std::floor((from - timer.first) / timer.interval) + 1;
  while (timer.first + steps * timer.interval <= from) steps += 1;
  timer.place.uptime = timer.first + steps * timer.interval;
}

void fire(Timer& timer) {
  timer.holdForSystem();
  timer.callout(refTo<CFRunLoopTimerRef>(&timer), timer.info);
  if (timer.valid && timer.interval > 0) setForward(timer);
  if (timer.interval <= 0) CFRunLoopTimerInvalidate(refTo<CFRunLoopTimerRef>(&timer));
  timer.dropForSystem();
}

void doFirst() {
  Timer* timer = firstTimer();
  auto& queue = loop().queue;
  if (timer != nullptr && (queue.empty() || timer->place < queue.begin()->first)) return fire(*timer);
  const Work work = std::move(queue.begin()->second);
  queue.erase(queue.begin());
  work();
}

void turn() {
  collectEvents();
  if (loop().stopped) return;  // by a signal handler
  const double due = firstPosition().uptime;
  if (const double deadline = firstDeadline(); deadline < due) {
    // Another thread runs first.
    static_cast<void>(virtual_mac::passToward(virtual_mac::timeAtUptime(deadline)));
    return;
  }
  const double dueTime = virtual_mac::timeAtUptime(due);
  // Due by either clock, since each is rounded on its own. While the machine sleeps nothing is due.
  const bool awake = std::isfinite(dueTime);
  const bool isDue = awake && (due <= virtual_mac::virtualUptime() || dueTime <= virtual_mac::virtualNow());
  if (!isDue && !virtual_mac::passToward(dueTime)) return;
  doFirst();
  virtual_mac::afterEvent();
}

}  // namespace

void enqueue(Work work) { enqueueAt(virtual_mac::virtualUptime(), std::move(work)); }

void enqueueAt(double uptime, Work work) {
  loop().queue.emplace(QueuePosition{uptime, ++loop().added}, std::move(work));
}

std::size_t timersScheduled() { return loop().timers.size(); }

long outsideCommonModes() { return loop().outsideCommonModes; }

}  // namespace brisko::fakes

using namespace brisko::fakes;

extern "C" {

const CFRunLoopMode kCFRunLoopDefaultMode = constantString("kCFRunLoopDefaultMode");
const CFRunLoopMode kCFRunLoopCommonModes = constantString("kCFRunLoopCommonModes");

CFRunLoopRef CFRunLoopGetMain() { return reinterpret_cast<CFRunLoopRef>(&loop()); }

void CFRunLoopRun() {
  loop().stopped = false;
  while (!loop().stopped) turn();
}

void CFRunLoopStop(CFRunLoopRef reference) {
  checkLoop(reference);
  loop().stopped = true;
}

void CFRunLoopAddSource(CFRunLoopRef reference, CFRunLoopSourceRef source, CFRunLoopMode mode) {
  checkLoop(reference);
  if (!isServed(mode)) return;
  addTo(loop().sources, as<Source>(source));
  std::stable_sort(loop().sources.begin(), loop().sources.end(),
                   [](const Source* one, const Source* other) { return one->rank() < other->rank(); });
}

// A timer uses the clock that pauses in sleep and ignores changes of the wall clock.
CFRunLoopTimerRef CFRunLoopTimerCreate(CFAllocatorRef, CFAbsoluteTime fireDate, CFTimeInterval interval,
                                       CFOptionFlags, CFIndex order, CFRunLoopTimerCallBack callout,
                                       CFRunLoopTimerContext* context) {
  const double due = brisko::virtual_mac::virtualUptime() + (fireDate - CFAbsoluteTimeGetCurrent());
  return refTo<CFRunLoopTimerRef>(
      new Timer(due, interval, order, callout, context == nullptr ? nullptr : context->info));
}

void CFRunLoopAddTimer(CFRunLoopRef reference, CFRunLoopTimerRef added, CFRunLoopMode mode) {
  checkLoop(reference);
  Timer& timer = as<Timer>(added);
  if (!timer.valid || !isServed(mode) || !addTo(loop().timers, timer)) return;
  timer.place = {timer.first, ++loop().added};
  timer.scheduled = true;
}

void CFRunLoopTimerInvalidate(CFRunLoopTimerRef invalidated) {
  Timer& timer = as<Timer>(invalidated);
  timer.valid = false;
  timer.scheduled = false;
  removeFrom(loop().timers, timer);
}
}
