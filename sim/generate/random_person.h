// sim/generate/random_person.h
// The user of a made-up story: settings, habits, days and nights, and what they do with the app and the Mac.
#pragma once

#include <cstdint>
#include <string>

#include "sim/generate/diary.h"
#include "sim/generate/dice.h"
#include "sim/generate/story.h"

namespace brisko::lab {

// All settings as the app writes them, of a user who knows what they want.
[[nodiscard]] StoryJson randomSettings(Dice& dice);

struct Habits {
  std::string name;           // "a commuter"
  std::int64_t wakesAt;       // minutes of the day
  std::int64_t sleepsAt;      // likewise; may be past midnight
  unsigned fiddling;          // percent of the days on which they change something in the app
  bool powerNap;              // the Mac wakes for maintenance at night
  bool closesLid;             // else it falls asleep by itself
  bool shutsDown;             // and does not leave it asleep at night
  std::int64_t heaviestLoad;  // W
};
[[nodiscard]] Habits randomHabits(Dice& dice);

// Everything that the person does, with `settings` to begin with.
void liveThrough(std::int64_t days, const Habits& habits, StoryJson settings, Dice& dice, Diary& diary);

}  // namespace brisko::lab
