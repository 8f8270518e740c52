#include "client/bug_report.h"

#include <algorithm>
#include <array>
#include <nlohmann/json.hpp>
#include <utility>

#include "base/options.h"
#include "base/paths.h"
#include "base/process_flags.h"
#include "base/utc_text.h"
#include "client/log_reader.h"
#include "client/report_json.h"
#include "report/ustar.h"

namespace brisko::client {
namespace {

constexpr const char* archiveFolder = "brisko-report/";
constexpr const char* errorLogPath = "/Library/Logs/Brisko/daemon.err.log";

Json entryOf(const ReportPart& part, const KeptText& kept) {
  return {{"name", part.name},
          {"source", part.source},
          {"bytes", kept.text.size()},
          {"lines", std::count(kept.text.begin(), kept.text.end(), '\n')},
          {"dropped", kept.dropped}};
}

// Identifiers of models have this form; anything else stays out.
bool isModel(const std::string& name) {
  const std::size_t digits = std::min(name.find_first_of("0123456789"), name.size());
  const bool isName = std::all_of(
      name.begin(), name.begin() + static_cast<std::ptrdiff_t>(digits),
      [](char letter) { return (letter >= 'A' && letter <= 'Z') || (letter >= 'a' && letter <= 'z'); });
  return isName && digits > 0 && digits <= 14 &&
         fitsPattern(std::string_view(name).substr(digits), "<@|@@>,<@|@@>");
}

Json systemOf(const ReportFacts& facts) {
  Json system{{"macOS", facts.macOS}};
  if (facts.model && isModel(*facts.model)) system["model"] = *facts.model;
  return system;
}

std::string stampOf(double moment) {
  const UtcText text = utcText(moment);
  return text.date + "T" + text.time + "Z";
}

}  // namespace

std::vector<ReportPart> reportParts(const std::vector<std::string>& days) {
  std::vector<ReportPart> parts{{"status.json", statusPath, keptStatus},
                                {"config.json", defaultConfigPath, keptConfig},
                                {"stats.json", statsPath, keptStatistics},
                                {"calibration.json", calibrationPath, keptCalibration}};
  for (const std::string& day : days) {
    const std::string name = day + ".jsonl";
    parts.push_back({"history/" + name, std::string(historyDir) + "/" + name, keptHistory});
  }
  const std::string firstDay = days.empty() ? "" : days.front();
  std::vector<ReportPart> others{{"daemon.log.1", previousLogPath, keptLog},
                                 {"daemon.log", logPath, keptLog},
                                 {"daemon.err.log", errorLogPath, keptStandardError},
                                 {"probe.txt", "brisko-daemon --probe", keptProbe},
                                 {"self-test.txt", "brisko-daemon --selftest", keptSelfTest},
                                 {"doctor.json", "brisko doctor --json", keptDoctor},
                                 {"job.json", "/Library/LaunchDaemons/com.brisko.daemon.plist", keptJob},
                                 {"signature.txt", "codesign -dv", keptSignature},
                                 {"power-log.txt", "pmset -g log",
                                  [firstDay](std::string_view text) { return keptPowerLog(text, firstDay); }},
                                 {"power-schedule.txt", "pmset -g sched", keptPowerSchedule},
                                 {"battery.json", "AppleSmartBattery", keptBattery}};
  std::move(others.begin(), others.end(), std::back_inserter(parts));
  return parts;
}

BugReport bugReport(const std::vector<ReportPart>& parts, const ReportFacts& facts) {
  std::vector<lab::ArchiveMember> members(1);
  Json files = Json::array();
  Json leftOut = Json::array();
  for (const ReportPart& part : parts) {
    KeptText kept = part.problem.empty() ? part.keep(part.bytes) : KeptText{};
    const std::string problem = kept.unreadable ? "not readable" : part.problem;
    if (problem.empty()) {
      files.push_back(entryOf(part, kept));
      members.push_back({archiveFolder + part.name, std::move(kept.text)});
    } else {
      leftOut.push_back({{"name", part.name}, {"source", part.source}, {"why", problem}});
    }
  }
  BugReport report{.manifest = {{"format", 1},
                                {"created", stampOf(facts.now)},
                                {"clientVersion", brisko::daemonVersion},
                                {"system", systemOf(facts)},
                                {"files", std::move(files)},
                                {"leftOut", std::move(leftOut)}},
                   .archive = {}};
  if (fitsPattern(facts.daemonVersion, "<@|@@>.<@|@@>.<@|@@>"))
    report.manifest["daemonVersion"] = facts.daemonVersion;
  members.front() = {std::string(archiveFolder) + "manifest.json", report.manifest.dump(2) + "\n"};
  report.archive = lab::ustarArchive(members, static_cast<std::int64_t>(facts.now));
  return report;
}

}  // namespace brisko::client
