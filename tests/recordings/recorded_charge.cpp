#include "recordings/recorded_charge.h"

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <nlohmann/json.hpp>

#include "sim/machine/machine.h"
#include "sim/machine/models.h"

namespace brisko::test {
namespace {

template <typename Is>
double firstSeconds(const ChargeCurve& curve, Is is) {
  const auto found = std::find_if(curve.begin(), curve.end(), is);
  return found == curve.end() ? virtual_mac::never : found->seconds;
}

// The charge at the first line lies half a percent below the next one, less what flows until that is shown.
double percentAtBegin(const ChargeCurve& recorded, const virtual_mac::Machine& machine) {
  const std::int64_t first = recorded.front().percent;
  const double next = firstSeconds(recorded, [first](const auto& line) { return line.percent > first; });
  const virtual_mac::Battery& battery = machine.battery;
  const double perSecond = 100 * battery.steps.back().mostMA / 3600 / (battery.fullMAh * battery.shownFull);
  return static_cast<double>(first) + 0.5 - perSecond * next;
}

}  // namespace

std::optional<std::string> recordingsFolder() {
  const char* folder = std::getenv("BRISKO_DUMPS");
  if (folder == nullptr) return std::nullopt;
  return folder;
}

ChargeCurve readCharge(const std::string& path) {
  ChargeCurve curve;
  std::ifstream file(path);
  std::string line;
  double begin = 0;
  while (std::getline(file, line)) {
    const auto record = nlohmann::json::parse(line);
    const double time = record.at("t").get<double>();
    if (curve.empty()) begin = time;
    curve.push_back({.seconds = time - begin,
                     .percent = record.at("cap").get<std::int64_t>(),
                     .currentMA = record.at("amp_mA").get<double>(),
                     .millivolts = record.at("mV").get<double>(),
                     .full = record.at("full").get<std::string>() == "Yes"});
  }
  return curve;
}

ChargeCurve modelledCharge(const ChargeCurve& recorded) {
  // The recorded gauge published half a minute after the first line.
  constexpr double uptime = 3630;
  virtual_mac::Machine machine = virtual_mac::makeMachine(*virtual_mac::findModel("pro16"),
                                                          {.uptime = uptime, .percent = 50, .plugged = true});
  const double percent = percentAtBegin(recorded, machine);
  virtual_mac::apply(machine, {.kind = virtual_mac::ChangeKind::charge, .number = percent});
  const double begin = machine.now;
  ChargeCurve curve;
  for (const ChargeLine& line : recorded) {
    virtual_mac::advance(machine, begin + line.seconds);
    const virtual_mac::Gauge& gauge = machine.gauge;
    curve.push_back({.seconds = line.seconds,
                     .percent = gauge.percent,
                     .currentMA = static_cast<double>(gauge.currentMA),
                     .millivolts = static_cast<double>(gauge.voltageMV),
                     .full = gauge.full});
  }
  return curve;
}

double firstSecondsAt100(const ChargeCurve& curve) {
  return firstSeconds(curve, [](const ChargeLine& line) { return line.percent == 100; });
}

double firstSecondsFull(const ChargeCurve& curve) {
  return firstSeconds(curve, [](const ChargeLine& line) { return line.full; });
}

std::size_t taperBegin(const ChargeCurve& recorded) {
  constexpr double flat = 0.95;
  const auto falls = std::adjacent_find(
      recorded.begin(), recorded.end(), [](const ChargeLine& before, const ChargeLine& after) {
        return before.percent > 90 && after.currentMA < flat * before.currentMA;
      });
  return static_cast<std::size_t>(falls - recorded.begin()) + 1;
}

}  // namespace brisko::test
