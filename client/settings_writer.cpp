#include "client/settings_writer.h"

#include <algorithm>
#include <nlohmann/json.hpp>

#include "client/real_time.h"
#include "client/service.h"
#include "client/setting_keys.h"
#include "client/settings_file.h"
#include "client/why.h"
#include "platform/clock.h"
#include "platform/host.h"

namespace brisko::client {
namespace {

constexpr double pollSeconds = 0.05;

ChangeOutcome refused(ExitStatus status, std::string text) {
  return {.status = status, .text = std::move(text)};
}

std::string sudoLine(const ChangeOptions& options) { return "run: sudo " + options.commandLine; }

// --- Before anything is changed

// A dormant or released daemon would not act on a change; after a purge it would not even store it.
std::optional<ChangeOutcome> refusedByState(const State& state, const ChangeOptions& options) {
  if (state.settingsFile.flaw && !options.force) {
    const std::string& path = state.settingsFile.path;
    if (state.settingsFile.text.problem == FileProblem::notPermitted)
      return refused(ExitStatus::notAllowed, "You may not read " + path + "; " + sudoLine(options));
    return refused(ExitStatus::notDone, "Nothing was changed, because " + path +
                                            " is not usable: " + *state.settingsFile.flaw +
                                            ". Correct it, or start from the defaults with --force.");
  }
  if (state.volume.isForeign()) return std::nullopt;
  const Answer answer = why(situationOf(state));
  switch (answer.reason) {
    case Reason::notInstalled:
    case Reason::purged:
    case Reason::dormant:
    case Reason::released:
      return refused(ExitStatus::noDaemon, "Nothing was changed. " + answer.text);
    default:
      return std::nullopt;
  }
}

// --- Confirming

struct Observation {
  bool confirmed = false;
  bool contradicted = false;  // by a status written after the change
  bool twoDaemons = false;
  bool lost = false;  // the daemon wrote the file at the same moment, without the change
};

// From before the clock was set back.
bool isFromTheFuture(const DaemonStatus& status) {
  constexpr double tolerance = 5;
  return status.ts > platform::wallNow() + tolerance;
}

bool allShown(const DaemonStatus& status, const Json& keys) {
  return std::all_of(keys.items().begin(), keys.items().end(), [&](const auto& entry) {
    return shows(status, entry.key(), entry.value()).value_or(true);
  });
}

// Requests are cleared when they have been served.
bool fileHolds(const std::string& path, const Json& keys) {
  const SettingsFile file = readSettingsFile(path);
  if (!file.object) return false;
  const Json held = configObject(parseConfig(*file.object));
  return std::all_of(keys.items().begin(), keys.items().end(), [&](const auto& entry) {
    const SettingKey* key = findSetting(entry.key());
    return key == nullptr || key->isRequest || held.value(entry.key(), Json()) == entry.value();
  });
}

// Which daemons wrote the statuses that were seen.
class Authors {
 public:
  explicit Authors(const std::optional<DaemonStatus>& status) { note(status); }
  void note(const std::optional<DaemonStatus>& status) {
    if (!status || !status->startedAt) return;
    // A daemon that was started anew replaces the one before; an older one that still writes is another.
    twoWrite_ = twoWrite_ || *status->startedAt < newest_;
    newest_ = std::max(newest_, *status->startedAt);
  }
  [[nodiscard]] bool twoWrite() const { return twoWrite_; }

