// Prints the tables of docs/virtual-mac.md that compare the virtual Mac's battery with recordings of real
// ones.
#include <array>
#include <cstdio>
#include <string>

#include "recordings/recorded_charge.h"
#include "recordings/recorded_moments.h"
#include "sim/machine/machine.h"
#include "sim/machine/models.h"

namespace brisko::test {
namespace {

using virtual_mac::ChangeKind;

void printCharge(const ChargeCurve& recorded, const ChargeCurve& modelled) {
  std::puts("| min | percent recorded | modelled | mA recorded | modelled | mV recorded | modelled |");
  std::puts("|---|---|---|---|---|---|---|");
  double next = 0;
  for (std::size_t line = 0; line < recorded.size(); ++line) {
    const ChargeLine& real = recorded[line];
    if (real.seconds < next) continue;
    next = real.seconds + 290;
    const ChargeLine& model = modelled[line];
    std::printf("| %.0f | %lld | %lld | %.0f | %.0f | %.0f | %.0f |\n", real.seconds / 60,
                static_cast<long long>(real.percent), static_cast<long long>(model.percent), real.currentMA,
                model.currentMA, real.millivolts, model.millivolts);
  }
  std::printf(
      "\n100 %% is shown after %.1f min recorded, %.1f modelled; charging ends after %.1f and %.1f.\n",
      firstSecondsAt100(recorded) / 60, firstSecondsAt100(modelled) / 60, firstSecondsFull(recorded) / 60,
      firstSecondsFull(modelled) / 60);
}

void printMoments(const std::string& folder) {
  std::puts("\n| dump | | W | °C recorded | modelled | mA recorded | modelled | V recorded | modelled |");
  std::puts("|---|---|---|---|---|---|---|---|---|");
  for (const RecordedMoment& moment : recordedMoments(folder)) {
    std::printf("| %s | %s | %.1f | %.1f | %.1f | %.0f | %.0f | %.2f | %.2f |\n", moment.file.c_str(),
                moment.situation.c_str(), moment.loadWatts, moment.recorded.temperatureC,
                moment.modelled.temperatureC, moment.recorded.currentMA, moment.modelled.currentMA,
                moment.recorded.volts, moment.modelled.volts);
  }
}

// What flows into the battery with each adapter.
void printAdapters() {
  std::puts("\n| mA at | 20 % | 60 % | 80 % |");
  std::puts("|---|---|---|---|");
  for (const virtual_mac::Model& model : virtual_mac::models()) {
    for (const double watts : {30.0, 67.0, 96.0, 140.0}) {
      std::printf("| %s, %.0f W |", std::string(model.name).c_str(), watts);
      for (const double percent : {20.0, 60.0, 80.0}) {
        virtual_mac::Machine machine = virtual_mac::makeMachine(model, {.percent = percent});
        virtual_mac::apply(machine, {.kind = ChangeKind::plug, .number = watts});
        std::printf(" %.0f |", machine.battery.targetMA);
      }
      std::puts("");
    }
  }
}

int printTables() {
  const auto folder = recordingsFolder();
  if (!folder) {
    std::fputs("BRISKO_DUMPS must name the folder of the recordings\n", stderr);
    return 2;
  }
  const ChargeCurve recorded = readCharge(*folder + recordedCharge);
  printCharge(recorded, modelledCharge(recorded));
  printMoments(*folder);
  printAdapters();
  return 0;
}

}  // namespace
}  // namespace brisko::test

int main() { return brisko::test::printTables(); }
