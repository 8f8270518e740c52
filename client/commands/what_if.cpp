#include <filesystem>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include <unistd.h>

#include "base/options.h"
#include "base/paths.h"
#include "client/child_process.h"
#include "client/commands/command.h"
#include "client/effect_on_charge.h"
#include "client/report_gathering.h"
#include "client/setting_assignment.h"
#include "platform/host.h"
#include "report/history_files.h"

namespace brisko::client {
namespace {

constexpr std::int64_t usualDaysPlayed = 30;
constexpr std::int64_t mostDaysPlayed = 366;

ExitStatus refuse(const Context& context, const std::string& text) {
  context.output.complain(text);
  return ExitStatus::notDone;
}

// None when the value of --days is invalid.
std::optional<int> daysIn(const Invocation& invocation) {
  const auto text = invocation.value("--days");
  const auto days = text ? parseInteger(*text) : std::optional(usualDaysPlayed);
  if (!days || *days < 1 || *days > mostDaysPlayed) return std::nullopt;
  return static_cast<int>(*days);
}

// The daemon is played by the lab, which lies beside this program, also when this is started by a link.
std::string labProgram() {
  std::error_code error;
  const std::string own = platform::executablePath().value_or("");
  std::filesystem::path path = std::filesystem::canonical(own, error);
  if (error) path = own;
  return path.replace_filename("brisko-lab").string();
}

// A few lines may be broken, by a Mac that lost its power.
bool isBroken(const lab::HistoryReading& reading) {
  constexpr std::size_t manyLines = 50;  // of which one may be
  const std::size_t lines = reading.picture.moments.size() + reading.skipped;
  return reading.skipped > 1 + lines / manyLines;
}

std::string brokenText(const lab::HistoryReading& reading) {
  const std::size_t lines = reading.picture.moments.size() + reading.skipped;
  return std::to_string(reading.skipped) + " of " + std::to_string(lines) +
         " lines of the history are broken; the first is " + reading.firstSkipped.front();
}

ExitStatus play(const Context& context, const State& state, std::vector<std::string> words, int days) {
  const std::string program = labProgram();
  if (::access(program.c_str(), X_OK) != 0)
    return refuse(context,
                  "brisko-lab, which replays the days, is missing; it belongs beside brisko: " + program);
  const lab::Date today = lab::dateOf(state.now);
  std::error_code error;
  lab::HistoryReading reading =
      lab::readHistory(context.volume.at(historyDir), lab::beginOf(lab::dateAfter(today, 1 - days)),
                       lab::beginOf(lab::dateAfter(today, 1)), error);
  if (reading.skipped > 0 && isBroken(reading)) return refuse(context, brokenText(reading));
  if (reading.picture.moments.empty()) return complainOfNoHistory(context, state, reading, error);
  if (context.json()) words.emplace_back("--json");
  words.insert(words.begin(), program);
  std::string reason;
  const auto status = runWithInput(words, archiveOfDays(state, days), reason);
  return status ? static_cast<ExitStatus>(*status) : refuse(context, reason);
}

}  // namespace

ExitStatus runWhatIf(const Context& context) {
  const Invocation& invocation = context.invocation;
  Json keys = Json::object();
  for (const std::string& word : invocation.words) {
    if (const std::string reason = takeAssignment(word, invocation.command, keys); !reason.empty())
      return misuse(context, reason);
  }
  for (const auto& [key, value] : keys.items()) {
    if (const std::string reason = whyNeverMatters(key); !reason.empty()) return misuse(context, reason);
  }
  const auto days = daysIn(invocation);
  if (!days) return misuse(context, "--days takes a whole number from 1 to 366");
  const State state = readState(context.volume);
  const std::string reason = whyDoesNotMatter(keys, state.settings, state.job.lower.has_value());
  if (!reason.empty()) return refuse(context, reason);
  std::vector<std::string> words{"what-if", "-"};
  words.insert(words.end(), invocation.words.begin(), invocation.words.end());
  if (const auto page = invocation.value("--html")) words.push_back("--html=" + *page);
  return play(context, state, std::move(words), *days);
}

ExitStatus runAdvise(const Context& context) {
  const auto days = daysIn(context.invocation);
  if (!days) return misuse(context, "--days takes a whole number from 1 to 366");
  return play(context, readState(context.volume), {"advise", "-"}, *days);
}

}  // namespace brisko::client
