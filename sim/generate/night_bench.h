// sim/generate/night_bench.h
// Generated nights of a Mac that goes to bed with its lid closed, and what they come to: the charge at seven,
// how far it went above the limit, and how often the Mac woke. One seed is one night.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace brisko::lab {

enum class Bedtime : std::uint8_t {
  onAdapter,      // used on the adapter for a while, then closed
  pluggedIn,      // plugged in and closed at once
  pluggedAsleep,  // closed on battery, and plugged in while it sleeps
};
[[nodiscard]] std::string_view nameOf(Bedtime bedtime);

struct NightPlan {
  std::string model;
  double adapterWatts;
  double percentAtDusk;
  Bedtime bedtime;
  bool promoted;       // a scheduled wake with the lid closed on the adapter is full for some seconds
  std::string nights;  // the action that chooses what wakes the Mac: "quiet-nights", …
  bool adapterWakes;   // a dark wake when it is plugged in asleep
  double batteryWakeSeconds;
  double usedSeconds;   // awake before the lid is closed
  double pluggedAfter;  // seconds from closing the lid to the adapter, or the other way round
};
[[nodiscard]] NightPlan planNight(std::uint64_t seed);

struct NightResult {
  double percentAtSeven = 0;
  double above = 0;  // points above the limit at most, or above the charge at bedtime if that was higher
  double below = 0;  // points below the band at seven
  std::uint64_t wakes = 0;
  std::uint64_t scheduledWakes = 0;  // … of them that the daemon had scheduled
  bool bandInReach = true;           // the adapter could have charged the Mac to the band by seven
  double batteryLost = 0;            // points that scheduled wakes cost before it was plugged in asleep
  std::string violation = {};        // of an invariant; empty: none
};

struct NightOptions {
  std::int64_t limit = 80;
  std::optional<std::string> guard = std::nullopt;  // passed on to the daemon
};
[[nodiscard]] NightResult spendNight(const NightPlan& plan, const NightOptions& options);

// The table of many nights: a line for all of them, and one for each class.
struct Night {
  NightPlan plan;
  NightResult result;
};
[[nodiscard]] std::string nightTable(const std::vector<Night>& nights);

// How the nights compare with what the guard of the night is to achieve, in a few lines.
[[nodiscard]] std::string nightGoals(const std::vector<Night>& nights);

}  // namespace brisko::lab
