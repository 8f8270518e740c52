// Rules about the state that a tick ends in, whether the hardware matches the state, and how the charge
// develops.
#include <algorithm>
#include <optional>
#include <string>

#include "base/process_flags.h"
#include "hardware/battery.h"
#include "policy/night_watch.h"
#include "sim/invariants/gate_keys.h"
#include "sim/invariants/observed.h"
#include "sim/invariants/preconditions.h"
#include "sim/invariants/rule.h"
#include "state/calibration_state.h"
#include "state/native_limit_state.h"
#include "state/sleep_state.h"
#include "state/tick_state.h"

namespace brisko::lab {
namespace {

using virtual_mac::Machine;

std::string stateText(const TickRecord& tick) {
  return std::string(stateName(tick.sample.state)) + " at " + percentText(tick.sample.pct);
}

bool isCalibrating() { return gCal.phase != CalPhase::idle; }

// --- The hardware matches the state

constexpr Invariant hardwareFollowsState{2,
                                         "After a tick the hardware is as the state says: allow lets charge, "
                                         "hold stops the charge, discharge cuts the adapter too."};

// Drift in a hold or a discharge is corrected by the next tick. A key that was undone while the gate is open,
// or a cut that somebody else made, is left alone until the state changes.
class HardwareFollows final : public Rule {
 public:
  void tickBegins(const Observation& observation, const Violated&) override {
    if (!state_) noteState(observation);  // it was read from the keys at the start
    disturbancesBefore_ = observation.disturbances().disturbanceCount;
  }

  // Before a sleep, and when the app is deleted, the state changes outside of ticks.
  void iterationEnded(const LoopIteration&, const Observation& observation, const Violated&) override {
    if (gState != state_) noteState(observation);
  }

  void tickEnded(const TickRecord& tick, const Observation& observation, const Violated& violated) override {
    if (gState != tick.before) {
      noteState(observation);
      // A write of the tick itself may have failed.
      disturbanceCount_ = disturbancesBefore_;
    }
    if (!tick.complete || !gateHasKeys() || !keysObey(observation.machine(), *gGate)) return;

    const GateKeys keys = keysOf(*gGate, observation.machine());
    const bool undisturbed = disturbanceCount_ == observation.disturbances().disturbanceCount;
    const bool stops = gState != ChargeState::allow;
    const bool cuts = gState == ChargeState::discharge;
    if (keys.stopped() != stops && (stops || undisturbed)) {
      violated(hardwareFollowsState,
               std::string(keys.stopped() ? "charging is stopped in " : "charging is open in ") +
                   stateName(gState));
    }
    if (keys.cut != cuts && (cuts || undisturbed)) {
      violated(hardwareFollowsState,
               std::string(keys.cut ? "the adapter is cut in " : "the adapter is connected in ") +
                   stateName(gState));
    }
  }

 private:
  void noteState(const Observation& observation) {
    state_ = gState;
    disturbanceCount_ = observation.disturbances().disturbanceCount;
  }

