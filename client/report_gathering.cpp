#include "client/report_gathering.h"

#include <algorithm>
#include <array>
#include <nlohmann/json.hpp>
#include <utility>

#include <unistd.h>

#include "client/child_process.h"
#include "client/doctor/diagnosis.h"
#include "client/doctor/gathering.h"
#include "client/report_json.h"
#include "client/system.h"
#include "hardware/battery.h"
#include "platform/host.h"
#include "report/local_days.h"

namespace brisko::client {
namespace {

constexpr int historyDays = 7;
constexpr double programSeconds = 20;
constexpr double powerLogSeconds = 60;  // it covers weeks

// Those of the history, the oldest first.
std::vector<std::string> lastDays(double now, int count) {
  std::vector<std::string> days;
  const lab::Date today = lab::dateOf(now);
  for (int back = count - 1; back >= 0; --back) days.push_back(lab::isoText(lab::dateAfter(today, -back)));
  return days;
}

void takeFile(ReportPart& part, FileText text) {
  part.bytes = std::move(text.bytes);
  part.problem = text.problem == FileProblem::none      ? ""
                 : text.problem == FileProblem::missing ? "not there"
                                                        : "not readable";
}

// launchd appends to standard error without end; the newest lines matter.
FileText readAllOrEnd(const std::string& path) {
  constexpr std::size_t longest = std::size_t{4} << 20U;
  FileText text = readFile(path);
  if (text.problem == FileProblem::tooLarge) text = {.bytes = readEnd(path, longest)};
  return text;
}

std::string problemOf(CommandEnd end) {
  switch (end) {
    case CommandEnd::exited:
    case CommandEnd::signalled:
      return "";
    case CommandEnd::notFound:
    case CommandEnd::failed:
      return "not there";
    case CommandEnd::timedOut:
      return "out of time";
    case CommandEnd::tooLong:
      break;
  }
  return "not readable";
}

void takeOutput(ReportPart& part, const std::vector<std::string>& words, double seconds) {
  if (words.empty()) return;
  CommandResult result = runTogether({{words, seconds}}).front();
  part.bytes = std::move(result.output);
  part.problem = problemOf(result.end);
}

// The daemon that runs, else the installed one, else the one beside this program.
std::string daemonProgram(const State& state) {
  if (state.system.job && !state.system.job->arguments.empty() &&
      state.system.job->arguments.front().starts_with('/'))
    return state.system.job->arguments.front();
  std::string installed = "/Library/Brisko/brisko-daemon";
  const std::string own = platform::executablePath().value_or("");
  if (::access(installed.c_str(), X_OK) == 0 || own.empty()) return installed;
  return own.substr(0, own.rfind('/')) + "/brisko-daemon";
}

// The daemon overwrites the file in place; what was read of it already was whole.
void takeStatus(ReportPart& part, const State& state) {
  takeFile(part, {.problem = state.statusProblem});
  if (state.statusObject) part.bytes = jsonText(*state.statusObject).value_or("");
}

void takeJob(ReportPart& part, const State& state, const std::string& daemon) {
  const std::vector<std::string> words = commandLineFor(ReportCommand::job, daemon);
  if (!words.empty()) return takeOutput(part, words, programSeconds);
  // Where no launch service has a file of it, its arguments are known while it runs.
  if (!state.system.job || state.system.job->arguments.empty()) return;
  part.bytes = Json{{"ProgramArguments", state.system.job->arguments}}.dump();
  part.problem = "";
}

void takeBattery(ReportPart& part) {
  const platform::SharedDictionary properties = SmartBattery::properties();
  part.problem = properties ? "" : "not there";
  if (properties) part.bytes = jsonText(jsonOf(*properties)).value_or("");
}

// What no file contains.
void takeFromSystem(ReportPart& part, const State& state, const std::string& daemon) {
  if (part.name == "probe.txt") return takeOutput(part, {daemon, "--probe"}, programSeconds);
  if (part.name == "self-test.txt") return takeOutput(part, {daemon, "--selftest"}, programSeconds);
  if (part.name == "job.json") return takeJob(part, state, daemon);
  if (part.name == "battery.json") return takeBattery(part);
  if (part.name == "signature.txt")
    return takeOutput(part, commandLineFor(ReportCommand::signature, daemon), programSeconds);
  if (part.name == "power-log.txt")
    return takeOutput(part, commandLineFor(ReportCommand::powerLog, daemon), powerLogSeconds);
  if (part.name == "power-schedule.txt")
    return takeOutput(part, commandLineFor(ReportCommand::powerSchedule, daemon), programSeconds);
  if (part.name != "doctor.json") return;
  part.bytes = jsonOf(diagnose(gather(state.volume))).dump();
  part.problem = "";
}

void readParts(const State& state, std::vector<ReportPart>& parts) {
  const std::string daemon = daemonProgram(state);
  for (ReportPart& part : parts) {
    if (part.name == "status.json") {
      takeStatus(part, state);
    } else if (part.name == "config.json") {
      part.source = keptPath(state.job.config);
      takeFile(part, state.settingsFile.text);
    } else if (part.source.starts_with('/') && part.name != "job.json") {
      takeFile(part, readAllOrEnd(state.volume.at(part.source)));
    } else if (!state.volume.isForeign()) {
      takeFromSystem(part, state, daemon);
    }
  }
}

// What a play needs. Not the log of macOS: it takes long to print, and seldom reaches back that far.
bool isPlayed(const ReportPart& part) {
  constexpr std::array names{"config.json", "stats.json", "daemon.log.1",
                             "daemon.log",  "job.json",   "battery.json"};
  return part.name.starts_with("history/") || std::find(names.begin(), names.end(), part.name) != names.end();
}

}  // namespace

std::vector<ReportPart> gatherReport(const State& state) {
  std::vector<ReportPart> parts = reportParts(lastDays(state.now, historyDays));
  readParts(state, parts);
  return parts;
}

ReportFacts reportFacts(const State& state) {
  ReportFacts facts{.now = state.now, .daemonVersion = state.status ? state.status->daemonVersion : ""};
  if (state.volume.isForeign()) return facts;
  facts.macOS = platform::osMajor();
  facts.model = modelOfMac();
  return facts;
}

std::string archiveOfDays(const State& state, int days) {
  std::vector<ReportPart> parts = reportParts(lastDays(state.now, days));
  std::erase_if(parts, [](const ReportPart& part) { return !isPlayed(part); });
  readParts(state, parts);
  for (ReportPart& part : parts) {
    // It stays on this Mac, so nothing has to be left out of it.
    if (part.name.starts_with("history/"))
      part.keep = [](std::string_view text) { return KeptText{.text = std::string(text)}; };
    if (part.name == "config.json" && !state.settingsFile.object) {
      part.bytes = configObject(state.settings).dump();
      part.problem = "";
    }
  }
  return bugReport(parts, reportFacts(state)).archive;
}

}  // namespace brisko::client
