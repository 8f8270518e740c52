#include "sim/scenario/generated_scenario.h"

#include <array>
#include <utility>

namespace brisko::lab {
namespace {

// "+1 day 2 h 5 s"
std::string afterText(std::int64_t seconds) {
  constexpr std::array<std::pair<const char*, std::int64_t>, 4> units{
      {{"day", 86400}, {"h", 3600}, {"min", 60}, {"s", 1}}};
  std::string text;
  for (const auto& [name, size] : units) {
    if (seconds < size) continue;
    const std::int64_t count = seconds / size;
    text += (text.empty() ? "+" : " ") + std::to_string(count) + " " + name;
    if (size == 86400 && count > 1) text += "s";
    seconds %= size;
  }
  return text;
}

std::string stepText(std::int64_t after, const ScenarioJson& action) {
  ScenarioJson step = ScenarioJson::object();
  if (after > 0) step["at"] = afterText(after);
  if (!action.is_null()) step["do"] = action;
  return step.dump();
}

}  // namespace

ScenarioJson actionOf(const std::string& name, ScenarioJson value) {
  ScenarioJson action = ScenarioJson::object();
  action[name] = std::move(value);
  return action;
}

std::string scenarioText(const GeneratedScenario& scenario) {
  std::string text = "{\n  \"description\": " + ScenarioJson(scenario.description).dump() +
                     ",\n  \"mode\": \"invariants\",\n  \"mac\": " + scenario.mac.dump();
  if (!scenario.daemon.empty()) text += ",\n  \"daemon\": " + scenario.daemon.dump();
  if (scenario.settings) text += ",\n  \"settings\": " + scenario.settings->dump();
  if (!scenario.before.empty()) text += ",\n  \"before\": " + ScenarioJson(scenario.before).dump();
  text += ",\n  \"timeline\": [\n";
  std::int64_t now = 0;
  for (const TimedAction& timedAction : scenario.timedActions) {
    text += "    " + stepText(timedAction.at - now, timedAction.action) + ",\n";
    now = timedAction.at;
  }
  return text + "    " + stepText(scenario.seconds - now, nullptr) + "\n  ]\n}\n";
}

}  // namespace brisko::lab
