#include "sim/seam/simulated/driver.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <utility>

#include "sim/seam/moment.h"
#include "sim/seam/signals.h"
#include "sim/seam/simulated/virtual_time.h"

namespace brisko::virtual_mac {

namespace {

constexpr double longestWait = 366 * 86400.0;

// Used until the process ends, so it is never destroyed.
struct Driver {
  MachineStore* store = nullptr;
  double horizon = never;
  std::function<double()> reached;
  std::function<void()> afterEvent;
  double bareNow = MachineOptions{}.startTime;  // the time without a machine
};
Driver& driver() {
  static Driver& kept = *new Driver;
  return kept;
}
constexpr double bareBoot = MachineOptions{}.startTime - MachineOptions{}.uptime;

// The machine of this process; null without one. In virtual time the store is in memory, so a view costs
// nothing.
Machine* machine() {
  MachineStore* store = driver().store;
  return store == nullptr ? nullptr : &store->update().machine();
}

// Returns true when something happened that the process must be told of.
bool advanceTo(double time) {
  if (Machine* moving = machine()) return advanceToNotice(*moving, time);
  driver().bareNow = std::max(driver().bareNow, time);
  return false;
}

[[noreturn]] void reportEndlessWait() {
  std::fputs("virtual time: the process waits for ever, nothing is due within a year\n", stderr);
  std::abort();
}

}  // namespace

void attachMachine(MachineStore* store) { driver().store = store; }

void setHorizon(double horizon, std::function<double()> reached) {
  driver().horizon = horizon;
  driver().reached = std::move(reached);
}

void setAfterEvent(std::function<void()> afterEvent) { driver().afterEvent = std::move(afterEvent); }

MachineStore* attachedMachine() { return driver().store; }

double machineTime(const Machine& machine) { return machine.now; }

double virtualNow() {
  const Machine* attached = machine();
  return attached == nullptr ? driver().bareNow : attached->now;
}

double virtualUptime() {
  const Machine* attached = machine();
  return attached == nullptr ? driver().bareNow - bareBoot : uptimeOf(*attached);
}

double virtualWallClock() {
  const Machine* attached = machine();
  return attached == nullptr ? driver().bareNow : wallClock(*attached);
}

double timeAtUptime(double uptime) {
  const Machine* attached = machine();
  if (attached == nullptr) return bareBoot + uptime;
  const System& system = attached->system;
  return system.asleep ? never : uptime + system.bootedAt + system.sleptSeconds;
}

bool passToward(double time) {
  if (driver().horizon <= virtualNow()) {
    driver().horizon = driver().reached();
    return false;
  }
  const double stop = std::min(time, driver().horizon);
  if (std::isfinite(stop)) return !advanceTo(stop) && stop == time;
  if (!advanceTo(virtualNow() + longestWait)) reportEndlessWait();
  return false;
}

void raiseMachineSignals() {
  Machine* attached = machine();
  if (attached != nullptr && attached->pendingSignals != 0)
    raiseSignals(std::exchange(attached->pendingSignals, 0));
}

void afterEvent() {
  if (driver().afterEvent) driver().afterEvent();
}

}  // namespace brisko::virtual_mac
