#include "sim/what_if/other_settings.h"

namespace brisko::lab {
namespace {

// True when nothing is left of the action.
bool leaveOut(const nlohmann::json& asked, ScenarioJson& action) {
  const auto edit = action.is_object() ? action.find("settings") : action.end();
  if (edit == action.end() || !edit->is_object()) return false;
  for (const auto& [key, value] : asked.items()) edit->erase(key);
  return edit->empty();
}

}  // namespace

void setThroughout(const nlohmann::json& asked, Reconstruction& reconstruction) {
  GeneratedScenario& scenario = reconstruction.scenario;
  if (!scenario.settings || !scenario.settings->is_object()) scenario.settings = ScenarioJson::object();
  for (const auto& [key, value] : asked.items()) (*scenario.settings)[key] = value;
  std::erase_if(scenario.before, [&](ScenarioJson& action) { return leaveOut(asked, action); });
  std::erase_if(scenario.timedActions, [&](TimedAction& timed) { return leaveOut(asked, timed.action); });
}

}  // namespace brisko::lab
