// sim/generate/random_fate.h
// What goes wrong in a made-up story: the virtual Mac's list of faults, what can happen to the daemon's
// files, and how most of it is mended after a while.
#pragma once

#include <cstdint>

#include "sim/generate/diary.h"
#include "sim/generate/dice.h"
#include "sim/generate/story.h"

namespace brisko::lab {

// The Mac that it happens to.
struct MacTraits {
  std::string charge;  // "chte", "ch0b0c", "firmware-band" or "none"
  std::string cut;     // "chie", "ch0i", "ch0j" or "none"
  std::int64_t macOS = 0;
};

// What is common, a few times a month.
void strikeSometimes(const MacTraits& mac, const StoryJson& settings, Dice& dice, Diary& diary);
// Everything, from now and then to many times a day.
void strikeOften(const MacTraits& mac, const StoryJson& settings, Dice& dice, Diary& diary);

// Ways of macOS that a Mac has from the beginning on, as actions.
[[nodiscard]] std::vector<StoryJson> randomWays(Dice& dice);

// A file of settings that no app writes.
[[nodiscard]] StoryJson oddSettings(Dice& dice);

}  // namespace brisko::lab
