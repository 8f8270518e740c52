#include "policy/night_watch.h"

#include <algorithm>
#include <optional>
#include <string>
#include <vector>

#include "base/log.h"
#include "base/options.h"
#include "hardware/adapter.h"
#include "hardware/battery.h"
#include "hardware/charge_state.h"
#include "hardware/scheduled_wake.h"
#include "platform/clock.h"
#include "platform/system_power.h"
#include "policy/night_rules.h"

namespace brisko {
namespace {

constexpr double sameNight = 60;            // seconds of full wake that do not end a night
constexpr double nightSeconds = 12 * 3600;  // wakes are counted over the last twelve hours

bool gNight = false;
std::optional<double> gAwakeSince;  // uptime of the last full wake

std::optional<NightPlan> gPlan;  // the last one, also when its wake has come

struct PastWake {
  double date;  // wall clock
  bool onBattery;
};
std::vector<PastWake> gPastWakes;  // of ours, that came

struct Stay {
  platform::SleepAssertion assertion = 0;
  double since = 0;    // uptime
  double seconds = 0;  // of earlier stays in this night
  bool refused = false;
};
Stay gStay;

// ---------------------------------------------------------------------------------------------------------
// Wakes

// A wake whose date has passed is no longer to come, and counts.
void notePastWake(double now) {
  if (!gScheduledWake || *gScheduledWake > now) return;
  gPastWakes.push_back({.date = *gScheduledWake, .onBattery = gPlan && !gPlan->onAdapter});
  cancelScheduledWake();
}

void forgetOldWakes(double now) {
  std::erase_if(gPastWakes,
                [now](const PastWake& wake) { return wake.date > now || now - wake.date > nightSeconds; });
}

int batteryWakes() {
  return static_cast<int>(std::count_if(gPastWakes.begin(), gPastWakes.end(),
                                        [](const PastWake& wake) { return wake.onBattery; }));
}

// ---------------------------------------------------------------------------------------------------------
// Staying awake

double stayedSeconds() {
  return gStay.seconds + (gStay.assertion != 0 ? platform::uptime() - gStay.since : 0);
}

void endStay() {
  if (gStay.assertion == 0) return;
  gStay.seconds = stayedSeconds();
  platform::releaseSleepAssertion(gStay.assertion);
  gStay.assertion = 0;
}

// Returns false when the system refuses.
bool stayAwake(std::int64_t limit) {
  if (gStay.assertion != 0) return true;
  gStay.assertion = platform::preventSystemSleep("The charge is about to reach its limit");
  gStay.since = platform::uptime();
  gStay.refused = gStay.assertion == 0;
  if (!gStay.refused) log("staying awake until the charge reaches " + std::to_string(limit) + "%");
  return !gStay.refused;
}

// ---------------------------------------------------------------------------------------------------------
// A step

NightReading readNight(std::int64_t pct) {
  NightReading reading{
      .now = platform::wallNow(), .uptime = platform::uptime(), .pct = pct, .onAdapter = adapterPresent()};
  ChargerReadings charger;
  if (const platform::SharedDictionary properties = SmartBattery::properties()) {
    if (reading.onAdapter) reading.adapterWatts = SmartBattery::adapterWatts(*properties);
    charger = {.adapterWatts = reading.adapterWatts,
               .voltageMV = SmartBattery::voltageMV(*properties),
               .designMAh = SmartBattery::mAh(*properties, "DesignCapacity"),
               .fullMAh = SmartBattery::mAh(*properties, "AppleRawMaxCapacity")};
    if (!charger.fullMAh) charger.fullMAh = SmartBattery::mAh(*properties, "FullChargeCapacity");
  }
  reading.fastest = fastestSpeed(charger);
  if (gPlan) noteLoss(*gPlan, pct);
  return reading;
}

NightInputs inputsFor(const NightReading& reading, const Bounds& band) {
  const std::optional<Gain> gain = gPlan ? gainSince(*gPlan, reading) : std::nullopt;
  return {.pct = reading.pct,
          .band = band,
          .onAdapter = reading.onAdapter,
          .speed = expectedSpeed(reading.fastest, gain),
          .wakesLeft = mostWakes - static_cast<int>(gPastWakes.size()),
          .batteryWakesLeft = mostBatteryWakes - batteryWakes(),
          .firstOnBattery = !gPlan || gPlan->onAdapter,
          .mayStayAwake = !gStay.refused && stayedSeconds() < longestStay};
}

void notePlan(const NightReading& reading, double wakeAt) {
  gPlan = NightPlan{.wakeAt = wakeAt,
                    .plannedAt = reading.now,
                    .uptime = reading.uptime,
                    .pct = reading.pct,
                    .adapterWatts = reading.adapterWatts,
                    .onAdapter = reading.onAdapter,
                    .undisturbed = gState == ChargeState::allow};
}

// Also if the system refused the wake: then the limit is applied again at the next wake of whatever kind that
// comes after the planned one.
void planWake(const NightReading& reading, std::int64_t minutes) {
  endStay();
  scheduleWake(minutes);
  notePlan(reading, gScheduledWake.value_or(reading.now + static_cast<double>(minutes) * 60));
}

void closeForTheNight(std::int64_t pct, const Bounds& band) {
  endStay();
  cancelScheduledWake();
  applyState(ChargeState::hold);
  forgetGain();
  log("charging stopped for the night at " + std::to_string(pct) + "% (band " + std::to_string(band.lower) +
      "–" + std::to_string(band.upper) + "%)");
}

// A stay begins here already: only then is it known whether the system refuses it.
NightDecision decideStep(const NightReading& reading, const Bounds& band) {
  NightInputs inputs = inputsFor(reading, band);
  const NightDecision decision = decideNight(inputs);
  if (decision.step != NightStep::stayAwake || stayAwake(band.upper)) return decision;
  inputs.mayStayAwake = false;
  return decideNight(inputs);
}

void takeStep(const NightReading& reading, const Bounds& band) {
  const NightDecision decision = decideStep(reading, band);
  switch (decision.step) {
    case NightStep::wake:
      return planWake(reading, decision.minutes);
    case NightStep::stayAwake:
      return;
    case NightStep::close:
      return closeForTheNight(reading.pct, band);
  }
}

}  // namespace

void beginNight() {
  gNight = true;
  if (gAwakeSince && platform::uptime() - *gAwakeSince <= sameNight) return;
  gPlan.reset();
  gStay.seconds = 0;
  gStay.refused = false;
}

void endNight() {
  if (!gGuards.night) return;
  gNight = false;
  gAwakeSince = platform::uptime();
  endStay();
  notePastWake(platform::wallNow());
  forgetGain();
}

bool isNight() {
  if (!gNight) return false;
  const auto capabilities = systemCapabilities();
  return !capabilities || !isFullWake(capabilities);
}

void planNight(std::int64_t pct, const Bounds& band) {
  const NightReading reading = readNight(pct);
  forgetOldWakes(reading.now);
  takeStep(reading, band);
}

void watchNight(std::int64_t pct, const Bounds& band, bool limited) {
  const NightReading reading = readNight(pct);
  notePastWake(reading.now);
  forgetOldWakes(reading.now);
  const bool charges = limited && gState == ChargeState::allow && pct < band.upper;
  if (!charges) {
    endStay();
    forgetGain();
    // Nothing is left to stop.
    if (limited && gState == ChargeState::hold && pct >= band.lower) cancelScheduledWake();
    return;
  }
  if (gStay.assertion == 0 && gPlan && planHolds(*gPlan, reading)) return;
  takeStep(reading, band);
}

bool wouldStopAgain(std::int64_t pct, const Bounds& band) {
  const NightReading reading = readNight(pct);
  notePastWake(reading.now);
  forgetOldWakes(reading.now);
  return decideStep(reading, band).step == NightStep::close;
}

void forgetGain() {
  if (gPlan) gPlan->undisturbed = false;
}

void endOverlongStay() {
  constexpr double patience = 60;  // seconds more: a tick comes every 12 s
  if (gStay.assertion != 0 && stayedSeconds() > longestStay + patience) endStay();
}

}  // namespace brisko
