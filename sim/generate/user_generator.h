// sim/generate/user_generator.h
// The user of a generated scenario: settings, habits, days and nights, and what they do with the app and the
// Mac.
#pragma once

#include <cstdint>
#include <string>

#include "sim/generate/rng.h"
#include "sim/generate/timeline.h"
#include "sim/scenario/generated_scenario.h"

namespace brisko::lab {

// All settings as the app writes them for a user who knows what they want.
[[nodiscard]] ScenarioJson randomSettings(Rng& rng);

struct Habits {
  std::string name;           // "a commuter"
  std::int64_t wakesAt;       // minutes of the day
  std::int64_t sleepsAt;      // likewise; may be past midnight
  unsigned fiddling;          // percent of the days on which they change something in the app
  bool closesLid;             // else it falls asleep by itself
  bool shutsDown;             // else it stays asleep at night
  std::int64_t heaviestLoad;  // W
};
[[nodiscard]] Habits randomHabits(Rng& rng);

// Adds everything that the user does. The scenario begins with `settings`.
void addUserActions(std::int64_t days, const Habits& habits, ScenarioJson settings, Rng& rng,
                    Timeline& timeline);

}  // namespace brisko::lab
