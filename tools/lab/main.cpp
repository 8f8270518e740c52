// Runs scenarios of the daemon in virtual time and checks their expectations.

#include <CLI/CLI.hpp>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <fstream>
#include <functional>
#include <optional>
#include <sstream>
#include <string>
#include <system_error>
#include <vector>

#include "report/chart.h"
#include "report/history_files.h"
#include "report/report.h"
#include "report/terminal_text.h"
#include "sim/machine/change_arguments.h"
#include "sim/machine/faults.h"
#include "sim/scenario/run_scenario.h"
#include "sim/scenario/scenario.h"
#include "sim/scenario/timing.h"
#include "sim/scenario/trace.h"
#include "sim/schema/json_schema.h"
#include "tools/lab/campaign_commands.h"
#include "tools/lab/fail_calls_command.h"
#include "tools/lab/merge_command.h"
#include "tools/lab/nights_command.h"
#include "tools/lab/readers_zone.h"
#include "tools/lab/replay_command.h"
#include "tools/lab/what_if_command.h"

namespace brisko::lab {
namespace {

// Exit statuses.
constexpr int allPassed = 0;
constexpr int someFailed = 1;
constexpr int misused = 2;  // a bad file or an invalid command line

void print(const std::string& text) { static_cast<void>(std::fputs(forTerminal(text).c_str(), stdout)); }

void complain(const std::string& text) {
  static_cast<void>(std::fprintf(stderr, "%s\n", forTerminal(text).c_str()));
}

std::optional<std::string> contentsOf(const std::string& path) {
  std::ifstream stream(path, std::ios::binary);
  std::ostringstream text;
  if (!stream || !(text << stream.rdbuf())) return std::nullopt;
  return text.str();
}

// The files to write; "" for none.
struct OutputFiles {
  std::string report = {};
  std::string svg = {};
  std::string log = {};
  std::string trace = {};
  std::string volume = {};  // the new folder for a copy of the Mac's volume

