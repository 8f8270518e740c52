// Whether the charge does what the daemon wants, and what else has a say in it.
#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <deque>
#include <nlohmann/json.hpp>
#include <span>

#include "base/json_file.h"
#include "client/doctor/checks.h"
#include "client/local_time.h"
#include "client/why.h"
#include "hardware/charge_gate.h"

namespace brisko::client {
namespace {

constexpr double hour = 3600;
constexpr double flowWatts = 0.5;  // less counts as no current

bool isByMacOS(const DaemonStatus& status) { return status.chargeMode == "macOS"; }
bool isByKeys(const DaemonStatus& status) {
  return !status.chargeMode.empty() && !isByMacOS(status) && status.chargeMode != "none";
}

bool isFresh(const Evidence& evidence) {
  return freshnessOf(situationOf(evidence.state)) == Freshness::fresh;
}

// Where charging ends at present.
std::int64_t goalOf(const DaemonStatus& status) {
  const bool toFull = status.topUp || !status.enabled || status.calibration.phase != CalPhase::idle;
  return toFull ? 100 : limitInForce(status);
}

// How many lines of the last day contain the text.
std::size_t linesWith(const Evidence& evidence, std::string_view text) {
  const auto& lines = *evidence.log.value;
  return static_cast<std::size_t>(std::count_if(lines.begin(), lines.end(), [text](const LogLine& line) {
    return line.message.find(text) != std::string::npos;
  }));
}

// --- Another limiter

// The keys are not as the daemon has set them, although it had time to set them again.
bool keysDiffer(const Evidence& evidence) {
  constexpr double settled = 60;
  const State& state = evidence.state;
  if (!evidence.chargingIsStopped.value || !evidence.later || !isFresh(evidence)) return false;
  const DaemonStatus& status = *state.status;
  if (!isByKeys(status) || !status.plugged || !status.enabled) return false;
  if (evidence.later->state != status.state || !evidence.later->plugged) return false;
  if (!state.history.stateSince || state.now - *state.history.stateSince < settled) return false;
  if (state.system.wokeAt && state.now - *state.system.wokeAt < settled) return false;
  return *evidence.chargingIsStopped.value != (status.state == ChargeState::hold);
}

std::string suspects(const Evidence& evidence) {
  if (!evidence.otherPrograms.value || evidence.otherPrograms.value->empty()) return "";
  std::string text;
  for (const std::string& each : *evidence.otherPrograms.value) text += (text.empty() ? "" : ", ") + each;
  return " These programs have opened the controller: " + text + ".";
}

// --- The current

// macOS's own limit as far as it is known: what is in force now, or what the daemon keeps for it.
std::optional<std::int64_t> systemLimitOf(const Evidence& evidence) {
  if (evidence.systemLimit.value) return evidence.systemLimit.value;
  const auto statistics = parseJson(evidence.statistics.value.value_or(""));
  return statistics && statistics->is_object() ? integerAt(*statistics, "nativeBefore") : std::nullopt;
}

// With the daemon off, macOS's own limit is all that the user asked for: the charge rests in the points below
// it.
bool restsBelowSystemLimit(const Evidence& evidence) {
  constexpr std::int64_t restingPoints = 5;  // further below, macOS charges again
  const DaemonStatus& status = *evidence.state.status;
  if (status.enabled || status.topUp || status.calibration.phase != CalPhase::idle) return false;
  const std::int64_t limit = systemLimitOf(evidence).value_or(0);
  return limit > 0 && limit < 100 && status.pct >= limit - restingPoints;
}

// The samples of a charge that has been allowed for some minutes, and is to rise.
std::vector<RecentSample> allowedSamples(const Evidence& evidence) {
  constexpr double settling = 150;  // until the current shows in the history
  constexpr double latest = 400;    // the newest may be this old; the next comes after 300 s
  constexpr std::int64_t nearlyFull = 95;
  const State& state = evidence.state;
  if (!isFresh(evidence) || state.system.asleep) return {};
  const DaemonStatus& status = *state.status;
  if (status.state != ChargeState::allow || !status.plugged || status.hot) return {};
  if (status.pct >= std::min(goalOf(status), nearlyFull)) return {};
  const auto samples = sinceLastChange(state.history.samples);
  if (samples.empty() || samples.back().state != ChargeState::allow || !samples.back().plugged) return {};
  if (state.now - samples.back().time > latest) return {};
  std::vector<RecentSample> settled;
  for (const RecentSample& sample : samples) {
    if (sample.watts && sample.time >= samples.front().time + settling) settled.push_back(sample);
  }
  return settled;
}

// Over several samples and minutes.
bool allAre(const std::vector<RecentSample>& samples, bool (*is)(double watts)) {
  constexpr double longEnough = 300;
  if (samples.size() < 2 || samples.back().time - samples.front().time < longEnough) return false;
  return std::all_of(samples.begin(), samples.end(),
                     [is](const RecentSample& sample) { return is(*sample.watts); });
}

bool drains(double watts) { return watts < -flowWatts; }
bool rests(double watts) { return std::abs(watts) <= flowWatts; }

// The bits of the mask whose meaning is known.
std::string notChargingText(std::int64_t mask) {
  if (mask == 0) return "";
  std::string text;
  for (unsigned bit = 0; bit < 63; ++bit) {
    if ((static_cast<std::uint64_t>(mask) >> bit & 1U) == 0) continue;
    text += (text.empty() ? "" : ", ") + std::to_string(bit);
    if (bit == 0) text += " (full)";
    if (bit == 7) text += " (no adapter)";
    if (bit == 24) text += " (held at macOS's own limit)";
  }
  return " macOS's reason: bit " + text + ".";
}

// --- Heat

// How long charging has been paused for heat without a break, by the history.
double hotSeconds(const std::vector<RecentSample>& history, double now) {
  constexpr double longestGap = 900;
  double since = now;
  for (auto sample = history.rbegin(); sample != history.rend(); ++sample) {
    if (!sample->hot || since - sample->time > longestGap) break;
    since = sample->time;
  }
  return now - since;
}

// --- Nights

// The limit in a summary such as "cap 80%  batt 74%  31.0°C  ac  state=allow  LED=blink"; none while
// something else is in force, or in another line.
std::optional<std::int64_t> plainLimitIn(const std::string& message) {
  if (!message.starts_with("cap ") || message.find("cal=") != std::string::npos) return std::nullopt;
  const std::string word = message.substr(4, message.find(' ', 4) - 4);
  if (word.empty() || word.back() != '%') return std::nullopt;
  return std::strtoll(word.c_str(), nullptr, 10);
}

bool isSummary(const std::string& message) { return message.starts_with("cap "); }

// A night in which the Mac was to be woken before the limit.
struct PlannedNight {
  double begin = 0;        // of the sleep
  double end = 0;          // when the daemon next logged something else; the end of time if it did not
  std::int64_t limit = 0;  // percent
};

std::optional<PlannedNight> lastPlannedNight(const std::vector<LogLine>& log, double now) {
  std::optional<PlannedNight> night;
  std::optional<std::int64_t> limit;
  for (const LogLine& line : log) {
    if (line.message.starts_with("réveil programmé dans") && limit) {
      if (!night || night->end < now) night = PlannedNight{line.time, now, *limit};
      night->end = now;
    }
    if (!isSummary(line.message)) continue;
    limit = plainLimitIn(line.message);
    // Another limit, or none: what follows is no longer of that night.
    if (night && night->end == now && limit != night->limit) night->end = line.time;
  }
  return night;
}

// --- Swinging

bool isStateLine(const std::string& message) { return message.starts_with("→ state: "); }

// The most state lines within an hour.
std::size_t mostChanges(const std::vector<LogLine>& log) {
  std::size_t most = 0;
  std::deque<double> within;
  for (const LogLine& line : log) {
    if (!isStateLine(line.message)) continue;
    within.push_back(line.time);
    while (within.front() < line.time - hour) within.pop_front();
    most = std::max(most, within.size());
  }
  return most;
}

bool showsItsAdapter(const State& state) {
  if (!state.statusObject) return true;
  const auto keys = state.statusObject->find("smcKeys");
  if (keys == state.statusObject->end() || !keys->is_array()) return true;
  return std::find(keys->begin(), keys->end(), "AC-W") != keys->end();
}

}  // namespace

CheckResult checkGateObeys(const Evidence& evidence) {
  const auto& status = evidence.state.status;
  if (!status) return notLookedAt(noStatus);
  if (status->gateVerified != false) return clear();
  if (isByMacOS(*status)) return found("macOS does not enforce the limit that the daemon set.");
  const bool isByFirmware = status->chargeMode == chargeLabel(ChargeKeys::firmwareBand);
  if (isByFirmware && status->pct < status->upper) {
    return found("Charging continued although the daemon had stopped it: this Mac stops only at the limit.",
                 "Below the limit that is harmless. If the battery is too hot, unplug the Mac");
  }
  return found("The Mac does not obey: charging continues although the daemon stopped it.");
}

CheckResult checkOtherLimiter(const Evidence& evidence) {
  constexpr std::size_t usualADay = 3;
  if (!evidence.log.value) return notLookedAt(evidence.log.whyNot);
  const std::size_t count = linesWith(evidence, "gate found open during a hold");
  if (count > usualADay)
    return found("Something allowed charging " + std::to_string(count) +
                 " times in the last day although the daemon had stopped it." + suspects(evidence));
  if (keysDiffer(evidence))
    return found("The keys that stop charging are not as the daemon set them." + suspects(evidence));
  return clear();
}

CheckResult checkTwoLimits(const Evidence& evidence) {
  if (!evidence.systemLimit.value) return notLookedAt(evidence.systemLimit.whyNot);
  const auto& status = evidence.state.status;
  if (!status || !isByKeys(*status)) return clear();
  const std::int64_t limit = *evidence.systemLimit.value;
  if (limit <= 0 || limit >= 100) return clear();
  return found("macOS enforces its own limit of " + percentText(limit) + " besides the daemon's " +
               percentText(status->upper) + ".");
}

CheckResult checkLimitRefused(const Evidence& evidence) {
  const auto& status = evidence.state.status;
  if (!status) return notLookedAt(noStatus);
  if (!status->nativeFloor || !isByMacOS(*status)) return clear();
  return found("macOS does not enforce a limit of " + percentText(status->upper) + " on this Mac; " +
               percentText(limitInForce(*status)) + " is in force.");
}

CheckResult checkLimitOverridden(const Evidence& evidence) {
  if (!evidence.log.value) return notLookedAt(evidence.log.whyNot);
  bool overridden = false;
  for (const LogLine& line : *evidence.log.value) {
    const std::string& text = line.message;
    if (text.starts_with("macOS keeps its own limit for now")) overridden = true;
    if (text.starts_with("limit verified: macOS holds") || text.starts_with("macOS limit →") ||
        text.starts_with("brisko-daemon started"))
      overridden = false;
  }
  if (!overridden) return clear();
  return found("macOS keeps a limit of its own instead of the daemon's, and the daemon accepts that.");
}

CheckResult checkKeysOpen(const Evidence& evidence) {
  const auto& status = evidence.state.status;
  if (!status) return notLookedAt(noStatus);
  if (status->chargeMode != "none") return clear();
  return found("This version of macOS closes the keys that stop charging, so the daemon only observes.");
}

CheckResult checkProfiles(const Evidence& evidence) {
  if (!evidence.log.value) return notLookedAt(evidence.log.whyNot);
  const auto& lines = *evidence.log.value;
  const auto last = std::find_if(lines.rbegin(), lines.rend(), [](const LogLine& line) {
    return line.message.starts_with("macOS limit →");
  });
  if (last == lines.rend() || last->message.find("refused") == std::string::npos) return clear();
  if (evidence.profiles.value == 0) return clear();
  return found(
      "macOS refuses the daemon's limit, " +
      (evidence.profiles.value
           ? "and " + std::to_string(*evidence.profiles.value) + " configuration profiles are installed."
           : "which a profile may forbid; profiles were not looked at (" + evidence.profiles.whyNot + ")."));
}

CheckResult checkAdapterStrong(const Evidence& evidence) {
  if (!evidence.state.status) return notLookedAt(noStatus);
  const auto samples = allowedSamples(evidence);
  if (!allAre(samples, drains)) return clear();
  const auto rated = evidence.battery.value ? evidence.battery.value->adapterWatts : std::nullopt;
  return found("The charge falls although charging is allowed: the Mac uses more than its adapter supplies" +
               (rated ? " (" + std::to_string(*rated) + " W)." : "."));
}

CheckResult checkCurrentFlows(const Evidence& evidence) {
  if (!evidence.state.status) return notLookedAt(noStatus);
  if (restsBelowSystemLimit(evidence) || !allAre(allowedSamples(evidence), rests)) return clear();
  const auto reason = evidence.battery.value ? evidence.battery.value->notChargingReason : std::nullopt;
  return found("Charging is allowed, but no current flows." + (reason ? notChargingText(*reason) : ""));
}

CheckResult checkHeat(const Evidence& evidence) {
  const State& state = evidence.state;
  if (!state.status) return notLookedAt(noStatus);
  if (!state.status->hot) return clear();
  if (!evidence.history.value) return notLookedAt(evidence.history.whyNot);
  const double seconds = hotSeconds(*evidence.history.value, state.now);
  if (seconds <= hour) return clear();
  const std::string limit = degreesText(static_cast<double>(state.settings.thermalLimit));
  return found("Charging has been paused for heat for " + durationText(seconds) + ", from " + limit + " on.");
}

CheckResult checkDischargeWorks(const Evidence& evidence) {
  const auto& status = evidence.state.status;
  if (!status) return notLookedAt(noStatus);
  if (!status->dischargeFailed) return clear();
  return found("The daemon gave up discharging, because the battery did not run down.");
}

CheckResult checkCalibration(const Evidence& evidence) {
  constexpr double longest = 24 * hour;
  const auto& status = evidence.state.status;
  if (!status) return notLookedAt(noStatus);
  const CalibrationStatus& calibration = status->calibration;
  if (calibration.phase == CalPhase::idle || calibration.phaseSince <= 0) return clear();
  const double rest = calibration.phase == CalPhase::soak ? static_cast<double>(calibration.soakSeconds) : 0;
  const double seconds = evidence.state.now - calibration.phaseSince;
  if (seconds <= longest + rest) return clear();
  const std::string phase = phaseName(calibration.phase);
  const bool falls = calibration.phase == CalPhase::drain || calibration.phase == CalPhase::restore;
  return found("The calibration has been in the phase \"" + phase + "\" for " + durationText(seconds) + ".",
               falls ? "Unplug the Mac until the phase ends. It fails by itself after 72 h."
                     : "Keep the Mac on a strong adapter, and cool. It fails by itself after 72 h.");
}

CheckResult checkNight(const Evidence& evidence) {
  if (!evidence.log.value) return notLookedAt(evidence.log.whyNot);
  if (!evidence.history.value) return notLookedAt(evidence.history.whyNot);
  const auto night = lastPlannedNight(*evidence.log.value, evidence.state.now);
  if (!night) return clear();
  std::int64_t highest = 0;
  for (const RecentSample& sample : *evidence.history.value) {
    if (sample.time > night->begin && sample.time <= night->end) highest = std::max(highest, sample.pct);
  }
  if (highest <= night->limit + 1) return clear();
  return found("Asleep, the Mac charged to " + percentText(highest) + ", past the limit of " +
               percentText(night->limit) + ".");
}

CheckResult checkSwing(const Evidence& evidence) {
  constexpr std::size_t usualAnHour = 20;
  if (!evidence.log.value) return notLookedAt(evidence.log.whyNot);
  const std::size_t changes = mostChanges(*evidence.log.value);
  if (changes <= usualAnHour) return clear();
  const bool blind = !showsItsAdapter(evidence.state) && evidence.state.settings.discharge;
  return found("The state changed " + std::to_string(changes) + " times within an hour" +
               (blind ? ", because this Mac does not show its adapter while it is cut off." : "."));
}

}  // namespace brisko::client
