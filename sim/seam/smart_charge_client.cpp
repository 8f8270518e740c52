#include "platform/smart_charge_client.h"

#include "sim/machine/charge_limit.h"
#include "sim/machine/machine_store.h"
#include "sim/seam/call_watch.h"
#include "sim/seam/moment.h"

namespace brisko::platform {

namespace {

using virtual_mac::Journal;
using virtual_mac::LimitClient;
using virtual_mac::Machine;
using virtual_mac::MachineStore;

bool clientIsOffered(Machine& machine) { return virtual_mac::loadClient(machine) == LimitClient::offered; }

bool makeClient(std::string_view name) {
  MachineStore* store = virtual_mac::machineFor({"makeSmartChargeClient"});
  if (store == nullptr || name.empty()) return false;
  return virtual_mac::changeNow(*store, [](Machine& machine, Journal&) {
    if (!clientIsOffered(machine)) return false;
    virtual_mac::noteClientMade(machine);
    return true;
  });
}

}  // namespace

bool smartChargeClassPresent() {
  MachineStore* store = virtual_mac::machineFor({"smartChargeClassPresent"});
  if (store == nullptr) return false;
  return virtual_mac::changeNow(*store, [](Machine& machine, Journal&) { return clientIsOffered(machine); });
}

// The result of the first call is kept until the process ends, also a failure.
bool makeSmartChargeClient(std::string_view name) {
  static const bool made = makeClient(name);
  return made;
}

std::optional<bool> smartChargeLimitSupported() {
  MachineStore* store = virtual_mac::machineFor({"smartChargeLimitSupported"});
  if (store == nullptr) return std::nullopt;
  return virtual_mac::changeNow(
      *store, [](Machine& machine, Journal&) { return virtual_mac::clientSaysSupported(machine); });
}

std::optional<bool> smartChargeLimitEnabled() {
  MachineStore* store = virtual_mac::machineFor({"smartChargeLimitEnabled"});
  if (store == nullptr) return std::nullopt;
  return virtual_mac::changeNow(
      *store, [](Machine& machine, Journal&) { return virtual_mac::clientSaysEnabled(machine); });
}

std::optional<std::int64_t> smartChargeLimit() {
  MachineStore* store = virtual_mac::machineFor({"smartChargeLimit"});
  if (store == nullptr) return std::nullopt;
  return virtual_mac::changeNow(
      *store, [](Machine& machine, Journal&) { return virtual_mac::clientSaysLimit(machine); });
}

std::optional<bool> setSmartChargeLimit(std::int64_t percent) {
  MachineStore* store = virtual_mac::machineFor({"setSmartChargeLimit"});
  if (store == nullptr) return std::nullopt;
  return virtual_mac::changeNow(*store, [percent](Machine& machine, Journal& journal) {
    return virtual_mac::setByClient(machine, journal, percent).value_or(false);
  });
}

}  // namespace brisko::platform
