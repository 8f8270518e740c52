#include "client/linux/machine_facts.h"

#include <algorithm>

#include "platform/system_power.h"

namespace brisko::client {
namespace {

using virtual_mac::Machine;

// From the message that the power service sent about the last full wake.
std::optional<double> lastWake(const Machine& machine) {
  constexpr auto hasPoweredOn = static_cast<std::uint32_t>(platform::PowerMessage::systemHasPoweredOn);
  std::optional<double> latest;
  for (const auto& notice : machine.sleep.notices) {
    if (notice.type == hasPoweredOn) latest = std::max(latest.value_or(notice.sentAt), notice.sentAt);
  }
  if (!latest) return std::nullopt;
  return *latest + machine.system.wallOffset;
}

}  // namespace

SystemFacts factsOf(const Machine& machine) {
  SystemFacts facts;
  if (machine.adapter.present) facts.adapterWatts = machine.adapter.watts;
  facts.bootedAt = machine.system.bootedAt + machine.system.wallOffset;
  facts.wokeAt = lastWake(machine);
  facts.asleep = machine.system.asleep;
  return facts;
}

}  // namespace brisko::client
