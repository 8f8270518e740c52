// state/calibration_state.h
// The calibration cycle's record, as the tick and the status read it. Times are wall clock, seconds since
// 1970.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace brisko {

// In the order of the cycle.
enum class CalPhase : std::uint8_t {
  idle,
  fill,     // charging to 100 %
  drain,    // down to the drain target
  refill,   // to 100 % again
  soak,     // resting at 100 % on the adapter
  restore,  // back down to the limit
};

[[nodiscard]] constexpr const char* phaseName(CalPhase phase) {
  switch (phase) {
    case CalPhase::fill:
      return "fill";
    case CalPhase::drain:
      return "drain";
    case CalPhase::refill:
      return "refill";
    case CalPhase::soak:
      return "soak";
    case CalPhase::restore:
      return "restore";
    case CalPhase::idle:
      break;
  }
  return "idle";
}

// The gauge's values for the battery. A field is none when the battery does not report it.
struct GaugeReading {
  std::optional<std::int64_t> raw = std::nullopt;      // mAh, the capacity as measured
  std::optional<std::int64_t> nominal = std::nullopt;  // mAh, the capacity as published
  std::optional<std::int64_t> design = std::nullopt;   // mAh, when it was new
  std::optional<std::int64_t> cycles = std::nullopt;
  bool operator==(const GaugeReading&) const = default;
};

// A finished run, from the readings before and after it.
struct CalRun {
  double at = 0;  // when it finished
  std::optional<std::int64_t> beforeRaw = std::nullopt;
  std::optional<std::int64_t> afterRaw = std::nullopt;
  std::optional<std::int64_t> beforeNominal = std::nullopt;
  std::optional<std::int64_t> afterNominal = std::nullopt;
  std::optional<std::int64_t> design = std::nullopt;
  std::optional<std::int64_t> cyclesBefore = std::nullopt;
  std::optional<std::int64_t> cyclesAfter = std::nullopt;
  bool operator==(const CalRun&) const = default;
};

// Why a run was stopped early, and in which phase.
struct CalFailure {
  std::string reason = {};
  CalPhase phase = CalPhase::idle;
  bool operator==(const CalFailure&) const = default;
};

struct CalibrationState {
  CalPhase phase = CalPhase::idle;
  double startedAt = 0;                               // of the run
  double phaseSince = 0;                              // start of the phase
  double soakBanked = 0;                              // seconds of soak counted so far
  double lastTick = 0;                                // when the cycle last advanced; 0: not since the start
  std::optional<GaugeReading> before = std::nullopt;  // taken at the start of the run
  std::vector<CalRun> runs = {};                      // oldest first
  std::optional<CalFailure> lastFailure = std::nullopt;
  bool operator==(const CalibrationState&) const = default;
};

inline CalibrationState gCal;

}  // namespace brisko
