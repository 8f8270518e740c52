#include "platform/virtual/simulated/driver.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <utility>

#include "platform/virtual/moment.h"
#include "platform/virtual/signals.h"
#include "platform/virtual/simulated/virtual_time.h"

namespace brisko::virtual_mac {

namespace {

constexpr double never = std::numeric_limits<double>::infinity();
constexpr double longestWait = 366 * 86400.0;

// Needed until the last moment of the process, hence never destroyed.
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

// In virtual time the store lies in memory, so that looking costs nothing.
Machine& machine() { return driver().store->update().machine(); }

// True when something happened that the process must hear of.
bool advanceTo(double time) {
  if (driver().store == nullptr) {
    driver().bareNow = std::max(driver().bareNow, time);
    return false;
  }
  return advanceToNotice(machine(), time);
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

double virtualNow() { return driver().store == nullptr ? driver().bareNow : machine().now; }

double virtualUptime() {
  return driver().store == nullptr ? driver().bareNow - bareBoot : uptimeOf(machine());
}

double virtualWallClock() { return driver().store == nullptr ? driver().bareNow : wallClock(machine()); }

double timeAtUptime(double uptime) {
  if (driver().store == nullptr) return bareBoot + uptime;
  const System& system = machine().system;
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
  if (driver().store == nullptr || machine().pendingSignals == 0) return;
  raiseSignals(std::exchange(machine().pendingSignals, 0));
}

void afterEvent() {
  if (driver().afterEvent) driver().afterEvent();
}

}  // namespace brisko::virtual_mac
