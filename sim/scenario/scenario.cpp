#include "sim/scenario/scenario.h"

#include <filesystem>
#include <utility>

#include "sim/dump_import/dump_import.h"
#include "sim/machine/models.h"

namespace brisko::lab {
namespace {

using virtual_mac::CutKind;
using virtual_mac::GateKind;
using virtual_mac::MachineOptions;

constexpr std::pair<const char*, GateKind> gates[] = {{"chte", GateKind::chte},
                                                      {"ch0b0c", GateKind::ch0b0c},
                                                      {"firmware-band", GateKind::firmwareBand},
                                                      {"none", GateKind::none}};
constexpr std::pair<const char*, CutKind> cuts[] = {
    {"chie", CutKind::chie}, {"ch0i", CutKind::ch0i}, {"ch0j", CutKind::ch0j}, {"none", CutKind::none}};

template <typename Kind, std::size_t count>
std::optional<Kind> readKind(const JsonCursor& place, const std::pair<const char*, Kind> (&kinds)[count]) {
  std::vector<std::string> words;
  for (const auto& kind : kinds) words.emplace_back(kind.first);
  const auto word = place.oneOf(words);
  for (const auto& [name, kind] : kinds) {
    if (word == name) return kind;
  }
  return std::nullopt;
}

std::optional<double> readStart(const JsonCursor& place) {
  const auto text = place.text();
  const auto start = text ? parseDate(*text) : std::nullopt;
  if (text && !start) place.expected("a date like \"2026-03-01 08:00\"");
  return start;
}

// The description of the Mac. Paths are relative to the scenario's folder.
struct MacDescription {
  std::string model = "air13";
  std::optional<std::string> dump = std::nullopt;
  MachineOptions options = {};
};

MacDescription readMacDescription(const JsonCursor& place) {
  MacDescription words;
  MachineOptions& options = words.options;
  std::vector<std::string> models;
  for (const virtual_mac::Model& model : virtual_mac::models()) models.emplace_back(model.name);
  for (const JsonCursor& member : place.members({"model", "dump", "gate", "cut", "light", "macOS",
                                                 "chargeLimit", "percent", "plugged", "uptime", "start"})) {
    const std::string name = member.name();
    if (name == "model") words.model = member.oneOf(models).value_or(words.model);
    if (name == "dump") words.dump = member.text();
    if (name == "gate") options.gate = readKind(member, gates);
    if (name == "cut") options.cut = readKind(member, cuts);
    if (name == "light") options.magSafeLight = member.boolean();
    if (name == "macOS") options.macOS = member.integer(11, 99).value_or(options.macOS);
    if (name == "chargeLimit") options.chargeLimit = member.boolean().value_or(true);
    if (name == "percent") options.percent = member.number(0, 100).value_or(options.percent);
    if (name == "plugged") options.plugged = member.boolean().value_or(true);
    if (name == "uptime") options.uptime = member.number(0, 1e9).value_or(options.uptime);
    if (name == "start") options.startTime = readStart(member).value_or(options.startTime);
  }
  return words;
}

std::optional<virtual_mac::Machine> readMac(const JsonCursor& place) {
  const MacDescription words = readMacDescription(place);
  if (!words.dump) return virtual_mac::makeMachine(*virtual_mac::findModel(words.model), words.options);
  for (const char* known : {"model", "percent", "plugged"}) {
    if (place.value().contains(known)) place.at(known).complain("is what the dump says");
  }
  const auto folder = std::filesystem::path(place.diagnostics().file()).parent_path();
  std::string reason;
  auto machine = machineFromDumpFile((folder / *words.dump).string(), words.options, reason);
  if (!machine) place.at("dump").complain(reason);
  return machine;
}

void readDaemon(const JsonCursor& place, sim::SimulationSetup& setup) {
  for (const JsonCursor& member : place.members({"arguments", "environment", "keptAlive", "started"})) {
    const std::string name = member.name();
    if (name == "arguments") setup.arguments = member.texts();
    if (name == "keptAlive") setup.keptAlive = member.boolean().value_or(true);
    if (name == "started") setup.started = member.boolean().value_or(true);
    if (name != "environment") continue;
    for (const JsonCursor& variable : member.members()) {
      if (const auto value = variable.text()) setup.environment[variable.name()] = *value;
    }
  }
}

std::optional<std::string> readSettings(const JsonCursor& place) {
  if (place.value().is_string()) return place.text();
  if (place.value().is_object()) return place.value().dump();
  place.expected("an object, or a text that stands in the file as it is");
  return std::nullopt;
}

Step readStep(const JsonCursor& place, std::vector<std::string>& expectedLines) {
  Step step{.place = place.pointer()};
  Checks checks;
  for (const JsonCursor& member : place.members({"at", "do", "see", "note"})) {
    const std::string name = member.name();
    if (name == "at") {
      const auto text = member.text();
      step.at = text ? parseTiming(*text) : std::nullopt;
      if (text && !step.at) member.expected(timingForms);
    }
    if (name == "do") step.actions = readActions(member);
    if (name == "see") readChecks(member, checks);
    if (name == "note") static_cast<void>(member.text());
  }
  expectedLines.insert(expectedLines.end(), checks.expectedLines.begin(), checks.expectedLines.end());
  step.checks = std::move(checks.all);
  return step;
}

void readMember(const JsonCursor& member, Scenario& scenario) {
  const std::string name = member.name();
  if (name == "description") scenario.description = member.text().value_or("");
  if (name == "daemon") readDaemon(member, scenario.setup);
  if (name == "settings") scenario.settings = readSettings(member);
  if (name == "before") scenario.before = readActions(member);
  if (name == "mode") {
    scenario.invariantsOnly = member.oneOf({"invariants"}).has_value();
    scenario.setup.backsOff = scenario.invariantsOnly;
  }
  if (name == "timeline") {
    for (const JsonCursor& step : member.elements()) {
      scenario.steps.push_back(readStep(step, scenario.expectedLines));
    }
  }
  if (name == "end") {
    Checks checks{.expectedLines = std::move(scenario.expectedLines)};
    readChecks(member, checks);
    scenario.end = std::move(checks.all);
    scenario.expectedLines = std::move(checks.expectedLines);
  }
}

}  // namespace

std::optional<Scenario> readScenario(std::string_view text, Diagnostics& diagnostics) {
  const auto document = parseStrictly(text, diagnostics);
  if (!document) return std::nullopt;
  const JsonCursor place(*document, "", diagnostics);
  const Json nothing = Json::object();
  const bool described = document->is_object() && document->contains("mac");
  const auto machine = readMac(described ? place.at("mac") : JsonCursor(nothing, "/mac", diagnostics));
  if (!machine) return std::nullopt;

  Scenario scenario{.setup = {.machine = *machine}};
  for (const JsonCursor& member : place.members(
           {"description", "mode", "mac", "daemon", "settings", "before", "timeline", "end", "note"})) {
    readMember(member, scenario);
  }
  if (scenario.description.empty()) place.complain("needs a \"description\": what it shows, as a sentence");
  if (scenario.steps.empty()) place.complain("needs a \"timeline\" with at least one step");
  bool asksNothing = scenario.end.empty() && !scenario.invariantsOnly;
  for (const Step& step : scenario.steps) asksNothing = asksNothing && step.checks.empty();
  if (asksNothing) place.complain("asks for nothing to be seen, so it can't fail");
  if (!diagnostics.none()) return std::nullopt;
  return scenario;
}

}  // namespace brisko::lab
