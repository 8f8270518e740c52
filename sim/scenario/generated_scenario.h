// sim/scenario/generated_scenario.h
// A scenario that a program makes: generated from a seed, or from a report. Its text is a scenario file like
// any other.
#pragma once

#include <cstdint>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

namespace brisko::lab {

using ScenarioJson = nlohmann::ordered_json;

struct TimedAction {
  std::int64_t at = 0;  // seconds since the beginning
  ScenarioJson action = {};
};

struct GeneratedScenario {
  std::string description = {};
  ScenarioJson mac = ScenarioJson::object();
  ScenarioJson daemon = ScenarioJson::object();
  std::optional<ScenarioJson> settings = std::nullopt;  // an object or a text; none: no file
  std::vector<ScenarioJson> before = {};
  std::vector<TimedAction> timedActions = {};  // in order of time
  std::int64_t seconds = 0;                    // its whole length
};

// The text of the scenario's file, in the mode that checks invariants only. Step n of its timeline is timed
// action n; the last step has no action.
[[nodiscard]] std::string scenarioText(const GeneratedScenario& scenario);

// An action with a value: {"charge": 60}.
[[nodiscard]] ScenarioJson actionOf(const std::string& name, ScenarioJson value);

}  // namespace brisko::lab
