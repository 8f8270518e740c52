// policy/night_rules.h
// The rules that keep a sleeping Mac from charging past its limit. Asleep nothing watches the charge, so each
// sleep that begins with charging open is divided by scheduled wakes: each comes before the charge can have
// reached the limit, and the last one stops charging.
//
// Terms: a night lasts from the announcement of a sleep to the next full wake, whatever the time of day. The
// speed is in percentage points a minute, as people see the percentage.
#pragma once

#include <cstdint>
#include <optional>

#include "policy/charge_bounds.h"
#include "state/charge_state_record.h"

namespace brisko {

// What a charger may be capable of. Missing readings count as the most that is known of any Mac.
struct ChargerReadings {
  std::optional<std::int64_t> adapterWatts = std::nullopt;  // none too while no adapter is there
  std::optional<std::int64_t> voltageMV = std::nullopt;     // of the battery
  std::optional<std::int64_t> designMAh = std::nullopt;
  std::optional<std::int64_t> fullMAh = std::nullopt;
};
// The speed that no charge exceeds: what the adapter's watts and this battery allow.
[[nodiscard]] double fastestSpeed(const ChargerReadings& readings);

// What was gained since the last wake was planned, while charging was open on the same adapter. A Mac that is
// awake may use most of what a weak adapter delivers, so the time awake counts only as long as a stay may
// last: otherwise the Mac would charge faster asleep than expected.
struct Gain {
  std::int64_t points = 0;  // by two readings, each rounded
  double minutes = 0;
};
// The speed to expect at most: the one seen, if that was long enough, and never more than the fastest.
[[nodiscard]] double expectedSpeed(double fastest, const std::optional<Gain>& gain);

// Minutes in which the charge surely stays below the limit, with a margin. Below 0 when it may be there.
[[nodiscard]] double minutesBelow(std::int64_t limit, std::int64_t pct, double speed);

// A plan holds as long as its wake is to come, charging was not stopped since, the adapter is the one that it
// was made for, and the charge has not risen faster since than any charger could: then it was made from a
// reading of before the sleep.
struct NightPlan {
  double wakeAt = 0;     // wall clock
  double plannedAt = 0;  // wall clock
  double uptime = 0;     // at that moment: seconds awake since the start of the Mac
  std::int64_t pct = 0;  // that it was made from
  std::optional<std::int64_t> adapterWatts = std::nullopt;
  bool onAdapter = false;
  bool charging = true;  // since it was made: not stopped meanwhile
  bool operator==(const NightPlan&) const = default;
};
struct NightReading {
  double now = 0;     // wall clock
  double uptime = 0;  // seconds awake since the start of the Mac
  std::int64_t pct = 0;
  std::optional<std::int64_t> adapterWatts = std::nullopt;
  bool onAdapter = false;
  double fastest = 0;
};
[[nodiscard]] bool planHolds(const NightPlan& plan, const NightReading& reading);

// The gain since the plan was made; none if charging was stopped meanwhile, the adapter changed, or the clock
// was set back.
[[nodiscard]] std::optional<Gain> gainSince(const NightPlan& plan, const NightReading& reading);

// What to do when a sleep is announced. Without an adapter too, because the Mac may be plugged in asleep. A
// limit of 100 does not limit anything.
enum class BedtimePlan : std::uint8_t {
  leaveAlone,
  close,     // at or above the lower bound: stop charging now
  takeStep,  // below it: decideNight()
};
struct BedtimeInputs {
  std::int64_t pct = 0;
  Bounds band;
  bool onAdapter = true;
  bool limited = true;  // not switched off, nor overruled by a Top Up or a calibration
};
[[nodiscard]] BedtimePlan planBedtime(const BedtimeInputs& inputs);

enum class NightStep : std::uint8_t {
  wake,       // schedule a wake in `minutes`
  stayAwake,  // the limit is so near that it is waited for, on the adapter only
  close,      // stop charging until the next full wake
};
struct NightDecision {
  NightStep step = NightStep::close;
  std::int64_t minutes = 0;
  bool operator==(const NightDecision&) const = default;
};
struct NightInputs {
  std::int64_t pct = 0;
  Bounds band;
  bool onAdapter = true;
  double speed = 0;          // to expect at most
  int wakesLeft = 0;         // of this night
  int batteryWakesLeft = 0;  // … that may be spent without an adapter
  bool firstOnBattery = true;
  bool mayStayAwake = false;
};
// What to do at a moment of the night with charging open below the limit, and no plan that holds.
[[nodiscard]] NightDecision decideNight(const NightInputs& inputs);

// The state that a tick of the night ends in. Charging that was stopped stays so without an adapter, and with
// one as long as the charge is not below the band.
struct NightStateInputs {
  ChargeState wanted = ChargeState::allow;  // by the ordinary decision
  ChargeState state = ChargeState::allow;   // in force
  std::int64_t pct = 0;
  std::int64_t lower = 75;
  bool onAdapter = true;
};
[[nodiscard]] ChargeState stateAtNight(const NightStateInputs& inputs);

// The most wakes of ours in one night, and those of them without an adapter: each of them costs the battery
// a little.
inline constexpr int mostWakes = 10;
inline constexpr int mostBatteryWakes = 4;

// How long a dark wake may be held open in all until the limit is reached, seconds.
inline constexpr double longestStay = 300;

}  // namespace brisko