  std::optional<ChargeState> state_;
  std::uint64_t disturbanceCount_ = 0;    // at the time when the present state was written
  std::uint64_t disturbancesBefore_ = 0;  // … when the tick began
};

// --- The state that a tick ends in

// macOS's own limit is not driven before the earlier limit is known, so the state stays as it was found.
bool stateIsDriven() { return !gateIsMacOSLimit() || gNativeBefore.has_value(); }

bool isMaintenanceWake() {
  const auto capabilities = systemCapabilities();
  return capabilities && (*capabilities & capabilityGraphics) == 0;
}

constexpr Invariant noDischargeInMaintenanceWake{
    5, "Outside of a calibration no tick ends in discharge during a maintenance wake."};

// What macOS does by itself in a maintenance wake is only logged. A calibration drains in every kind of wake.
void checkMaintenanceWake(const TickRecord& tick, const Violated& violated) {
  if (tick.sample.state != ChargeState::discharge || isCalibrating() || !gateHasKeys()) return;
  if (isMaintenanceWake()) violated(noDischargeInMaintenanceWake, stateText(tick));
}

constexpr Invariant openWhenSwitchedOff{
    6, "Switched off means open: without a calibration the tick ends in allow."};

// Holds also when the battery is hot, and also after a discharge.
void checkSwitchedOff(const TickRecord& tick, const Violated& violated) {
  if (tick.settings.enabled || isCalibrating() || !stateIsDriven()) return;
  if (tick.sample.state != ChargeState::allow) violated(openWhenSwitchedOff, stateText(tick));
}

constexpr Invariant openWithoutAdapter{
    7,
    "Without an adapter a tick ends in allow, unless heat, a calibration or a guarded night says otherwise."};

void checkWithoutAdapter(const TickRecord& tick, const Observation& observation, const Violated& violated) {
  if (adapterIsSeen(observation.machine()) || gThermalPaused || !stateIsDriven()) return;
  ChargeState expected = ChargeState::allow;
  if (isCalibrating()) {
    // A drain that has reached its target is held there, with or without the adapter.
    const bool drained = gCal.phase == CalPhase::drain && tick.sample.pct <= tick.settings.calDrain;
    if (!drained || !gateHasKeys()) return;
    expected = ChargeState::hold;
  }
  // The guard leaves charging stopped until the full wake.
  if (isNight() && tick.sample.state == ChargeState::hold) return;
  if (tick.sample.state != expected) violated(openWithoutAdapter, stateText(tick));
}

constexpr Invariant heldWhenHot{8, "A battery that is too hot is held."};

// The settings decide what is hot, whatever the daemon concluded.
bool isHot(const TickRecord& tick) {
  const Settings& settings = tick.settings;
  const bool reached = tick.sample.temp && *tick.sample.temp >= static_cast<double>(settings.thermalLimit);
  return gThermalPaused || (settings.thermal && gLastPlugged && reached);
}

// Only the state is checked: below its lower edge a firmware band charges all the same, and macOS may refuse
// its limit.
void checkHeat(const TickRecord& tick, const Violated& violated) {
  if (!gateHasKeys() || !isHot(tick) || !(tick.settings.enabled || isCalibrating())) return;
  if (tick.sample.state != ChargeState::hold) violated(heldWhenHot, stateText(tick));
}

constexpr Invariant upperBound{10, "No tick ends in allow at or above the upper bound."};

void checkUpperBound(const TickRecord& tick, const Observation& observation, const Violated& violated) {
  const std::int64_t upper = bandAskedFor(tick.settings).upper;
  if (tick.sample.pct < upper || tick.sample.state != ChargeState::allow) return;
  if (!limitHadToHold(tick, observation.machine())) return;
  violated(upperBound, stateText(tick) + " with a limit of " + percentText(upper));
}

class StateAfterATick final : public Rule {
 public:
  void tickEnded(const TickRecord& tick, const Observation& observation, const Violated& violated) override {
    if (!tick.complete) return;
    checkMaintenanceWake(tick, violated);
    checkSwitchedOff(tick, violated);
    checkWithoutAdapter(tick, observation, violated);
    checkHeat(tick, violated);
    checkUpperBound(tick, observation, violated);
  }
};

// --- The ceiling

constexpr Invariant ceiling{9, "The charge never rises more than one percent above the limit."};

// An interval begins with a tick below the limit and lasts for as long as the daemon can see and act. It ends
// when the settings or the adapter change, with a sleep, and with anything that disturbs keys or readings.
class Ceiling final : public Rule {
 public:
  void tickEnded(const TickRecord& tick, const Observation& observation, const Violated&) override {
    if (!tick.complete) return;
    if (interval_ && tick.settings == interval_->settings && limitHadToHold(tick, observation.machine()))
      return;
    interval_.reset();
    if (mayBegin(tick, observation)) begin(tick, observation);
  }

  void iterationEnded(const LoopIteration&, const Observation& observation,
                      const Violated& violated) override {
    if (!interval_) return;
    if (!continues(observation)) {
      interval_.reset();
      return;
    }
    const double level = virtual_mac::level(observation.machine());
    if (level <= interval_->ceiling) return;
    violated(ceiling, "the charge rose to " + std::to_string(level) + "% with a limit of " +
                          percentText(bandAskedFor(interval_->settings).upper));
  }

