#include "platform/run_loop.h"

#include <cmath>
#include <utility>

#include "sim/machine/control_requests.h"
#include "sim/machine/machine_store.h"
#include "sim/seam/file_events.h"
#include "sim/seam/power_message_watch.h"
#include "sim/seam/power_source_watch.h"
#include "sim/seam/signals.h"
#include "sim/seam/simulated/virtual_time.h"
#include "sim/seam/work_queue.h"

namespace brisko::platform {

namespace {

// Exit hooks may still use the loop, so it is never destroyed.
struct Loop {
  virtual_mac::WorkQueue queue;
  bool stopped = false;
};
Loop& loop() {
  static Loop& kept = *new Loop;
  return kept;
}

// Queues the machine's messages as work. While the machine sleeps nothing is delivered; the events arrive at
// wake, several changes as one.
void listenToMachine() {
  virtual_mac::MachineStore* store = virtual_mac::attachedMachine();
  if (store == nullptr) return;
  const virtual_mac::Machine& machine = store->view().machine();
  if (machine.system.asleep) return;
  if (virtual_mac::powerSourceChanged(machine)) postMain(virtual_mac::notifyPowerSourceChange);
  for (Work& work : virtual_mac::arrivedPowerMessages(machine)) postMain(std::move(work));
  for (Work& work : virtual_mac::arrivedRequests(machine)) postMain(std::move(work));
}

// Delivers signals, and queues the events of watched files and of the machine as work.
void collectEvents() {
  virtual_mac::raiseMachineSignals();
  virtual_mac::letPendingSignalsIn();
  for (Work& work : virtual_mac::arrivedSignalWork()) postMain(std::move(work));
  virtual_mac::collectFileEvents();
  listenToMachine();
}

void iterate() {
  collectEvents();
  if (loop().stopped) return;  // by a signal handler
  const double due = loop().queue.nextDue();
  const double dueTime = virtual_mac::timeAtUptime(due);
  // Work is due by either clock, because each rounds differently. While the machine sleeps nothing is due.
  const bool awake = std::isfinite(dueTime);
  const bool isDue = awake && (due <= virtual_mac::virtualUptime() || dueTime <= virtual_mac::virtualNow());
  if (!isDue && !virtual_mac::passToward(dueTime)) return;
  loop().queue.runFirst(virtual_mac::virtualUptime);
  virtual_mac::afterEvent();
}

}  // namespace

void runMain() {
  loop().stopped = false;
  while (!loop().stopped) iterate();
}

void stopMain() { loop().stopped = true; }

TimerToken addRepeatingTimer(double intervalSeconds, Work work) {
  return loop().queue.addTimer(virtual_mac::virtualUptime(), intervalSeconds, std::move(work));
}

void invalidateTimer(TimerToken token) { loop().queue.invalidateTimer(token); }

void postMain(Work work) { loop().queue.add(virtual_mac::virtualUptime(), std::move(work)); }

void postMainAfter(double seconds, Work work) {
  loop().queue.add(virtual_mac::virtualUptime() + seconds, std::move(work));
}

void installSignalHandler(int signal, void (*handler)(int)) { virtual_mac::handleSignal(signal, handler); }

void addSignalSource(int signal, Work work) { virtual_mac::noteSignal(signal, std::move(work)); }

}  // namespace brisko::platform
