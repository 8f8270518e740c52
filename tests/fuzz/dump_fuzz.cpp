// Any dump is imported as a plausible machine on which time can advance, or rejected with a reason.
#include <cmath>

#include "fuzz/require.h"
#include "fuzz/target.h"
#include "sim/dump_import/dump_import.h"
#include "sim/dump_import/read_dump.h"
#include "sim/machine/properties.h"

namespace brisko::dump_fuzz {
namespace {

using virtual_mac::Machine;

void requireBelievable(const Machine& machine) {
  const double level = virtual_mac::level(machine);
  require(level >= 0 && level <= 100);
  require(machine.powerSource.percent >= 0 && machine.powerSource.percent <= 100);
  const virtual_mac::Battery& battery = machine.battery;
  require(std::isfinite(battery.temperatureC) && std::abs(battery.temperatureC) < 1000);
  require(battery.fullMAh > 0 && battery.fullMAh <= 1e5);
  require(battery.chargeMAh >= 0 && battery.chargeMAh <= battery.fullMAh);
  const auto properties = virtual_mac::entryProperties(machine, "AppleSmartBattery");
  require(properties && !properties->empty());
  require(virtual_mac::powerSourceList(machine).has_value());
}

void tryText(std::string_view text) {
  std::string reason;
  const auto dump = readDump(text, reason);
  require(dump.has_value() == reason.empty());
  if (!dump) return;
  auto machine = machineFromDump(*dump, &*dump, {}, reason);
  require(machine.has_value() == reason.empty());
  if (!machine) return;
  requireBelievable(*machine);
  virtual_mac::advance(*machine, machine->now + 600);
  requireBelievable(*machine);
}

const FuzzTarget target("dump", tryText);

}  // namespace
}  // namespace brisko::dump_fuzz
