// recordings/recorded_charge.h
// The recorded charge of a 16-inch Mac, from 83 % to full, and the same charge on the virtual Mac. The
// recordings are not shipped: they lie in the folder that BRISKO_DUMPS names, one JSON object a line.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace brisko::test {

// What the gauge showed at one moment.
struct ChargeLine {
  double seconds;  // since the first line
  std::int64_t percent;
  double currentMA;
  double millivolts;
  bool full;
};
using ChargeCurve = std::vector<ChargeLine>;

[[nodiscard]] std::optional<std::string> recordingsFolder();  // none: not given
[[nodiscard]] ChargeCurve readCharge(const std::string& path);
inline constexpr const char* recordedCharge = "/macbook-pro-16-m3-max.macos26.charge-curve.jsonl";

// The charge of the virtual Mac of that model from the same percentage, at the same moments.
[[nodiscard]] ChargeCurve modelledCharge(const ChargeCurve& recorded);

[[nodiscard]] double firstSecondsAt100(const ChargeCurve& curve);
[[nodiscard]] double firstSecondsFull(const ChargeCurve& curve);
// The lines before this one were recorded while the current was flat.
[[nodiscard]] std::size_t taperBegin(const ChargeCurve& recorded);

}  // namespace brisko::test
