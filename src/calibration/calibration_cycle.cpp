#include "calibration/calibration_cycle.h"

#include <algorithm>

#include "base/log.h"
#include "calibration/calibration_record.h"
#include "platform/clock.h"

namespace brisko {
namespace {

// A phase that takes this long will never end: perhaps the battery never shows more than 99 %, or the Mac
// can't discharge while it is plugged in.
constexpr double longestPhase = 259'200;  // seconds, three days

// A longer gap between two ticks was spent asleep or not running.
constexpr double mostSoakPerTick = 120;  // seconds

constexpr std::size_t mostRuns = 40;

bool isFull(std::int64_t pct) { return pct > 99; }

void bankSoak(const CalibrationInputs& inputs, double now) {
  if (!inputs.plugged || !isFull(inputs.pct) || gCal.lastTick <= 0) return;
  gCal.soakBanked += std::min(now - gCal.lastTick, mostSoakPerTick);
}

// Applies the rule of the present phase. Returns true when the run has finished.
bool followPhase(const CalibrationInputs& inputs, double now) {
  switch (gCal.phase) {
    case CalPhase::fill:
      if (isFull(inputs.pct)) enterPhase(CalPhase::drain);
      break;
    case CalPhase::drain:
      if (inputs.pct <= inputs.drainTarget) enterPhase(CalPhase::refill);
      break;
    case CalPhase::refill:
      if (isFull(inputs.pct)) enterPhase(CalPhase::soak);
      break;
    case CalPhase::soak:
      bankSoak(inputs, now);
      if (inputs.soakSeconds <= gCal.soakBanked) enterPhase(CalPhase::restore);
      break;
    case CalPhase::restore:
      if (inputs.pct > inputs.limit) break;
      finishCalibration();
      return true;
    case CalPhase::idle:
      break;
  }
  return false;
}

CalRun runFrom(const GaugeReading& before, const GaugeReading& after, double at) {
  return {.at = at,
          .beforeRaw = before.raw,
          .afterRaw = after.raw,
          .beforeNominal = before.nominal,
          .afterNominal = after.nominal,
          .design = after.design ? after.design : before.design,
          .cyclesBefore = before.cycles,
          .cyclesAfter = after.cycles};
}

// The file may have contained more runs than we keep.
void keepRun(const CalRun& run) {
  gCal.runs.push_back(run);
  if (gCal.runs.size() <= mostRuns) return;
  gCal.runs.erase(gCal.runs.begin(), gCal.runs.end() - static_cast<std::ptrdiff_t>(mostRuns));
}

// Keeps startedAt and phaseSince.
void becomeIdle(std::optional<CalFailure> failure) {
  gCal.phase = CalPhase::idle;
  gCal.soakBanked = 0;
  gCal.before.reset();
  gCal.lastFailure = std::move(failure);
  writeCalibration();
}

std::string numberText(const std::optional<std::int64_t>& number) {
  return number ? std::to_string(*number) : "?";
}

}  // namespace

void startCalibration() {
  if (gCal.phase != CalPhase::idle) return;
  const double now = platform::wallNow();
  gCal.phase = CalPhase::fill;
  gCal.startedAt = now;
  gCal.phaseSince = now;
  gCal.soakBanked = 0;
  gCal.lastTick = now;
  gCal.before = readCapacity();
  gCal.lastFailure.reset();
  writeCalibration();
  const auto raw = gCal.before ? gCal.before->raw : std::nullopt;
  log("calibration started — capacity before: " + (raw ? std::to_string(*raw) + " mAh" : "unknown"));
}

bool advanceCalibration(const CalibrationInputs& inputs) {
  if (gCal.phase == CalPhase::idle) return false;
  const double now = platform::wallNow();
  bool ended = true;
  if (now - gCal.phaseSince > longestPhase) {
    stopCalibration("stalled", gCal.phase);
  } else {
    ended = followPhase(inputs, now);
  }
  gCal.lastTick = now;
  return ended;
}

void stopCalibration(const std::optional<std::string>& reason, std::optional<CalPhase> phase) {
  if (gCal.phase == CalPhase::idle) return;
  if (!reason) {
    becomeIdle(std::nullopt);
    log("calibration cancelled");
    return;
  }
  const CalFailure failure{.reason = *reason, .phase = phase.value_or(gCal.phase)};
  becomeIdle(failure);
  log("calibration stopped: " + failure.reason + " at the " + phaseName(failure.phase) + " step");
}

void enterPhase(CalPhase phase) {
  gCal.phase = phase;
  gCal.phaseSince = platform::wallNow();
  gCal.soakBanked = 0;
  writeCalibration();
  log(std::string("calibration → ") + phaseName(phase));
}

void finishCalibration() {
  const GaugeReading before = gCal.before.value_or(GaugeReading{});
  const GaugeReading after = readCapacity().value_or(GaugeReading{});
  keepRun(runFrom(before, after, platform::wallNow()));
  becomeIdle(std::nullopt);
  log("calibration finished — capacity " + numberText(before.raw) + " mAh → " + numberText(after.raw) +
      " mAh, " + numberText(after.cycles) + " cycles");
}

}  // namespace brisko
