#include "tools/lab/replay_command.h"

#include <CLI/CLI.hpp>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <memory>
#include <optional>
#include <sstream>
#include <string>

#include "report/report.h"
#include "report/terminal_text.h"
#include "sim/replay/comparison.h"
#include "sim/replay/play.h"
#include "sim/replay/reconstruct.h"
#include "sim/replay/reported_days.h"
#include "tools/lab/campaign_commands.h"

namespace brisko::lab {
namespace {

constexpr std::uintmax_t largestReport = std::uintmax_t{64} << 20U;  // bytes

struct ReplayCommandLine {
  std::string report = {};
  std::string scenario = {};  // files to write; "" for none
  std::string page = {};
};

int complainAbout(const std::string& path, const std::string& what) {
  const std::string text = forTerminal("brisko-lab: " + path + ": " + what + "\n");
  static_cast<void>(std::fputs(text.c_str(), stderr));
  return usageError;
}

std::optional<std::string> bytesOf(const std::string& path, std::string& reason) {
  std::error_code failure;
  const std::uintmax_t size = std::filesystem::file_size(path, failure);
  if (!failure && size > largestReport) {
    reason = "is larger than 64 MiB";
    return std::nullopt;
  }
  std::ifstream file(path, std::ios::binary);
  std::ostringstream bytes;
  if (failure || !file || !(bytes << file.rdbuf())) {
    reason = "cannot be read";
    return std::nullopt;
  }
  return bytes.str();
}

bool writeText(const std::string& path, const std::string& text) {
  std::ofstream file(path, std::ios::binary | std::ios::trunc);
  file << text;
  file.close();
  if (file) return true;
  complainAbout(path, "cannot be written");
  return false;
}

// The scenario reads the battery from a second file beside it.
bool writeScenario(const Reconstruction& reconstruction, const std::string& path) {
  std::filesystem::path battery(path);
  battery.replace_extension(".battery.json");
  return writeText(battery.string(), reconstruction.registry) &&
         writeText(path, scenarioFileText(reconstruction, battery.filename().string()));
}

bool writePage(const Reconstruction& reconstruction, const Trace& reported, const Trace& replayed,
               const Comparison& comparison, const std::string& path) {
  Picture picture = comparisonPicture(reported, replayed, comparison);
  picture.title = "A report and its replay";
  picture.facts = std::string(virtual_mac::textOf(reconstruction.machine.model)) + ", macOS " +
                  std::to_string(reconstruction.machine.system.macOS);
  picture.notes = reconstruction.assumptions;
  return writeText(path, reportPage(picture));
}

int replay(const ReplayCommandLine& line) {
  std::string reason;
  const auto bytes = bytesOf(line.report, reason);
  if (!bytes) return complainAbout(line.report, reason);
  const ReportReading reading = readReport(*bytes);
  if (!reading.days) return complainAbout(line.report, reading.error);
  const Reconstruction reconstruction = reconstruct(*reading.days);
  if (!line.scenario.empty() && !writeScenario(reconstruction, line.scenario)) return usageError;
  const Trace replayed = play(reconstruction);
  if (replayed.sightings.empty())
    return complainAbout(line.report, "the daemon of the replay recorded nothing");
  const Comparison comparison = compare(reading.days->trace, replayed);
  std::string text;
  for (const std::string& assumption : reconstruction.assumptions) text += assumption + "\n";
  static_cast<void>(std::fputs(forTerminal(text + comparisonText(comparison)).c_str(), stdout));
  const bool isWritten =
      line.page.empty() || writePage(reconstruction, reading.days->trace, replayed, comparison, line.page);
  return isWritten ? 0 : usageError;
}

}  // namespace

void addReplayCommand(CLI::App& program, std::function<int()>& chosen) {
  const auto line = std::make_shared<ReplayCommandLine>();
  CLI::App* command = program.add_subcommand(
      "replay", "replay the days of a bug report, and print how far they agree and what differs first");
  command->add_option("report", line->report, "REPORT.tar, as brisko report writes it")->required();
  command->add_option("--scenario", line->scenario,
                      "OUT.json: the days as a scenario; its battery is in OUT.battery.json");
  command->add_option("--html", line->page, "OUT.html: a page with both curves");
  command->callback([line, &chosen] { chosen = [line] { return replay(*line); }; });
}

}  // namespace brisko::lab
