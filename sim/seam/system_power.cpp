#include "platform/system_power.h"

#include <algorithm>
#include <utility>

#include "platform/host.h"
#include "sim/machine/machine_store.h"
#include "sim/seam/call_watch.h"
#include "sim/seam/moment.h"
#include "sim/seam/power_message_watch.h"

namespace brisko {

namespace {

using virtual_mac::Journal;
using virtual_mac::Machine;
using virtual_mac::PowerNotice;

constexpr platform::RootPowerPort theRootPort = 1;  // the machine has one client, hence one port
constexpr platform::SleepAssertion theAssertion = 1;

// Used until the process ends, so it is never destroyed.
struct Client {
  platform::PowerCallback callback;  // empty: not registered
  std::uint32_t lastReceived = 0;    // token of the last message received
};
Client& client() {
  static Client& kept = *new Client;
  return kept;
}

void notify(const PowerNotice& notice) {
  virtual_mac::changeNow(*virtual_mac::attachedMachine(), [&notice](Machine& machine, Journal& journal) {
    virtual_mac::noteReceived(machine, journal, notice);
  });
  client().callback(static_cast<platform::PowerMessage>(notice.type), notice.token);
}

}  // namespace

namespace platform {

PowerRegistration registerSystemPower(PowerCallback callback) {
  virtual_mac::MachineStore* store = virtual_mac::machineFor({"registerSystemPower"});
  if (store == nullptr) return {0, false};
  std::uint32_t sentBefore = 0;
  const bool taken = virtual_mac::changeNow(*store, [&sentBefore](Machine& machine, const Journal&) {
    sentBefore = machine.sleep.noticesSent;
    return virtual_mac::registerPowerClient(machine, processId());
  });
  if (!taken) return {0, false};
  client() = {.callback = std::move(callback), .lastReceived = sentBefore};
  return {theRootPort, true};
}

void allowPowerChange(RootPowerPort rootPort, std::intptr_t argument) {
  virtual_mac::MachineStore* store = virtual_mac::machineFor({"allowPowerChange"});
  if (store == nullptr || rootPort != theRootPort) return;
  virtual_mac::changeNow(*store, [argument](Machine& machine, Journal& journal) {
    virtual_mac::allowPowerChange(machine, journal, static_cast<std::uint32_t>(argument));
  });
}

KernelStatus schedulePowerEvent(double date, std::string_view identifier, std::string_view type) {
  virtual_mac::MachineStore* store = virtual_mac::machineFor({"schedulePowerEvent"});
  if (store == nullptr) return kernelNotFound;
  return virtual_mac::changeNow(*store, [=](Machine& machine, Journal& journal) {
    return virtual_mac::scheduleEvent(machine, journal, date, identifier, type);
  });
}

KernelStatus cancelPowerEvent(double date, std::string_view identifier, std::string_view type) {
  virtual_mac::MachineStore* store = virtual_mac::machineFor({"cancelPowerEvent"});
  if (store == nullptr) return kernelNotFound;
  return virtual_mac::changeNow(*store, [=](Machine& machine, Journal& journal) {
    return virtual_mac::cancelEvent(machine, journal, date, identifier, type);
  });
}

SleepAssertion preventSystemSleep(std::string_view /*reason*/) {
  virtual_mac::MachineStore* store = virtual_mac::machineFor({"preventSystemSleep"});
  if (store == nullptr) return 0;
  return virtual_mac::changeNow(*store, virtual_mac::preventSleep) == kernelSuccess ? theAssertion : 0;
}

void releaseSleepAssertion(SleepAssertion assertion) {
  virtual_mac::MachineStore* store = virtual_mac::machineFor({"releaseSleepAssertion"});
  if (store != nullptr && assertion == theAssertion) virtual_mac::changeNow(*store, virtual_mac::allowSleep);
}

}  // namespace platform

namespace virtual_mac {

std::vector<std::function<void()>> arrivedPowerMessages(const Machine& machine) {
  std::vector<std::function<void()>> work;
  if (!client().callback) return work;
  const std::uint32_t sent = machine.sleep.noticesSent;
  // The record keeps only the latest messages; a process that slept through more has missed the oldest.
  const std::uint32_t kept = std::min<std::uint32_t>(sent, noticePlaces);
  for (std::uint32_t token = std::max(client().lastReceived, sent - kept) + 1; token <= sent; ++token) {
    work.emplace_back([notice = machine.sleep.notices[token % noticePlaces]] { notify(notice); });
  }
  client().lastReceived = sent;
  return work;
}

}  // namespace virtual_mac
}  // namespace brisko
