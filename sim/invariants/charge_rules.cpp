// What state a pass ends in, whether the hardware is as the state says, and what becomes of the charge.
#include <algorithm>
#include <optional>
#include <string>

#include "base/process_flags.h"
#include "hardware/battery.h"
#include "sim/invariants/gate_keys.h"
#include "sim/invariants/premises.h"
#include "sim/invariants/rule.h"
#include "state/calibration_state.h"
#include "state/native_limit_state.h"
#include "state/sleep_state.h"
#include "state/tick_state.h"

namespace brisko::lab {
namespace {

using virtual_mac::Machine;

std::string percentText(std::int64_t percent) { return std::to_string(percent) + "%"; }

std::string stateText(const Pass& pass) {
  return std::string(stateName(pass.sample.state)) + " at " + percentText(pass.sample.pct);
}

bool isCalibrating() { return gCal.phase != CalPhase::idle; }

// ---------------------------------------------------------------------------------------------------------
// 2: the hardware is as the state says

// What drifted in a hold or a discharge is put right by the next pass. Nobody looks after a key that was
// undone behind an open gate, or after a cut that somebody else made, until the state changes.
class HardwareFollows final : public Rule {
 public:
  void passBegins(const Scene& scene, const Violated&) override {
    if (!state_) noteState(scene);  // it was read from the keys
  }

  // Before a sleep and when the app is gone the state changes outside of passes.
  void turnEnded(const Turn&, const Scene& scene, const Violated&) override {
    if (gState != state_) noteState(scene);
  }

  void passEnded(const Pass& pass, const Scene& scene, const Violated& violated) override {
    if (gState != pass.before) noteState(scene);
    if (!pass.complete || !gateHasKeys() || !keysObey(scene.machine(), *gGate)) return;

    const GateKeys keys = keysOf(*gGate, scene.machine());
    const bool undisturbed = disturbances_ == scene.circumstances().disturbances;
    const bool stops = gState != ChargeState::allow;
    const bool cuts = gState == ChargeState::discharge;
    if (keys.stopped() != stops && (stops || undisturbed)) {
      violated(2, std::string(keys.stopped() ? "charging is stopped in " : "charging is open in ") +
                      stateName(gState));
    }
    if (keys.cut != cuts && (cuts || undisturbed)) {
      violated(2, std::string(keys.cut ? "the adapter is cut in " : "the adapter is connected in ") +
                      stateName(gState));
    }
  }

 private:
  void noteState(const Scene& scene) {
    state_ = gState;
    disturbances_ = scene.circumstances().disturbances;
  }

  std::optional<ChargeState> state_;
  std::uint64_t disturbances_ = 0;  // so far when the present state was written
};

// ---------------------------------------------------------------------------------------------------------
// 5 to 8 and 10: the state that a pass ends in

// macOS's own limit is not driven before it is known what to give back, and the state stays as it was found.
bool stateIsDriven() { return !gateIsMacOSLimit() || gNativeBefore.has_value(); }

bool isMaintenanceWake() {
  const auto capabilities = systemCapabilities();
  return capabilities && (*capabilities & capabilityGraphics) == 0;
}

// What macOS does by itself in a maintenance wake is only told. A calibration drains in every kind of wake.
void judgeMaintenanceWake(const Pass& pass, const Violated& violated) {
  if (pass.sample.state != ChargeState::discharge || isCalibrating() || !gateHasKeys()) return;
  if (isMaintenanceWake()) violated(5, stateText(pass));
}

// Also when it is hot, and also after a discharge.
void judgeSwitchedOff(const Pass& pass, const Violated& violated) {
  if (pass.settings.enabled || isCalibrating() || !stateIsDriven()) return;
  if (pass.sample.state != ChargeState::allow) violated(6, stateText(pass));
}

void judgeWithoutAdapter(const Pass& pass, const Scene& scene, const Violated& violated) {
  if (adapterIsSeen(scene.machine()) || gThermalPaused || !stateIsDriven()) return;
  ChargeState expected = ChargeState::allow;
  if (isCalibrating()) {
    // A drain that has arrived is held where it is, adapter or not.
    const bool drained = gCal.phase == CalPhase::drain && pass.sample.pct <= pass.settings.calDrain;
    if (!drained || !gateHasKeys()) return;
    expected = ChargeState::hold;
  }
  if (pass.sample.state != expected) violated(7, stateText(pass));
}

// What the settings call hot is hot, whatever the daemon made of it.
bool isHot(const Pass& pass) {
  const Settings& settings = pass.settings;
  const bool reached = pass.sample.temp && *pass.sample.temp >= static_cast<double>(settings.thermalLimit);
  return gThermalPaused || (settings.thermal && gLastPlugged && reached);
}

// Judged is the state: a band below its lower edge charges all the same, and macOS may refuse its limit.
void judgeHeat(const Pass& pass, const Violated& violated) {
  if (!gateHasKeys() || !isHot(pass) || !(pass.settings.enabled || isCalibrating())) return;
  if (pass.sample.state != ChargeState::hold) violated(8, stateText(pass));
}

void judgeUpperBound(const Pass& pass, const Scene& scene, const Violated& violated) {
  const std::int64_t upper = bandAskedFor(pass.settings).upper;
  if (pass.sample.pct < upper || pass.sample.state != ChargeState::allow) return;
  if (!limitHadToHold(pass, scene.machine())) return;
  violated(10, stateText(pass) + " with a limit of " + percentText(upper));
}

class StateOfAPass final : public Rule {
 public:
  void passEnded(const Pass& pass, const Scene& scene, const Violated& violated) override {
    if (!pass.complete) return;
    judgeMaintenanceWake(pass, violated);
    judgeSwitchedOff(pass, violated);
    judgeWithoutAdapter(pass, scene, violated);
    judgeHeat(pass, violated);
    judgeUpperBound(pass, scene, violated);
  }
};

// ---------------------------------------------------------------------------------------------------------
// 9: the ceiling

// A stretch begins with a pass below the limit and lasts for as long as the daemon can see and act: it ends
// with other settings, with the adapter, with a sleep and with whatever disturbs keys or readings.
class Ceiling final : public Rule {
 public:
  void passEnded(const Pass& pass, const Scene& scene, const Violated&) override {
    if (!pass.complete) return;
    if (stretch_ && pass.settings == stretch_->settings && limitHadToHold(pass, scene.machine())) return;
    stretch_.reset();
    if (mayBegin(pass, scene)) begin(pass, scene);
  }