  [[nodiscard]] bool wantPicture() const { return !report.empty() || !svg.empty(); }
  [[nodiscard]] bool wanted() const {
    return wantPicture() || !log.empty() || !trace.empty() || !volume.empty();
  }
};

// An existing folder is never changed.
bool keepVolume(const std::string& volume, const std::string& folder) {
  std::error_code error;
  const bool isNew = std::filesystem::create_directory(folder, error);
  if (isNew) std::filesystem::copy(volume, folder, std::filesystem::copy_options::recursive, error);
  if (isNew && !error) return true;
  complain("brisko-lab: " + folder + ": " + (error ? error.message() : "exists already"));
  return false;
}

bool writeFile(const std::string& path, const std::string& text) {
  std::ofstream stream(path, std::ios::binary | std::ios::trunc);
  stream << text;
  stream.close();
  if (stream) return true;
  complain("brisko-lab: " + path + ": cannot be written");
  return false;
}

bool writeLog(const std::vector<std::string>& lines, const std::string& path) {
  std::string text;
  for (const std::string& line : lines) text += line + "\n";
  return path.empty() || writeFile(path, text);
}

bool writePictures(const Picture& picture, const OutputFiles& files) {
  if (!files.report.empty() && !writeFile(files.report, reportPage(picture))) return false;
  return files.svg.empty() || writeFile(files.svg, drawChart(picture, Frame::alone).svg);
}

bool writePictures(const Scenario& scenario, const Outcome& outcome, const Recording& recording,
                   const OutputFiles& files) {
  Picture picture = recording.picture();
  picture.title = scenario.description;
  picture.facts = std::string(virtual_mac::textOf(scenario.setup.machine.model)) + ", macOS " +
                  std::to_string(scenario.setup.machine.system.macOS);
  picture.failures = outcome.failures;
  return writePictures(picture, files);
}

int runFile(const std::string& path, const OutputFiles& files) {
  Diagnostics diagnostics(path);
  const auto text = contentsOf(path);
  if (!text) diagnostics.add("", "cannot be read");
  if (text && !schema::hasValidator()) diagnostics.add("", schema::noValidatorText);
  const auto scenario = text && schema::hasValidator() ? readScenario(*text, diagnostics) : std::nullopt;
  if (!scenario) {
    for (const std::string& diagnostic : diagnostics.texts()) complain(diagnostic);
    return misused;
  }
  std::optional<Recording> recording;
  if (files.wantPicture()) recording.emplace();
  bool isKept = true;
  RunOptions options{.recording = recording ? &*recording : nullptr};
  options.atEnd = [&](const sim::Simulation& simulation) {
    isKept = files.volume.empty() || keepVolume(simulation.root(), files.volume);
    if (!files.trace.empty()) isKept = writeFile(files.trace, traceOf(simulation)) && isKept;
  };
  const Outcome outcome = runScenario(*scenario, diagnostics, options);
  const bool holds = outcome.failures.empty();
  print(std::string(holds ? "ok    " : "FAIL  ") + path + " (" + spanText(outcome.seconds) +
        "): " + scenario->description + "\n");
  if (!holds) print(reportOf(outcome));
  if (recording && !writePictures(*scenario, outcome, *recording, files)) return misused;
  if (!isKept || !writeLog(outcome.wholeLog, files.log)) return misused;
  return holds ? allPassed : someFailed;
}

int runFiles(const std::vector<std::string>& paths, const OutputFiles& files) {
  if (files.wanted() && paths.size() > 1) {
    complain(
        "brisko-lab: --report, --svg, --log, --trace and --volume are for a single scenario; name one "
        "FILE.json");
    return misused;
  }
  std::size_t held = 0;
  std::size_t failed = 0;
  for (const std::string& path : paths) {
    const int status = runFile(path, files);
    held += status == allPassed ? 1 : 0;
    failed += status == someFailed ? 1 : 0;
  }
  const std::size_t bad = paths.size() - held - failed;
  if (paths.size() > 1) {
    print(std::to_string(paths.size()) + " scenarios: " + std::to_string(held) + " hold, " +
          std::to_string(failed) + " failed, " + std::to_string(bad) + " could not be read\n");
  }
  return bad > 0 ? misused : failed > 0 ? someFailed : allPassed;
}

int drawHistory(const std::string& folder, const OutputFiles& files) {
  if (!files.wantPicture()) {
    complain("brisko-lab: no output file: give --report OUT.html, --svg OUT.svg or both");
    return misused;
  }
  useReadersZone();
  std::string reason;
  const auto reading = readHistory(folder, reason);
  if (!reading) {
    complain(folder + ": " + reason);
    return misused;
  }
  for (const std::string& skipped : reading->firstSkipped) complain(skipped);
  print(folder + ": " + reading->picture.facts + ", " + std::to_string(reading->skipped) + " broken\n");
  return writePictures(reading->picture, files) ? allPassed : misused;
}

int listActions() {
  print("What happens to the service, the app and the files:\n");
  for (const std::string& name : ownActionNames()) print("  " + name + "\n");
  print("What happens to the machine:\n" + vmac::faultList());
  return allPassed;
}

void addPictureOptions(CLI::App& command, OutputFiles& files) {
  command.add_option("--report", files.report, "OUT.html: a page with the chart, the values and the log");
  command.add_option("--svg", files.svg, "OUT.svg: the chart alone");
}

int run(int count, char** arguments) {
  CLI::App program{"Runs scenarios of the daemon in virtual time.", "brisko-lab"};
  program.require_subcommand(1);
  std::function<int()> chosen;
  std::vector<std::string> paths;
  std::string folder;
  OutputFiles files;
  CLI::App* runs = program.add_subcommand(
      "run", "run scenarios; status 0: all passed, 1: one failed, 2: a file is invalid");
  runs->add_option("files", paths, "FILE.json …")->required();
  addPictureOptions(*runs, files);
  runs->add_option("--log", files.log, "OUT.log: everything that the daemon logged");
  runs->add_option("--trace", files.trace, "OUT.txt: the log, the Mac's files and the journal of its keys");
  runs->add_option("--volume", files.volume, "FOLDER for a copy of the Mac's files, for brisko --volume");
  runs->callback([&] { chosen = [&] { return runFiles(paths, files); }; });
  CLI::App* draws = program.add_subcommand("history", "draw a daemon's history");
  draws->add_option("folder", folder, "FOLDER with its daily files")->required();
  addPictureOptions(*draws, files);
  draws->callback([&] { chosen = [&] { return drawHistory(folder, files); }; });
  program.add_subcommand("actions", "list what can happen in a scenario")->callback([&] {
    chosen = listActions;
  });
  addCampaignCommands(program, chosen);
  addFailCallsCommand(program, chosen);
  addMergeCommand(program, chosen);
  addNightsCommand(program, chosen);
  addReplayCommand(program, chosen);
  addWhatIfCommands(program, chosen);
  try {
    program.parse(count, arguments);
  } catch (const CLI::ParseError& error) {
    return program.exit(error) == 0 ? allPassed : misused;
  }
  return chosen();
}

}  // namespace
}  // namespace brisko::lab

int main(int count, char** arguments) {
  brisko::lab::useUtc();
  try {
    return brisko::lab::run(count, arguments);
  } catch (const std::exception& error) {
    brisko::lab::complain(std::string("brisko-lab: ") + error.what());
    return 2;
  }
}
