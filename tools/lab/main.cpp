// Tells stories about the daemon in virtual time and looks whether they go as they should.

#include <CLI/CLI.hpp>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <fstream>
#include <functional>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "lab/campaign_commands.h"
#include "lab/run_scenario.h"
#include "lab/scenario.h"
#include "lab/timing.h"
#include "platform/virtual/faults.h"
#include "vmac/change_words.h"

namespace brisko::lab {
namespace {

// Exit statuses.
constexpr int allHold = 0;
constexpr int someFail = 1;
constexpr int misused = 2;  // a bad file, or words that are none

void print(const std::string& text) { static_cast<void>(std::fwrite(text.data(), 1, text.size(), stdout)); }

void complain(const std::string& text) { static_cast<void>(std::fprintf(stderr, "%s\n", text.c_str())); }

std::optional<std::string> contentsOf(const std::string& path) {
  std::ifstream stream(path, std::ios::binary);
  std::ostringstream text;
  if (!stream || !(text << stream.rdbuf())) return std::nullopt;
  return text.str();
}

int runFile(const std::string& path) {
  Complaints complaints(path);
  const auto text = contentsOf(path);
  if (!text) complaints.add("", "cannot be read");
  const auto scenario = text ? readScenario(*text, complaints) : std::nullopt;
  if (!scenario) {
    for (const std::string& complaint : complaints.texts()) complain(complaint);
    return misused;
  }
  const Outcome outcome = runScenario(*scenario, complaints);
  const bool holds = outcome.failures.empty();
  print(std::string(holds ? "ok    " : "FAIL  ") + path + " (" + spanText(outcome.seconds) +
        "): " + scenario->story + "\n");
  if (!holds) print(reportOf(outcome));
  return holds ? allHold : someFail;
}

int runFiles(const std::vector<std::string>& paths) {
  std::size_t held = 0;
  std::size_t failed = 0;
  for (const std::string& path : paths) {
    const int status = runFile(path);
    held += status == allHold ? 1 : 0;
    failed += status == someFail ? 1 : 0;
  }
  const std::size_t bad = paths.size() - held - failed;
  if (paths.size() > 1) {
    print(std::to_string(paths.size()) + " scenarios: " + std::to_string(held) + " hold, " +
          std::to_string(failed) + " failed, " + std::to_string(bad) + " could not be read\n");
  }
  return bad > 0 ? misused : failed > 0 ? someFail : allHold;
}

int listActions() {
  print("What happens to the service, the app and the files:\n");
  for (const std::string& name : ownActionNames()) print("  " + name + "\n");
  print("What happens to the machine:\n" + vmac::faultList());
  return allHold;
}

int run(int count, char** arguments) {
  CLI::App program{"Tells stories about the daemon in virtual time.", "brisko-lab"};
  program.require_subcommand(1);
  std::function<int()> chosen;
  std::vector<std::string> paths;
  CLI::App* runs = program.add_subcommand(
      "run", "play scenarios; status 0: all hold, 1: one does not, 2: a file is no scenario");
  runs->add_option("files", paths, "FILE.json …")->required();
  runs->callback([&] { chosen = [&] { return runFiles(paths); }; });
  program.add_subcommand("actions", "list what can happen in a scenario")->callback([&] {
    chosen = listActions;
  });
  addCampaignCommands(program, chosen);
  try {
    program.parse(count, arguments);
  } catch (const CLI::ParseError& error) {
    return program.exit(error) == 0 ? allHold : misused;
  }
  return chosen();
}

}  // namespace
}  // namespace brisko::lab

int main(int count, char** arguments) {
  // The daemon's local days are those of the scenarios' clocks, wherever this runs.
  ::setenv("TZ", "UTC", 1);
  try {
    return brisko::lab::run(count, arguments);
  } catch (const std::exception& error) {
    brisko::lab::complain(std::string("brisko-lab: ") + error.what());
    return 2;
  }
}