  void turnEnded(const Turn&, const Scene& scene, const Violated& violated) override {
    if (!stretch_) return;
    if (!goesOn(scene)) {
      stretch_.reset();
      return;
    }
    const double level = virtual_mac::level(scene.machine());
    if (level <= stretch_->ceiling) return;
    violated(9, "the charge rose to " + std::to_string(level) + "% with a limit of " +
                    percentText(bandAskedFor(stretch_->settings).upper));
  }

 private:
  struct Stretch {
    Settings settings;
    double ceiling = 0;  // percent
    double sleptSeconds = 0;
    double bootedAt = 0;
    std::uint64_t disturbances = 0;
    std::uint64_t leaps = 0;
  };

  static bool mayBegin(const Pass& pass, const Scene& scene) {
    const Machine& machine = scene.machine();
    // A band lets the controller decide, and a current that lingers or trickles obeys nobody.
    return limitHadToHold(pass, machine) && gGate->charge != ChargeKeys::firmwareBand &&
           keysObey(machine, *gGate) && machine.battery.trickleMA <= 0 && machine.battery.decaySeconds <= 0 &&
           pass.sample.pct < bandAskedFor(pass.settings).upper;
  }

  void begin(const Pass& pass, const Scene& scene) {
    const Machine& machine = scene.machine();
    const virtual_mac::Battery& battery = machine.battery;
    // The gauge tells the charge once a minute, so the daemon learns that late that the limit is reached.
    const double inAMinute = 100 * battery.maxChargeMA / 60 / (battery.fullMAh * battery.shownFull);
    const auto upper = static_cast<double>(bandAskedFor(pass.settings).upper);
    stretch_ = {.settings = pass.settings,
                .ceiling = upper + std::max(1.0, inAMinute),
                .sleptSeconds = machine.system.sleptSeconds,
                .bootedAt = machine.system.bootedAt,
                .disturbances = scene.circumstances().disturbances,
                .leaps = scene.circumstances().leaps};
  }

  [[nodiscard]] bool goesOn(const Scene& scene) const {
    const Machine& machine = scene.machine();
    const Circumstances& circumstances = scene.circumstances();
    return !gSleepPendingSince && !gDormant && machine.adapter.present && machine.powerSource.onAdapter &&
           machine.system.sleptSeconds == stretch_->sleptSeconds &&
           machine.system.bootedAt == stretch_->bootedAt &&
           circumstances.disturbances == stretch_->disturbances && circumstances.leaps == stretch_->leaps;
  }

  std::optional<Stretch> stretch_;
};

// ---------------------------------------------------------------------------------------------------------
// 11: hysteresis

bool sameChoices(const Settings& one, const Settings& other) {
  return one.limit == other.limit && one.enabled == other.enabled && one.discharge == other.discharge;
}

// A spell on battery does not open the band again, a pass without a power reading may.
class Hysteresis final : public Rule {
 public:
  void passEnded(const Pass& pass, const Scene& scene, const Violated& violated) override {
    if (!pass.complete && gSleepPendingSince) return;
    const bool changed = noteChoices(pass);
    if (!limitWasInForce(pass, scene.machine())) {
      reached_ = false;
      return;
    }
    const Bounds band = bandAskedFor(pass.settings);
    const std::int64_t pct = pass.sample.pct;
    if (changed || pct <= band.lower) reached_ = false;
    if (reached_ && pass.sample.state == ChargeState::allow && limitHadToHold(pass, scene.machine())) {
      violated(11, stateText(pass) + " in a band of " + std::to_string(band.lower) + "–" +
                       percentText(band.upper) + " whose upper end had been reached");
    }
    if (!changed && pct >= band.upper) reached_ = true;
  }

 private:
  // True when they differ from those of the pass before; also when that was cut short, for it took note of
  // its own. The first pass has nothing to differ from.
  bool noteChoices(const Pass& pass) {
    const bool changed = !first_ && !(settings_ && pass.complete && sameChoices(*settings_, pass.settings));
    first_ = false;
    settings_.reset();
    if (pass.complete) settings_ = pass.settings;
    return changed;
  }

  bool first_ = true;
  std::optional<Settings> settings_;  // of the pass before, unless it was cut short
  bool reached_ = false;
};

}  // namespace

void addChargeRules(Rules& rules) {
  rules.push_back(std::make_unique<HardwareFollows>());
  rules.push_back(std::make_unique<StateOfAPass>());
  rules.push_back(std::make_unique<Ceiling>());
  rules.push_back(std::make_unique<Hysteresis>());
}

}  // namespace brisko::lab
