#include "recordings/recorded_moments.h"

#include <algorithm>
#include <filesystem>

#include "sim/dump_import/dump_import.h"
#include "sim/machine/machine.h"

namespace brisko::test {
namespace {

using virtual_mac::ChangeKind;
using virtual_mac::Machine;

constexpr double settled = 600;  // seconds: so that what changes at once has done so

Moment shownBy(const virtual_mac::Gauge& gauge) {
  return {.temperatureC = static_cast<double>(gauge.temperatureCentiC) / 100,
          .currentMA = static_cast<double>(gauge.currentMA),
          .volts = static_cast<double>(gauge.voltageMV) / 1000};
}

std::string situationOf(const Machine& machine) {
  const std::string percent = std::to_string(machine.gauge.percent) + " %";
  if (!machine.adapter.present) return "on battery at " + percent;
  if (machine.gauge.full) return "full";
  return (machine.gauge.charging ? "charging at " : "held at ") + percent;
}

void stopCharging(Machine& machine) {
  virtual_mac::apply(machine, {.kind = ChangeKind::limit, .number = 80});
  machine.limit.held = {.percent = std::max<std::int64_t>(machine.gauge.percent - 1, 1), .fullUntil = 0};
  machine.battery.limitCharging = false;
}

// What the model would have published in this situation. Its battery begins as warm as it would be after
// hours of it, because nothing is known of the time before.
Moment settledMoment(Machine machine, bool held, double percent) {
  if (held) stopCharging(machine);
  for (int step = 0; step < 36; ++step) {
    virtual_mac::advance(machine, machine.now + settled);
    if (!held && !machine.gauge.full) {
      virtual_mac::apply(machine, {.kind = ChangeKind::charge, .number = percent});
    }
  }
  return shownBy(machine.gauge);
}

}  // namespace

std::vector<RecordedMoment> recordedMoments(const std::string& folder) {
  std::vector<std::string> paths;
  for (const auto& entry : std::filesystem::directory_iterator(folder)) {
    const std::string path = entry.path().string();
    const bool isDump = path.ends_with(".json") || path.ends_with(".plist");
    if (isDump && !path.ends_with(".pack.json")) paths.push_back(path);
  }
  std::sort(paths.begin(), paths.end());

  std::vector<RecordedMoment> moments;
  for (const std::string& path : paths) {
    std::string reason;
    const auto machine = machineFromDumpFile(path, {}, reason);
    if (!machine) continue;  // no battery
    const virtual_mac::Gauge& gauge = machine->gauge;
    const bool held = machine->adapter.present && !gauge.charging && !gauge.full;
    moments.push_back({.file = std::filesystem::path(path).filename().string(),
                       .situation = situationOf(*machine),
                       .held = held,
                       .loadWatts = machine->surroundings.loadWatts,
                       .recorded = shownBy(gauge),
                       .modelled = settledMoment(*machine, held, static_cast<double>(gauge.percent))});
  }
  return moments;
}

}  // namespace brisko::test
