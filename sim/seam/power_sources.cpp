#include "platform/power_sources.h"

#include <utility>

#include "sim/machine/machine_store.h"
#include "sim/machine/properties.h"
#include "sim/seam/call_watch.h"
#include "sim/seam/moment.h"
#include "sim/seam/power_source_watch.h"

namespace brisko {

namespace {

// Used until the process ends, so it is never destroyed.
struct Watch {
  std::vector<std::function<void()>> listeners;
  virtual_mac::DeliveredChanges delivered;
};
Watch& watch() {
  static Watch& kept = *new Watch;
  return kept;
}

}  // namespace

namespace platform {

std::optional<std::vector<SharedDictionary>> powerSources() {
  virtual_mac::MachineStore* store = virtual_mac::machineFor({"powerSources"});
  if (store == nullptr) return std::nullopt;
  return virtual_mac::readNow(*store, virtual_mac::powerSourceList);
}

bool addPowerSourceNotification(std::function<void()> changed) {
  virtual_mac::MachineStore* store = virtual_mac::machineFor({"addPowerSourceNotification"});
  if (store == nullptr) return false;
  if (watch().listeners.empty()) {
    watch().delivered.count = virtual_mac::readNow(
        *store, [](const virtual_mac::Machine& machine) { return machine.powerSource.changes; });
  }
  watch().listeners.push_back(std::move(changed));
  return true;
}

}  // namespace platform

namespace virtual_mac {

bool powerSourceChanged(const Machine& machine) {
  return !watch().listeners.empty() && watch().delivered.takeNew(machine);
}

void notifyPowerSourceChange() {
  // By index, because a listener may add another one.
  for (std::size_t index = 0; index < watch().listeners.size(); ++index) {
    const auto listener = watch().listeners[index];
    listener();
  }
}

}  // namespace virtual_mac
}  // namespace brisko
