// Whether the daemon keeps running, and what its files report about it.
#include <algorithm>
#include <nlohmann/json.hpp>

#include "base/checked.h"
#include "base/paths.h"
#include "client/doctor/checks.h"
#include "client/local_time.h"
#include "client/setting_keys.h"
#include "client/why.h"

namespace brisko::client {
namespace {

std::string launchdUnknown(const Evidence& evidence) {
  return evidence.state.volume.isForeign() ? onAnotherVolume : launchdSilent;
}

bool endedWith(const Evidence& evidence, std::int64_t code) {
  const auto& job = evidence.state.system.job;
  return job && job->installed && !job->processId && job->lastExitCode == code;
}

// The first key of the settings whose number ends the daemon.
std::optional<std::string> fatalSetting(const std::string& text) {
  const auto object = parseJson(text);
  if (!object || !object->is_object()) return std::nullopt;
  for (const SettingKey& key : settingKeys()) {
    const auto found = object->find(key.name);
    if (found != object->end() && whyFatal(Json{{key.name, *found}})) return key.name;
  }
  return std::nullopt;
}

bool isFatal(const std::string& text, const char* key) {
  const auto object = parseJson(text);
  if (!object || !object->is_object() || integerAt(*object, key)) return false;
  const auto value = numberAt(*object, key);
  return value && !fittingInteger(*value);
}

// Written by the daemon when it aborts.
bool abortedForANumber(const Evidence& evidence) {
  const auto& job = evidence.state.system.job;
  return job && !job->processId && job->lastSignal.find("Abort") != std::string::npos &&
         evidence.errorLog.value &&
         evidence.errorLog.value->find("does not fit a 64-bit") != std::string::npos;
}

// Of the newest line that contains the text; none without one.
std::optional<double> timeOfLast(const Evidence& evidence, std::string_view text) {
  if (!evidence.log.value) return std::nullopt;
  const auto& lines = *evidence.log.value;
  const auto line = std::find_if(lines.rbegin(), lines.rend(), [text](const LogLine& each) {
    return each.message.find(text) != std::string::npos;
  });
  return line == lines.rend() ? std::nullopt : std::optional(line->time);
}

std::string processList(const std::vector<DaemonProcess>& daemons) {
  std::string text;
  for (const DaemonProcess& each : daemons) {
    text += (text.empty() ? "" : ", ") + std::to_string(each.id);
    if (each.parent == 1) text += " by launchd";
  }
  return text;
}

// Setting the clock forward moves the kernel's start too, past the status of a daemon that has run all the
// while. One that launchd started since then would have logged its start before anything else.
bool clockJustLeapt(const Evidence& evidence) {
  constexpr double tolerance = 60;
  constexpr double logReach = 86'400;  // as far back as the log was read
  const State& state = evidence.state;
  const auto& booted = state.system.bootedAt;
  if (!daemonRuns(evidence) || isSettling(evidence) || !state.status || !booted || !evidence.log.value)
    return false;
  if (state.status->ts >= *booted - tolerance || state.now - *booted > logReach - tolerance) return false;
  const auto started = timeOfLast(evidence, "brisko-daemon started");
  return !started || *started < *booted - tolerance;
}

// Samples come at least every five minutes while the Mac is awake.
bool historyIsPaused(const Evidence& evidence) {
  constexpr double longest = 900;
  const State& state = evidence.state;
  if (!evidence.history.value || !state.settings.history || !state.status || !state.status->startedAt)
    return false;
  if (state.system.asleep || freshnessOf(situationOf(state)) != Freshness::fresh) return false;
  const double awakeSince = std::max(
      {*state.status->startedAt, state.system.wokeAt.value_or(0), state.system.bootedAt.value_or(0)});
  const double newest = evidence.history.value->empty() ? 0 : evidence.history.value->back().time;
  return state.now - std::max(awakeSince, newest) > longest;
}

}  // namespace

std::optional<FatalNumber> fatalNumberIn(const Evidence& evidence) {
  const SettingsFile& settings = evidence.state.settingsFile;
  if (const auto key = fatalSetting(settings.text.bytes)) return FatalNumber{evidence.state.job.config, *key};
  if (evidence.statistics.value && isFatal(*evidence.statistics.value, "protectedSeconds"))
    return FatalNumber{statsPath, "protectedSeconds"};
  if (evidence.calibration.value && isFatal(*evidence.calibration.value, "soakBanked"))
    return FatalNumber{calibrationPath, "soakBanked"};
  return std::nullopt;
}

CheckResult checkNumbers(const Evidence& evidence) {
  if (const auto number = fatalNumberIn(evidence))
    return found("\"" + number->key + "\" in " + number->path +
                 " is too large for any number, which ends the daemon at every start.");
  if (abortedForANumber(evidence))
    return found("A number in one of the daemon's files ends it at every start.");
  return clear();
}

CheckResult checkKnownMac(const Evidence& evidence) {
  if (!evidence.state.system.job) return notLookedAt(launchdUnknown(evidence));
  return endedWith(evidence, 2)
             ? found("The daemon ended with status 2: it found no way to control charging on this Mac.")
             : clear();
}

CheckResult checkController(const Evidence& evidence) {
  if (!evidence.state.system.job) return notLookedAt(launchdUnknown(evidence));
  if (!endedWith(evidence, 1)) return clear();
  if (!evidence.errorLog.value) return notLookedAt(evidence.errorLog.whyNot);
  if (evidence.errorLog.value->find("Could not open AppleSMC") == std::string::npos) return clear();
  return found("The daemon ended with status 1: it could not reach the Mac's controller.");
}

CheckResult checkStatusAge(const Evidence& evidence) {
  const State& state = evidence.state;
  if (!state.system.job) return notLookedAt(launchdUnknown(evidence));
  if (!daemonRuns(evidence) || isSettling(evidence) || state.resting != Resting::no) return clear();
  if (state.statusProblem == FileProblem::notPermitted) return clear();
  // A restart would change neither.
  if (checkDisk(evidence).outcome == Outcome::found || clockJustLeapt(evidence)) return clear();
  if (!state.status) {
    return found(state.statusProblem == FileProblem::missing
                     ? "The daemon runs, but it has written no status."
                     : "The daemon runs, but its status is not usable.");
  }
  const Freshness freshness = freshnessOf(situationOf(state));
  if (freshness != Freshness::stale) return clear();
  return found("The daemon runs, but its status is " + durationText(state.now - state.status->ts) + " old.");
}

CheckResult checkPurged(const Evidence& evidence) {
  if (!evidence.state.system.job) return notLookedAt(launchdUnknown(evidence));
  return evidence.state.resting == Resting::purged
             ? found("The app had all data erased, so the daemon writes no files until it is restarted.")
             : clear();
}

CheckResult checkDormant(const Evidence& evidence) {
  if (evidence.state.resting != Resting::dormant || !daemonRuns(evidence)) return clear();
  return found("The app was removed, so the daemon gave the charge back and does nothing.");
}

CheckResult checkReleased(const Evidence& evidence) {
  constexpr double removalSeconds = 30;
  if (evidence.state.resting != Resting::released || !daemonRuns(evidence)) return clear();
  const auto since = timeOfLast(evidence, "charge released by the app");
  const double age = evidence.state.now - since.value_or(evidence.state.now);
  if (age < removalSeconds)
    return found("The app released the charge " + durationText(age) + " ago to remove the service.");
  return found("The app released the charge to remove the service, but the daemon still runs.",
               "If you did not mean to remove it: brisko restart");
}

CheckResult checkOneDaemon(const Evidence& evidence) {
  const auto& first = evidence.state.status;
  const auto& later = evidence.later;
  const bool alternate =
      first && later && first->startedAt && later->startedAt && *later->startedAt < *first->startedAt;
  if (evidence.daemons.value && evidence.daemons.value->size() > 1)
    return found("More than one daemon runs: processes " + processList(*evidence.daemons.value) + ".");
  if (alternate) return found("Two daemons take turns in writing the status.");
  return evidence.daemons.value ? clear() : notLookedAt(evidence.daemons.whyNot);
}

CheckResult checkDisk(const Evidence& evidence) {
  constexpr double leastBytes = 16.0 * 1024 * 1024;
  // The status is emptied before it is written.
  if (evidence.statusIsEmpty && daemonRuns(evidence))
    return found("The status is empty, as on a full disk: the daemon cannot write.");
  if (!evidence.space.value) return notLookedAt(evidence.space.whyNot);
  if (evidence.space.value->readOnly) return found("The disk is read-only, so the daemon cannot write.");
  if (evidence.space.value->freeBytes < leastBytes)
    return found("The disk is full, so the daemon cannot write.");
  if (historyIsPaused(evidence))
    return found("The status is current, but nothing was added to the history for more than 15 minutes.");
  return clear();
}

CheckResult checkClock(const Evidence& evidence) {
  constexpr double tolerance = 60;
  const State& state = evidence.state;
  if (evidence.history.value && !evidence.history.value->empty() &&
      evidence.history.value->back().time > state.now + tolerance) {
    return found("The history reaches into the future, up to " +
                 timeText(evidence.history.value->back().time, state.now) + ": the clock was set back.");
  }
  if (state.status && state.status->ts > state.now + tolerance)
    return found("The status is from the future: the clock was set back.");
  if (clockJustLeapt(evidence))
    return found("The status seems to be older than the Mac's last start: the clock was set forward.");
  // The kernel moves its start with the clock.
  const auto& booted = state.system.bootedAt;
  const bool isOfThisStart = state.status && booted && state.status->ts > *booted + tolerance;
  if (isOfThisStart && daemonRuns(evidence) && state.status->startedAt &&
      *state.status->startedAt < *booted - tolerance) {
    return found("The daemon seems to be older than the Mac's last start: the clock was set forward.");
  }
  if (!evidence.history.value) return notLookedAt(evidence.history.whyNot);
  return clear();
}

}  // namespace brisko::client