 private:
  struct Interval {
    Settings settings;
    double ceiling = 0;  // percent
    double sleptSeconds = 0;
    double bootedAt = 0;
    std::uint64_t disturbanceCount = 0;
    std::uint64_t jumps = 0;
  };

  static bool mayBegin(const TickRecord& tick, const Observation& observation) {
    const Machine& machine = observation.machine();
    // In a band the controller decides, and a lingering or trickling current does not follow any order.
    return limitHadToHold(tick, machine) && gGate->charge != ChargeKeys::firmwareBand &&
           keysObey(machine, *gGate) && machine.battery.trickleMA <= 0 && machine.battery.decaySeconds <= 0 &&
           tick.sample.pct < bandAskedFor(tick.settings).upper;
  }

  void begin(const TickRecord& tick, const Observation& observation) {
    const Machine& machine = observation.machine();
    const virtual_mac::Battery& battery = machine.battery;
    // The gauge publishes the charge once a minute, so the daemon learns up to a minute late that the limit
    // is reached.
    const auto upper = static_cast<double>(bandAskedFor(tick.settings).upper);
    constexpr double belowLimit = 2;  // percent: more than the last minute adds
    const double inAMinute = mostBetweenReadings(battery, upper - belowLimit);
    interval_ = {.settings = tick.settings,
                 .ceiling = upper + std::max(1.0, inAMinute),
                 .sleptSeconds = machine.system.sleptSeconds,
                 .bootedAt = machine.system.bootedAt,
                 .disturbanceCount = observation.disturbances().disturbanceCount,
                 .jumps = observation.disturbances().jumps};
  }

  [[nodiscard]] bool continues(const Observation& observation) const {
    const Machine& machine = observation.machine();
    const Disturbances& disturbances = observation.disturbances();
    return !gSleepPendingSince && !gDormant && machine.adapter.present && machine.powerSource.onAdapter &&
           machine.system.sleptSeconds == interval_->sleptSeconds &&
           machine.system.bootedAt == interval_->bootedAt &&
           disturbances.disturbanceCount == interval_->disturbanceCount &&
           disturbances.jumps == interval_->jumps;
  }

  std::optional<Interval> interval_;
};

// --- Hysteresis

constexpr Invariant hysteresis{
    11, "After the target was reached no tick ends in allow before the charge has fallen to the floor."};

bool sameChoices(const Settings& one, const Settings& other) {
  return one.limit == other.limit && one.enabled == other.enabled && one.discharge == other.discharge;
}

// Time on battery does not open the band again; a tick without a power reading may.
class Hysteresis final : public Rule {
 public:
  void tickEnded(const TickRecord& tick, const Observation& observation, const Violated& violated) override {
    if (!tick.complete && gSleepPendingSince) return;
    const bool changed = noteChoices(tick);
    if (!limitWasInForce(tick, observation.machine())) {
      reached_ = false;
      return;
    }
    const Bounds band = bandAskedFor(tick.settings);
    const std::int64_t pct = tick.sample.pct;
    if (changed || pct <= band.lower) reached_ = false;
    if (reached_ && tick.sample.state == ChargeState::allow && limitHadToHold(tick, observation.machine())) {
      violated(hysteresis, stateText(tick) + " in a band of " + std::to_string(band.lower) + "–" +
                               percentText(band.upper) + " whose upper end had been reached");
    }
    if (!changed && pct >= band.upper) reached_ = true;
  }

 private:
  // Returns true when the choices differ from those of the tick before, even if that tick ended early, for it
  // recorded its own. The first tick has nothing to differ from.
  bool noteChoices(const TickRecord& tick) {
    const bool changed = !first_ && !(settings_ && tick.complete && sameChoices(*settings_, tick.settings));
    first_ = false;
    settings_.reset();
    if (tick.complete) settings_ = tick.settings;
    return changed;
  }

  bool first_ = true;
  std::optional<Settings> settings_;  // of the tick before, unless it ended early
  bool reached_ = false;
};

}  // namespace

void addChargeRules(Rules& rules) {
  rules.push_back(std::make_unique<HardwareFollows>());
  rules.push_back(std::make_unique<StateAfterATick>());
  rules.push_back(std::make_unique<Ceiling>());
  rules.push_back(std::make_unique<Hysteresis>());
}

}  // namespace brisko::lab
