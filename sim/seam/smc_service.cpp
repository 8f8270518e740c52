#include "platform/smc_service.h"

#include <set>
#include <string>
#include <utility>

#include "sim/machine/machine_store.h"
#include "sim/seam/call_watch.h"
#include "sim/seam/moment.h"
#include "sim/seam/signals.h"

namespace brisko::platform {

namespace {

using virtual_mac::Journal;
using virtual_mac::Machine;
using virtual_mac::SmcService;

// Exchanges continue until the last moments of the process, so this is never destroyed.
struct Connections {
  std::set<SmcConnection> open;
  SmcConnection last = 0;
};
Connections& connections() {
  static Connections& kept = *new Connections;
  return kept;
}

KernelStatus openOn(Machine& machine) {
  // A signal that was planned while no process used the machine has no effect.
  machine.pendingSignals = 0;
  if (machine.smc.service == SmcService::absent) return kernelNotFound;
  if (machine.smc.service == SmcService::refusesToOpen) return kernelNotPrivileged;
  machine.system.processes += 1;
  return kernelSuccess;
}

virtual_mac::WatchedCall watchedExchange(const SmcRecord& input, std::string& keyName) {
  constexpr std::size_t commandAt = 42;
  constexpr std::uint8_t writeCommand = 6;
  constexpr std::uint8_t infoCommand = 9;
  std::uint32_t key = 0;
  for (std::size_t index = 4; index > 0; --index) {
    keyName.push_back(static_cast<char>(input[index - 1]));
    key = (key << 8U) | input[index - 1];
  }
  const std::uint8_t command = input[commandAt];
  return {.name = command == writeCommand  ? virtual_mac::smcWriteName
                  : command == infoCommand ? virtual_mac::smcInfoName
                                           : virtual_mac::smcReadName,
          .subject = keyName,
          .key = key};
}

}  // namespace

SmcOpening openSmc() {
  if (virtual_mac::callFails({"openSmc"})) return {kernelError, 0};
  virtual_mac::MachineStore* store = virtual_mac::attachedMachine();
  if (store == nullptr) return {kernelNotFound, 0};
  const KernelStatus status =
      virtual_mac::changeNow(*store, [](Machine& machine, Journal&) { return openOn(machine); });
  if (status != kernelSuccess) return {status, 0};
  connections().last += 1;
  connections().open.insert(connections().last);
  return {kernelSuccess, connections().last};
}

KernelStatus closeSmc(SmcConnection connection) {
  return connections().open.erase(connection) == 1 ? kernelSuccess : kernelNotOpen;
}

SmcExchange exchangeSmc(SmcConnection connection, const SmcRecord& input, SmcRecord& output) {
  output.fill(0);
  virtual_mac::MachineStore* store = virtual_mac::attachedMachine();
  if (store == nullptr || connections().open.count(connection) == 0) {
    return {.status = kernelNotOpen, .answered = 0};
  }
  if (virtual_mac::callsAreWatched()) {
    std::string key;
    if (virtual_mac::callFails(watchedExchange(input, key))) return {.status = kernelError, .answered = 0};
  }
  std::uint32_t signals = 0;
  const KernelStatus status = virtual_mac::changeNow(*store, [&](Machine& machine, Journal& journal) {
    const KernelStatus answer = virtual_mac::exchange(machine, journal, input, output);
    signals = std::exchange(machine.pendingSignals, 0);
    return answer;
  });
  virtual_mac::raiseSignals(signals);
  return {.status = status, .answered = status == kernelSuccess ? output.size() : 0};
}

}  // namespace brisko::platform
