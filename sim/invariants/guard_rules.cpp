// Rules about what the guards promise. Each applies only while its guard is on.
#include <algorithm>
#include <deque>
#include <optional>
#include <string>

#include "base/options.h"
#include "base/process_flags.h"
#include "base/settings.h"
#include "hardware/battery.h"
#include "platform/system_power.h"
#include "sim/invariants/observed.h"
#include "sim/invariants/preconditions.h"
#include "sim/invariants/rule.h"
#include "state/calibration_state.h"

namespace brisko::lab {
namespace {

using virtual_mac::JournalEntry;
using virtual_mac::Machine;

// ---------------------------------------------------------------------------------------------------------
// Nights

constexpr Invariant nightCeiling{
    34, "With the guard \"night\" no night ends more than two percent above the limit."};

// A night is checked from the announcement of the sleep to the full wake. It is left alone from the moment on
// at which something happens that the daemon cannot see asleep: keys, readings or the clock disturbed, the
// charge set from outside, new settings, an adapter that comes, goes or is exchanged without a wake, wakes
// refused.
class NightCeiling final : public Rule {
 public:
  void iterationEnded(const LoopIteration& iteration, const Observation& observation,
                      const Violated& violated) override {
    if (!gGuards.night) return;
    if (night_) check(observation, violated);
    forEntries(observation, iteration.journalFrom, iteration.journalTo, [&](const JournalEntry& entry) {
      if (isReceived(entry, platform::PowerMessage::systemWillSleep)) begin(observation);
      if (isReceived(entry, platform::PowerMessage::systemHasPoweredOn)) night_.reset();
      return true;
    });
  }

  void onResume(const Observation& observation) override {
    if (night_ && !continues(observation)) night_.reset();
  }

 private:
  struct Night {
    Settings settings;
    double ceiling = 0;  // percent
    double bootedAt = 0;
    std::uint64_t disturbanceCount = 0;
    std::uint64_t jumps = 0;
    double clockSteppedAt = never;
    double adapterChangedAt = never;
    bool plugged = false;
    double watts = 0;
  };

  void begin(const Observation& observation) {
    night_.reset();
    const Machine& machine = observation.machine();
    const std::optional<Settings> settings = readConfig(gConfigPath);
    if (!settings || !mayBegin(*settings, machine)) return;
    const Disturbances& disturbances = observation.disturbances();
    night_ = {.settings = *settings,
              .ceiling = ceilingOf(bandAskedFor(*settings), machine),
              .bootedAt = machine.system.bootedAt,
              .disturbanceCount = disturbances.disturbanceCount,
              .jumps = disturbances.jumps,
              .clockSteppedAt = disturbances.clockSteppedAt,
              .adapterChangedAt = disturbances.adapterChangedAt,
              .plugged = machine.adapter.present,
              .watts = machine.adapter.watts};
  }

  // Just below the band, as the gauge shows it, charging has to continue. With little of its capacity left
  // the battery may leap over the band and more before the next reading.
  static double ceilingOf(const Bounds& band, const Machine& machine) {
    constexpr double tolerated = 2;
    constexpr double roundedAway = 0.5;
    const double belowBand = static_cast<double>(band.lower) - roundedAway;
    const double afterALeap = belowBand + mostBetweenReadings(machine.battery, belowBand);
    const double most = std::max(static_cast<double>(band.upper), virtual_mac::level(machine)) + tolerated;
    return std::max(most, afterALeap);
  }

  static bool mayBegin(const Settings& settings, const Machine& machine) {
    const virtual_mac::Battery& battery = machine.battery;
    return gateHasKeys() && !gDormant && settings.enabled && !settings.topUp &&
           gCal.phase == CalPhase::idle && !settings.calibrate && keysObey(machine, *gGate) &&
           readingsAreTrue(machine) && battery.trickleMA <= 0 && battery.decaySeconds <= 0 &&
           grantsWakes(machine) && machine.system.capabilitiesReadable;
  }

  // Only root may schedule a wake.
  static bool grantsWakes(const Machine& machine) {
    return machine.sleep.scheduleStatus == 0 && machine.system.pretendedUserId == 0;
  }