 private:
  double newest_ = 0;  // when the one that was started last was started
  bool twoWrite_ = false;
};

// Waits for a status from after `writtenAt` that shows the change. `settle` is called for each new status.
template <typename Settle>
Observation observe(const State& state, const Json& keys, double writtenAt, Way way, double waitSeconds,
                    const Settle& settle) {
  Observation seen;
  Authors authors(state.status);
  for (const double end = steadyNow() + waitSeconds;;) {
    const auto status = readStatus(state.volume);
    authors.note(status);
    if (status && status->ts >= writtenAt && !isFromTheFuture(*status)) {
      settle();
      seen.contradicted = !allShown(*status, keys);
      seen.lost = !fileHolds(state.settingsFile.path, keys);
      seen.confirmed = !seen.contradicted && !seen.lost;
    } else if (status && way == Way::service) {
      // The daemon has run a tick before it answered. It wrote no status, so nothing that it shows has
      // changed.
      seen.confirmed = allShown(*status, keys) && fileHolds(state.settingsFile.path, keys);
    }
    seen.twoDaemons = authors.twoWrite();
    if (seen.confirmed || seen.lost || steadyNow() >= end) return seen;
    pauseReally(pollSeconds);
  }
}

ChangeOutcome outcomeOf(const Observation& seen, Way way) {
  if (seen.twoDaemons) {
    return {.status = ExitStatus::notObserved,
            .way = way,
            .text = "Two daemons write the status. End the one that launchd did not start."};
  }
  if (seen.confirmed) return {.way = way, .confirmed = true};
  if (seen.contradicted) {
    return {.status = ExitStatus::notObserved,
            .way = way,
            .text = "It was written, but the daemon shows something else; brisko why may explain it."};
  }
  return {.way = way, .text = "It is written; the daemon reads it within 12 s."};
}

// --- The two ways

// Without a readable file the daemon would start from the defaults and ignore the limit of its command line.
Json toSend(const State& state, const Json& keys) {
  Json sent = keys;
  if (!state.settingsFile.object && !sent.contains("limit")) sent["limit"] = state.job.limit;
  return sent;
}

std::optional<ChangeOutcome> throughService(const State& state, const Json& keys,
                                            const ChangeOptions& options) {
  const double writtenAt = platform::wallNow();
  const ServiceReply reply = applySettings(toSend(state, keys).dump(), answerSeconds);
  if (reply.answer == ServiceAnswer::noAnswer) return std::nullopt;
  if (reply.answer == ServiceAnswer::refused)
    return refused(ExitStatus::notDone, "The daemon refused: " + reply.error);
  return outcomeOf(observe(state, keys, writtenAt, Way::service, options.waitSeconds, [] {}), Way::service);
}

bool daemonRuns(const State& state) {
  const auto& job = state.system.job;
  return job ? job->processId.has_value() : freshnessOf(situationOf(state)) == Freshness::fresh;
}

ChangeOutcome notInTheFile(const FileChange& change, const ChangeOptions& options) {
  const std::string advice = change.status == ExitStatus::notAllowed ? "; " + sudoLine(options) : ".";
  return refused(change.status, "Nothing was changed: " + change.reason + advice);
}

// Once, without confirming it.
FileChange writeFile(const State& state, const Json& keys, const ChangeOptions& options) {
  Settings defaults;
  defaults.limit = state.job.limit;
  return changeSettingsFile(state.settingsFile.path, keys, defaults, options.force);
}

ChangeOutcome throughFile(const State& state, const Json& keys, const ChangeOptions& options) {
  if (!state.volume.isForeign() && platform::effectiveUserId() != 0)
    return refused(ExitStatus::notAllowed,
                   "The daemon does not accept changes from you; " + sudoLine(options));
  constexpr int mostTries = 3;
  const std::string& path = state.settingsFile.path;
  std::size_t cleared = 0;
  for (int count = 1; count <= mostTries; ++count) {
    FileChange change = writeFile(state, keys, options);
    if (!change.done) return notInTheFile(change, options);
    bool settled = clearServedRequests(path, keys, change);
    if (state.volume.isForeign()) return {.way = Way::file, .text = "It is written on that volume."};
    if (!daemonRuns(state)) {
      return {.status = ExitStatus::noDaemon,
              .way = Way::file,
              .text = "It is written, but no daemon runs; it applies when the daemon starts."};
    }
    // A status that is not older: whatever its daemon read before, it has written back by then.
    const Observation seen = observe(state, keys, change.replacedAt, Way::file, options.waitSeconds,
                                     [&] { settled = clearServedRequests(path, keys, change); });
    cleared += change.cleared;
    if (seen.lost || !settled) continue;
    ChangeOutcome outcome = outcomeOf(seen, Way::file);
    outcome.writes = count;
    outcome.cleared = cleared;
    return outcome;
  }
  return {.status = ExitStatus::notDone,
          .way = Way::file,
          .writes = mostTries,
          .cleared = cleared,
          .text = "The daemon wrote the settings at the same moment; check with brisko get, and try again."};
}

}  // namespace

std::optional<bool> shows(const DaemonStatus& status, const std::string& key, const Json& value) {
  if (key == "limit") return status.upper == std::clamp<std::int64_t>(value.get<std::int64_t>(), 20, 100);
  if (!value.is_boolean()) return std::nullopt;
  const bool wanted = value.get<bool>();
  if (key == "enabled") return status.enabled == wanted;
  if (key == "topUp") return status.topUp == wanted;
  if (key == "calibrate") return (status.calibration.phase != CalPhase::idle) == wanted;
  if (key == "discharge") {
    const bool canShow = status.dischargeSupported && !status.dischargeFailed && !status.topUp;
    return wanted && !canShow ? std::nullopt : std::optional(status.discharge == wanted);
  }
  return std::nullopt;
}

ChangeOutcome changeSettings(const State& state, const Json& keys, const ChangeOptions& options) {
  if (auto refusal = refusedByState(state, options)) return *refusal;
  if (!state.volume.isForeign()) {
    if (auto outcome = throughService(state, keys, options)) return *outcome;
  }
  return throughFile(state, keys, options);
}

}  // namespace brisko::client
