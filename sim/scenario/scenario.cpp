#include "sim/scenario/scenario.h"

#include <filesystem>
#include <utility>

#include "sim/dump_import/dump_import.h"
#include "sim/machine/models.h"
#include "sim/scenario/scenario_schema.h"

namespace brisko::lab {
namespace {

using virtual_mac::MachineOptions;

template <typename Value>
void take(const Json& object, const char* key, Value& value) {
  if (object.contains(key)) object.at(key).get_to(value);
}

MachineOptions optionsFrom(const JsonCursor& place) {
  const Json& mac = place.value();
  MachineOptions options;
  options.gate = virtual_mac::kindNamed(virtual_mac::gateNames, mac.value("gate", std::string()));
  options.cut = virtual_mac::kindNamed(virtual_mac::cutNames, mac.value("cut", std::string()));
  if (mac.contains("light")) options.magSafeLight = mac.at("light").get<bool>();
  take(mac, "macOS", options.macOS);
  take(mac, "chargeLimit", options.chargeLimit);
  take(mac, "percent", options.percent);
  take(mac, "plugged", options.plugged);
  take(mac, "uptime", options.uptime);
  if (!mac.contains("start")) return options;
  const auto start = parseDate(mac.at("start").get<std::string>());
  if (!start) place.at("start").addError("there is no such date");
  options.startTime = start.value_or(options.startTime);
  return options;
}

// The path of a dump is relative to the scenario's folder.
std::optional<virtual_mac::Machine> readMac(const JsonCursor& place) {
  const Json& mac = place.value();
  const MachineOptions options = optionsFrom(place);
  if (!mac.contains("dump")) {
    return virtual_mac::makeMachine(*virtual_mac::findModel(mac.value("model", "air13")), options);
  }
  for (const char* known : {"model", "percent", "plugged"}) {
    if (mac.contains(known)) place.at(known).addError("the dump already says it");
  }
  const auto folder = std::filesystem::path(place.diagnostics().file()).parent_path();
  std::string reason;
  auto machine = machineFromDumpFile((folder / mac.at("dump").get<std::string>()).string(), options, reason);
  if (!machine) place.at("dump").addError(reason);
  return machine;
}

void readDaemon(const Json& daemon, sim::SimulationSetup& setup) {
  if (daemon.contains("arguments")) setup.arguments = textsOf(daemon.at("arguments"));
  take(daemon, "environment", setup.environment);
  take(daemon, "keptAlive", setup.keptAlive);
  take(daemon, "started", setup.started);
}

std::vector<Check> readExpectations(const JsonCursor& place, std::vector<std::string>& expectedLines) {
  Checks checks;
  readChecks(place, checks);
  expectedLines.insert(expectedLines.end(), checks.expectedLines.begin(), checks.expectedLines.end());
  return std::move(checks.all);
}

Step readStep(const JsonCursor& place, std::vector<std::string>& expectedLines) {
  Step step{.place = place.pointer()};
  const Json& words = place.value();
  if (words.contains("at")) {
    step.at = parseTiming(words.at("at").get<std::string>());
    if (!step.at) place.at("at").addError("there is no such time");
  }
  if (words.contains("do")) step.actions = readActions(place.at("do"));
  if (words.contains("see")) step.checks = readExpectations(place.at("see"), expectedLines);
  return step;
}

void readMembers(const JsonCursor& place, Scenario& scenario) {
  const Json& words = place.value();
  words.at("description").get_to(scenario.description);
  scenario.invariantsOnly = scenario.setup.backsOff = words.contains("mode");
  if (words.contains("daemon")) readDaemon(words.at("daemon"), scenario.setup);
  if (words.contains("settings")) scenario.settings = contentOf(words.at("settings"));
  if (words.contains("before")) scenario.before = readActions(place.at("before"));
  for (const JsonCursor& step : place.at("timeline").elements()) {
    scenario.steps.push_back(readStep(step, scenario.expectedLines));
  }
  if (words.contains("end")) scenario.end = readExpectations(place.at("end"), scenario.expectedLines);
}

}  // namespace

std::optional<Scenario> readScenario(std::string_view text, Diagnostics& diagnostics) {
  const auto document = parseStrictly(text, diagnostics);
  if (!document || !meetsSchema(text, *document, diagnostics)) return std::nullopt;
  const JsonCursor place(*document, Json::json_pointer(), diagnostics);
  const Json nothing = Json::object();
  const Json::json_pointer mac("/mac");
  const auto machine =
      readMac(document->contains(mac) ? place.at("mac") : JsonCursor(nothing, mac, diagnostics));
  if (!machine) return std::nullopt;

  Scenario scenario{.setup = {.machine = *machine}};
  readMembers(place, scenario);
  bool asksNothing = scenario.end.empty() && !scenario.invariantsOnly;
  for (const Step& step : scenario.steps) asksNothing = asksNothing && step.checks.empty();
  if (asksNothing) place.addError("expects nothing, so it cannot fail");
  if (!diagnostics.none()) return std::nullopt;
  return scenario;
}

}  // namespace brisko::lab
