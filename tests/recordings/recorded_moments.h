// recordings/recorded_moments.h
// What dumps of real Macs show of one moment, beside what the virtual Mac of the nearest model shows in the
// same situation once it has settled: how warm the battery is, what flows, and at which voltage it rests.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace brisko::test {

struct Moment {
  double temperatureC;
  double currentMA;
  double volts;
};
struct RecordedMoment {
  std::string file;
  std::string situation;  // "held at 80 %", "charging at 34 %", "on battery at 79 %", "full"
  bool held;              // on the adapter with charging stopped
  double loadWatts;
  Moment recorded, modelled;
};

// Of all dumps with a battery and a temperature in the folder, in the order of their names.
[[nodiscard]] std::vector<RecordedMoment> recordedMoments(const std::string& folder);

}  // namespace brisko::test
