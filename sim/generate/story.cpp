#include "sim/generate/story.h"

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

std::string stepText(std::int64_t after, const StoryJson& action) {
  StoryJson step = StoryJson::object();
  if (after > 0) step["at"] = afterText(after);
  if (!action.is_null()) step["do"] = action;
  return step.dump();
}

}  // namespace

StoryJson actionOf(const std::string& name, StoryJson value) {
  StoryJson action = StoryJson::object();
  action[name] = std::move(value);
  return action;
}

std::string scenarioText(const Story& story) {
  std::string text = "{\n  \"story\": " + StoryJson(story.sentence).dump() +
                     ",\n  \"judged\": \"by what always holds\",\n  \"mac\": " + story.mac.dump();
  if (!story.daemon.empty()) text += ",\n  \"daemon\": " + story.daemon.dump();
  if (story.settings) text += ",\n  \"settings\": " + story.settings->dump();
  if (!story.before.empty()) text += ",\n  \"before\": " + StoryJson(story.before).dump();
  text += ",\n  \"timeline\": [\n";
  std::int64_t now = 0;
  for (const Happening& happening : story.happenings) {
    text += "    " + stepText(happening.at - now, happening.action) + ",\n";
    now = happening.at;
  }
  return text + "    " + stepText(story.seconds - now, nullptr) + "\n  ]\n}\n";
}

}  // namespace brisko::lab
