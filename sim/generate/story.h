// sim/generate/story.h
// A scenario that nobody wrote: what a campaign makes up and plays, and cuts down afterwards. Its text is a
// scenario like any other.
#pragma once

#include <cstdint>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

namespace brisko::lab {

using StoryJson = nlohmann::ordered_json;

struct Happening {
  std::int64_t at = 0;  // seconds since the beginning
  StoryJson action = {};
};

struct Story {
  std::string sentence = {};
  StoryJson mac = StoryJson::object();
  StoryJson daemon = StoryJson::object();
  std::optional<StoryJson> settings = std::nullopt;  // an object or a text; none: no file
  std::vector<StoryJson> before = {};
  std::vector<Happening> happenings = {};  // in their order
  std::int64_t seconds = 0;                // until its end
};

// The scenario's file, judged by what always holds alone. Step n of its timeline is happening n; the last
// step has none.
[[nodiscard]] std::string scenarioText(const Story& story);

// An action with a value: {"charge": 60}.
[[nodiscard]] StoryJson actionOf(const std::string& name, StoryJson value);

}  // namespace brisko::lab
