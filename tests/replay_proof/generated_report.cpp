#include "replay_proof/generated_report.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <vector>

#include "base/options.h"
#include "base/paths.h"
#include "report/ustar.h"
#include "sim/generate/rng.h"
#include "sim/machine/properties.h"
#include "sim/scenario/run_scenario.h"

namespace brisko::proof {
namespace {

using lab::ArchiveMember;
using lab::Moment;
using lab::ScenarioJson;
using lab::Wakefulness;
using nlohmann::json;

constexpr std::uint64_t faultStream = 7;  // besides those of the scenario
constexpr const char* folder = "brisko-report/";
constexpr const char* logPath = "/Library/Logs/Brisko/daemon.log";

// --- The Mac's files

std::optional<std::string> contentsOf(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) return std::nullopt;
  return std::string{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

class Archive {
 public:
  explicit Archive(std::string volume) : volume_(std::move(volume)) {}

  void add(const std::string& name, std::string contents) {
    members_.push_back({folder + name, std::move(contents)});
  }
  void addFile(const std::string& name, const std::string& path) {
    if (auto contents = contentsOf(volume_ + path)) add(name, std::move(*contents));
  }
  void addHistory() {
    std::vector<std::string> names;
    std::error_code failure;
    for (std::filesystem::directory_iterator entry(volume_ + historyDir, failure);
         !failure && entry != std::filesystem::directory_iterator(); entry.increment(failure))
      names.push_back(entry->path().filename().string());
    std::sort(names.begin(), names.end());
    for (const std::string& name : names) addFile("history/" + name, std::string(historyDir) + "/" + name);
  }
  [[nodiscard]] std::string bytes() const { return ustarArchive(members_, 0); }

 private:
  std::string volume_;
  std::vector<ArchiveMember> members_ = {};
};

// --- What macOS knows

json jsonOf(const platform::Value& value);

json jsonOf(const platform::Dictionary& dictionary) {
  json object = json::object();
  for (const auto& [key, value] : dictionary) object[key] = jsonOf(value);
  return object;
}

json jsonOf(const platform::Value& value) {
  if (const auto boolean = value.asBoolean()) return *boolean;
  if (const auto integer = value.asWrappedInteger()) return *integer;
  if (const auto real = value.asDouble()) return *real;
  if (const std::string* text = value.asText()) return *text;
  if (const platform::Dictionary* dictionary = value.asDictionary()) return jsonOf(*dictionary);
  return nullptr;
}

// "2026-03-01 08:15:30 +0000"
std::string stampOf(double time) {
  const auto seconds = static_cast<std::time_t>(time);
  std::tm parts{};
  ::gmtime_r(&seconds, &parts);
  std::array<char, 32> text{};
  static_cast<void>(std::strftime(text.data(), text.size(), "%Y-%m-%d %H:%M:%S +0000", &parts));
  return text.data();
}

// As `pmset -g log` prints them. On its way to sleep a Mac is dark for some seconds, which is no dark wake.
std::string powerLogOf(const std::vector<Moment>& moments) {
  std::string text;
  const auto add = [&text](double time, const char* what) { text += stampOf(time) + " " + what + "\n"; };
  Wakefulness before = Wakefulness::awake;
  bool fellAsleep = false;
  for (const Moment& moment : moments) {
    const Wakefulness now = moment.wakefulness.value_or(Wakefulness::awake);
    if (now == before) continue;
    if (now == Wakefulness::asleep) add(moment.time, "Sleep               \tEntering Sleep state");
    if (now == Wakefulness::darkWake && before == Wakefulness::asleep)
      add(moment.time, "DarkWake            \tDarkWake from Deep Idle");
    if (now == Wakefulness::awake && fellAsleep)
      add(moment.time, "Wake                \tWake from Deep Idle");
    fellAsleep = now == Wakefulness::asleep || (fellAsleep && now == Wakefulness::darkWake);
    before = now;
  }
  return text;
}

std::string jobOf(const lab::Scenario& scenario) {
  json arguments = json::array({"/Library/PrivilegedHelperTools/brisko-daemon"});
  for (const std::string& argument : scenario.setup.arguments) arguments.push_back(argument);
  return json{{"Label", "com.brisko.daemon"}, {"ProgramArguments", arguments}}.dump();
}

std::string archiveOf(const std::string& volume, const lab::Scenario& scenario,
                      const virtual_mac::Machine& machine, const std::string& powerLog) {
  Archive archive(volume);
  const json system = {{"macOS", std::to_string(machine.system.macOS) + ".0"}};
  archive.add("manifest.json", json{{"format", 1}, {"system", system}}.dump());
  archive.addFile("status.json", statusPath);
  archive.addFile("config.json", defaultConfigPath);
  archive.addFile("stats.json", statsPath);
  archive.addFile("calibration.json", calibrationPath);
  archive.addHistory();
  archive.addFile("daemon.log", logPath);
  archive.addFile("daemon.log.1", std::string(logPath) + ".1");
  archive.add("job.json", jobOf(scenario));
  if (!powerLog.empty()) archive.add("power-log.txt", powerLog);
  const auto battery = virtual_mac::entryProperties(machine, "AppleSmartBattery");
  if (battery) archive.add("battery.json", jsonOf(*battery).dump());
  return archive.bytes();
}

// --- Hidden faults

std::string gateKeyOf(const ScenarioJson& mac) {
  const std::string model = mac.value("model", "air13");
  const std::string gate = mac.value("gate", model == "air13"   ? "chte"
                                             : model == "pro14" ? "ch0b0c"
                                                                : "firmware-band");
  if (gate == "chte") return "CHTE";
  return gate == "ch0b0c" ? "CH0B" : "bfD0";
}

ScenarioJson randomFault(const ScenarioJson& mac, lab::Rng& rng) {
  switch (rng.between(0, 3)) {
    case 0:
      return lab::actionOf("charge", rng.between(25, 95));
    case 1:
      return lab::actionOf("trickle", 1500);
    case 2:
      return lab::actionOf("health", 2500);
    default:
      return lab::actionOf("key-ignores-write", gateKeyOf(mac));
  }
}

bool differ(const lab::Sighting& one, const lab::Sighting& other) {
  return one.time != other.time || one.percent != other.percent || one.state != other.state ||
         one.plugged != other.plugged || one.hot != other.hot || one.watts != other.watts;
}

template <typename Item, typename Differ>
void noteFirst(const std::vector<Item>& one, const std::vector<Item>& other, Differ differs,
               std::optional<double>& first) {
  const std::size_t most = std::min(one.size(), other.size());
  std::size_t index = 0;
  while (index < most && !differs(one[index], other[index])) ++index;
  std::optional<double> time;
  if (index < most) {
    time = std::min(one[index].time, other[index].time);
  } else if (one.size() != other.size()) {
    time = one.size() > most ? one[most].time : other[most].time;
  }
  if (time) first = std::min(first.value_or(*time), *time);
}

}  // namespace

GeneratedReport reportOf(const lab::GeneratedScenario& generated, const ReportOptions& options) {
  lab::Diagnostics diagnostics("the generated scenario");
  const auto scenario = lab::readScenario(scenarioText(generated), diagnostics);
  if (!scenario) throw std::logic_error("the generated scenario is invalid: " + diagnostics.texts().front());
  GeneratedReport report;
  lab::Recording recording;
  virtual_mac::Machine machine = scenario->setup.machine;
  lab::RunOptions run{.recording = &recording};
  run.afterStep = [&machine](const sim::Simulation& simulation) { machine = simulation.machine(); };
  run.atEnd = [&](const sim::Simulation& simulation) {
    const std::string powerLog = options.powerLog ? powerLogOf(recording.picture().moments) : "";
    report.archive = archiveOf(simulation.root(), *scenario, machine, powerLog);
  };
  const lab::Outcome outcome = runScenario(*scenario, diagnostics, run);
  if (!outcome.failures.empty()) report.failure = outcome.failures.front();
  return report;
}

HiddenFault addHiddenFault(std::uint64_t seed, lab::GeneratedScenario& scenario) {
  lab::Rng rng(seed, faultStream);
  const std::int64_t at = rng.between(scenario.seconds / 7, scenario.seconds / 2);
  const ScenarioJson action = randomFault(scenario.mac, rng);
  const auto place = std::find_if(scenario.timedActions.begin(), scenario.timedActions.end(),
                                  [at](const lab::TimedAction& other) { return other.at >= at; });
  scenario.timedActions.insert(place, {at, action});
  return {at, action.dump()};
}

std::optional<double> firstDifference(const lab::Trace& one, const lab::Trace& other) {
  std::optional<double> first;
  noteFirst(one.sightings, other.sightings, differ, first);
  noteFirst(
      one.lines, other.lines,
      [](const lab::LoggedLine& left, const lab::LoggedLine& right) {
        return left.time != right.time || left.text != right.text;
      },
      first);
  return first;
}

}  // namespace brisko::proof
