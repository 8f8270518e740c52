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

// What limits the speed of charging. Where a reading is missing, the most that is known of any Mac is
// assumed.
struct ChargerReadings {
  std::optional<std::int64_t> adapterWatts = std::nullopt;  // also none without an adapter
  std::optional<std::int64_t> voltageMV = std::nullopt;     // of the battery
  std::optional<std::int64_t> designMAh = std::nullopt;
  std::optional<std::int64_t> fullMAh = std::nullopt;
};
// The highest speed that the adapter's watts and this battery allow.
[[nodiscard]] double fastestSpeed(const ChargerReadings& readings);

// What was gained since the last wake was planned, while charging was open on the same adapter. A Mac that is
// awake may use all that a weak adapter delivers, and more, so neither the time awake counts nor what was
// lost in it. If they did, the Mac would charge faster asleep than expected.
struct Gain {
  std::int64_t points = 0;  // by readings that are rounded
  double minutes = 0;       // asleep
};
// The highest speed to expect: the one observed, if it was observed for long enough; never more than the
// fastest.
[[nodiscard]] double expectedSpeed(double fastest, const std::optional<Gain>& gain);

// Minutes in which the charge surely stays below the limit, with a margin. Below 0 when it may be there.
[[nodiscard]] double minutesBelow(std::int64_t limit, std::int64_t pct, double speed);

// A plan holds until its wake, as long as charging was not stopped and the adapter is the one that it was
// made for. It does not hold if the charge has since risen faster than any charger allows: then it was made
// from a reading that was taken before the sleep.
struct NightPlan {
  double wakeAt = 0;     // wall clock
  double plannedAt = 0;  // wall clock
  double uptime = 0;     // at that moment: seconds awake since the start of the Mac
  std::int64_t pct = 0;  // that it was made from
  std::optional<std::int64_t> adapterWatts = std::nullopt;
  bool onAdapter = false;
  bool undisturbed = true;     // charging was not stopped since it was made, nor was the Mac fully awake
  std::int64_t lastPct = pct;  // of the last reading
  std::int64_t lost = 0;       // points, from one reading to the next
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
// To be called with each reading.
void noteLoss(NightPlan& plan, std::int64_t pct);

// The gain since the plan was made; none if charging was stopped meanwhile, the Mac was fully awake, the
// adapter changed, or the clock was set back.
[[nodiscard]] std::optional<Gain> gainSince(const NightPlan& plan, const NightReading& reading);

// What to do when a sleep is announced, also without an adapter, because the Mac may be plugged in while it
// sleeps. A limit of 100 does not limit anything.
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

// The state in which a tick of the night ends. Charging that was stopped stays stopped without an adapter,
// and with one until the charge is below the band.
struct NightStateInputs {
  ChargeState wanted = ChargeState::allow;  // by the ordinary decision
  ChargeState state = ChargeState::allow;   // in force
  std::int64_t pct = 0;
  std::int64_t lower = 75;
  bool onAdapter = true;
};
[[nodiscard]] ChargeState stateAtNight(const NightStateInputs& inputs);

// The most wakes that the daemon schedules in one night, and how many of them may be without an adapter. Each
// of those costs the battery a little.
inline constexpr int mostWakes = 10;
inline constexpr int mostBatteryWakes = 4;

// How long a dark wake may be held open in all until the limit is reached, seconds.
inline constexpr double longestStay = 300;

}  // namespace brisko
