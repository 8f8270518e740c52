// sim/generate/scenario.h
// A scenario that nobody wrote: what a campaign makes up and plays, and cuts down afterwards. Its text is a
// scenario like any other.
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
  std::vector<TimedAction> timedActions = {};  // in their order
  std::int64_t seconds = 0;                    // until its end
};

// The scenario's file, judged by the invariants alone. Step n of its timeline is timed action n; the last
// step has none.
[[nodiscard]] std::string scenarioText(const GeneratedScenario& scenario);

// An action with a value: {"charge": 60}.
[[nodiscard]] ScenarioJson actionOf(const std::string& name, ScenarioJson value);

}  // namespace brisko::lab
