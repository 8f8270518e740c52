#include "platform/power_sources.h"

#include <utility>

#include "platform/virtual/machine_store.h"
#include "platform/virtual/moment.h"
#include "platform/virtual/power_source_watch.h"
#include "platform/virtual/properties.h"

namespace brisko {

namespace {

// Needed until the last moment of the process, hence never destroyed.
struct Watch {
  std::vector<std::function<void()>> listeners;
  std::uint64_t heardOf = 0;  // the machine's count of published changes
  double heardAt = 0;         // machine time of the last one
  int heardThen = 0;          // … and how many there were at that moment
};

// Where what a process does changes the power source, it hears of its own doing. On a Mac that takes time; a
// process that answers each time must not keep the clock from moving on.
constexpr int mostAtOnce = 16;
Watch& watch() {
  static Watch& kept = *new Watch;
  return kept;
}

}  // namespace

namespace platform {

std::optional<std::vector<SharedDictionary>> powerSources() {
  virtual_mac::MachineStore* store = virtual_mac::attachedMachine();
  if (store == nullptr) return std::nullopt;
  return virtual_mac::readNow(*store, virtual_mac::powerSourceList);
}

bool addPowerSourceNotification(std::function<void()> changed) {
  virtual_mac::MachineStore* store = virtual_mac::attachedMachine();
  if (store == nullptr) return false;
  if (watch().listeners.empty()) {
    watch().heardOf = virtual_mac::readNow(
        *store, [](const virtual_mac::Machine& machine) { return machine.powerSource.changes; });
  }
  watch().listeners.push_back(std::move(changed));
  return true;
}

}  // namespace platform

namespace virtual_mac {

bool powerSourceChanged(const Machine& machine) {
  Watch& kept = watch();
  if (kept.listeners.empty() || kept.heardOf == machine.powerSource.changes) return false;
  if (kept.heardAt != machine.now) kept.heardThen = 0;
  if (kept.heardThen == mostAtOnce) return false;
  kept.heardOf = machine.powerSource.changes;
  kept.heardAt = machine.now;
  ++kept.heardThen;
  return true;
}

void tellPowerSourceChange() {
  // By index: a listener may add another one.
  for (std::size_t index = 0; index < watch().listeners.size(); ++index) {
    const auto listener = watch().listeners[index];
    listener();
  }
}

}  // namespace virtual_mac
}  // namespace brisko