  [[nodiscard]] bool continues(const Observation& observation) const {
    const Machine& machine = observation.machine();
    const Disturbances& disturbances = observation.disturbances();
    const bool adapterChanged = disturbances.adapterChangedAt != night_->adapterChangedAt;
    const bool exchanged =
        machine.adapter.present == night_->plugged && machine.adapter.watts != night_->watts;
    const bool unseen = adapterChanged && (exchanged || !machine.sleep.adapterWakes);
    return !gDormant && !unseen && grantsWakes(machine) && machine.system.bootedAt == night_->bootedAt &&
           disturbances.jumps == night_->jumps && disturbances.disturbanceCount == night_->disturbanceCount &&
           disturbances.clockSteppedAt == night_->clockSteppedAt &&
           readConfig(gConfigPath) == night_->settings;
  }

  void check(const Observation& observation, const Violated& violated) {
    if (!continues(observation)) return night_.reset();
    const Machine& machine = observation.machine();
    night_->plugged = machine.adapter.present;
    night_->watts = machine.adapter.watts;
    night_->adapterChangedAt = observation.disturbances().adapterChangedAt;
    const double level = virtual_mac::level(machine);
    if (level <= night_->ceiling) return;
    violated(nightCeiling, "the charge rose to " + std::to_string(level) + "% asleep, with a limit of " +
                               percentText(bandAskedFor(night_->settings).upper));
  }

  std::optional<Night> night_;
};

// ---------------------------------------------------------------------------------------------------------
// Swinging

constexpr Invariant fewChanges{
    35, "With the guard \"swing\" the state changes at most 20 times an hour by itself."};

// By itself: nothing happened in the timeline, no key drifted, and no trickle lifts the charge over the limit
// again each time that it was discharged to it.
class FewChanges final : public Rule {
 public:
  void iterationEnded(const LoopIteration& iteration, const Observation& observation,
                      const Violated& violated) override {
    if (!gGuards.swing || !applies(observation)) return changes_.clear();
    if (observation.disturbances().actionCount != actionCount_) changes_.clear();
    actionCount_ = observation.disturbances().actionCount;
    for (const std::string& line : iteration.lines) note(line, iteration.at);
    while (!changes_.empty() && iteration.at - changes_.front() > anHour) changes_.pop_front();
    if (changes_.size() <= most) return;
    if (leapsOverTheBand(observation.machine())) return changes_.clear();
    violated(fewChanges, std::to_string(changes_.size()) + " changes of state within an hour");
  }

 private:
  static constexpr double anHour = 3600;
  static constexpr std::size_t most = 20;

  static bool applies(const Observation& observation) {
    const Machine& machine = observation.machine();
    const virtual_mac::SmcKey* adapter = virtual_mac::findKey(machine, virtual_mac::keyCode("AC-W"));
    constexpr double latest = 120;  // seconds
    return gateHasKeys() && keysObey(machine, *gGate) && machine.battery.installed &&
           machine.battery.trickleMA <= 0 && machine.powerSource.lagSeconds <= latest &&
           machine.powerSourceFault == virtual_mac::PowerSourceFault::none &&
           (adapter == nullptr || !adapter->scripted);
  }

  // A battery with little of its capacity left goes from below the band to above it between two readings of
  // the gauge, so a band of a point or two cannot be kept.
  static bool leapsOverTheBand(const Machine& machine) {
    constexpr double gaugeMinutes = 1;
    constexpr double bothSides = 2;  // percent
    const std::optional<Settings> settings = readConfig(gConfigPath);
    if (!settings) return false;
    const Bounds band = bandAskedFor(*settings);
    const double leap = 100 * machine.battery.maxChargeMA / machine.battery.fullMAh * gaugeMinutes / 60;
    return leap > static_cast<double>(band.upper - band.lower) + bothSides;
  }

  void note(const std::string& line, double at) {
    if (messageStartsWith(line, "→ state: ")) changes_.push_back(at);
    const bool drifted = messageStartsWith(line, "gate found open") || messageStartsWith(line, "adapter cut");
    if (drifted) changes_.clear();
  }

  std::deque<double> changes_;  // machine time
  std::uint64_t actionCount_ = 0;
};

}  // namespace

void addGuardRules(Rules& rules) {
  rules.push_back(std::make_unique<NightCeiling>());
  rules.push_back(std::make_unique<FewChanges>());
}

}  // namespace brisko::lab
