#include "client/state_reader.h"

#include <array>
#include <nlohmann/json.hpp>
#include <string_view>
#include <utility>

#include "base/paths.h"
#include "client/local_time.h"
#include "client/log_reader.h"
#include "client/real_time.h"
#include "client/setting_keys.h"
#include "platform/clock.h"
#include "policy/charge_bounds.h"

namespace brisko::client {
namespace {

constexpr const char* dataFolder = "/Library/Application Support/Brisko";

// --- Settings

std::string placeIn(std::string_view text, std::size_t byte) {
  std::size_t line = 1;
  std::size_t column = 1;
  for (std::size_t index = 0; index + 1 < byte && index < text.size(); ++index) {
    const bool ends = text[index] == '\n';
    line += ends ? 1 : 0;
    column = ends ? 1 : column + 1;
  }
  return "line " + std::to_string(line) + ", column " + std::to_string(column);
}

// The position of the parser's error.
std::string flawOf(const std::string& text) {
  if (text.find_first_not_of(" \t\r\n") == std::string::npos) return "it is empty";
  // The parser that finds the place of an error takes a hundred bytes for each level of brackets.
  constexpr std::size_t longestExplained = 65'536;
  if (text.size() > longestExplained) return "it is not JSON, or nested too deeply";
  try {
    const Json value = Json::parse(text);
    return value.is_object() ? "it is nested too deeply" : "it is not a JSON object";
  } catch (const Json::parse_error& error) {
    return "it is not JSON (" + placeIn(text, error.byte) + ")";
  } catch (const Json::exception&) {
    return "it is not JSON";
  }
}

// --- The status

struct StatusFile {
  FileProblem problem = FileProblem::none;
  std::optional<Json> object = {};
};

// The daemon overwrites the file in place, so it may be found truncated for a moment.
StatusFile readStatusFile(const Volume& volume) {
  constexpr int tries = 10;
  constexpr double pauseSeconds = 0.01;
  for (int count = 1;; ++count) {
    const FileText text = readFile(volume.at(statusPath));
    if (text.problem != FileProblem::none) return {.problem = text.problem};
    auto object = parseJson(text.bytes);
    if (object && object->is_object()) return {.object = std::move(object)};
    if (count == tries) return {.problem = FileProblem::unreadable};
    pauseReally(pauseSeconds);
  }
}

double topUpSinceIn(const Volume& volume) {
  const auto object = readJsonObject(volume.at(statsPath));
  return object ? numberAt(*object, "topUpSince").value_or(0) : 0;
}

// --- The log

// Lines that begin or end a time in which the daemon does nothing; the last one counts.
struct RestingSign {
  std::string_view text;
  Resting resting;
};
constexpr std::array restingSigns{
    RestingSign{"brisko-daemon started", Resting::no},
    RestingSign{"app is back", Resting::no},
    RestingSign{"still running 30 s after the release", Resting::no},
    RestingSign{"app gone — charge, adapter and LED handed back to macOS; service dormant", Resting::dormant},
    RestingSign{"charge released by the app", Resting::released},
};

void readLog(const Volume& volume, State& state) {
  constexpr std::size_t longest = 16'384;
  const std::string text = readEnd(volume.at(logPath), longest);
  std::size_t latest = 0;
  for (const RestingSign& sign : restingSigns) {
    const std::size_t at = text.rfind(sign.text);
    if (at == std::string::npos || at < latest) continue;
    latest = at;
    state.resting = sign.resting;
  }
  const std::size_t summary = text.rfind("  cap ");
  if (summary == std::string::npos) return;
  state.lastSummary = text.substr(summary + 2, text.find('\n', summary) - summary - 2);
}

// A purge removes the log too, so only the missing folder shows it.
bool isPurged(const State& state) {
  return state.system.job && state.system.job->processId &&
         readFile(state.volume.at(dataFolder)).problem == FileProblem::missing;
}

RecentHistory readHistory(const Volume& volume, double now) {
  return recentHistory(now, [&volume](double moment) {
    return readFile(volume.at(std::string(historyDir) + "/" + dayText(moment) + ".jsonl")).bytes;
  });
}

}  // namespace

JobArguments jobArgumentsIn(const std::vector<std::string>& arguments) {
  JobArguments job;
  // As the daemon scans them: an option takes the next argument, whatever it looks like.
  for (std::size_t index = 0; index + 1 < arguments.size(); ++index) {
    const std::string& name = arguments[index];
    const std::string& value = arguments[index + 1];
    if (name == "--config") {
      job.config = value;
    } else if (name == "--limit") {
      job.limit = parseInteger(value).value_or(job.limit);
    } else if (name == "--lower") {
      const auto lower = parseInteger(value);
      if (lower) job.lower = *lower >= 0 ? lower : std::nullopt;
    } else if (name != "--app" && name != "--guard") {
      continue;
    }
    ++index;
  }
  return job;
}

SettingsFile readSettingsFile(const std::string& path) {
  SettingsFile file{.path = path, .text = readFile(path)};
  if (file.text.problem != FileProblem::none) {
    if (file.text.problem != FileProblem::missing) file.flaw = clauseOf(file.text.problem);
    return file;
  }
  auto object = parseJson(file.text.bytes);
  if (!object || !object->is_object()) {
    file.flaw = flawOf(file.text.bytes);
  } else if (auto reason = whyFatal(*object)) {
    file.flaw = std::move(reason);
  } else {
    file.object = std::make_shared<const Json>(std::move(*object));
  }
  return file;
}

State readState(const Volume& volume) {
  State state{.volume = volume};
  if (!volume.isForeign()) state.system = readSystem();
  if (state.system.job) state.job = jobArgumentsIn(state.system.job->arguments);
  state.settingsFile = readSettingsFile(volume.at(state.job.config));
  state.settings.limit = state.job.limit;
  if (state.settingsFile.object) state.settings = parseConfig(*state.settingsFile.object);
  StatusFile status = readStatusFile(volume);
  state.statusProblem = status.problem;
  if (status.object) state.status = daemonStatusIn(*status.object);
  if (status.object && !state.status) state.statusProblem = FileProblem::unreadable;
  if (status.object) state.statusObject = std::make_shared<const Json>(std::move(*status.object));
  // After the status, so that the status is not newer.
  state.now = platform::wallNow();
  state.topUpSince = topUpSinceIn(volume);
  state.history = readHistory(volume, state.now);
  readLog(volume, state);
  if (isPurged(state)) state.resting = Resting::purged;
  return state;
}

std::optional<DaemonStatus> readStatus(const Volume& volume) {
  const StatusFile file = readStatusFile(volume);
  return file.object ? daemonStatusIn(*file.object) : std::nullopt;
}

Situation situationOf(const State& state) {
  const auto& job = state.system.job;
  return {.now = state.now,
          .installed = job ? job->installed : state.statusProblem != FileProblem::missing,
          .running = job ? std::optional(job->processId.has_value()) : std::nullopt,
          .bootedAt = state.system.bootedAt,
          .wokeAt = state.system.wokeAt,
          .asleep = state.system.asleep,
          .status = state.status,
          .resting = state.resting,
          .settings = state.settings,
          .band = bounds(state.settings.limit, state.job.lower.value_or(-1), state.settings.hysteresis),
          .topUpSince = state.topUpSince,
          .recent = state.history.samples};
}

}  // namespace brisko::client
