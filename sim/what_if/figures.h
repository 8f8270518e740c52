// sim/what_if/figures.h
// What the charge of some days comes to: how high and how warm the battery was, what a person had of it, and
// how it aged. The same figures are made of a history and of days that were played.
#pragma once

#include <cstddef>
#include <optional>
#include <vector>

#include "report/ageing.h"
#include "sim/replay/trace.h"

namespace brisko::lab {

// The numbers change linearly between two moments; every other value holds until the next moment.
struct PlayedMoment {
  double time = 0;          // wall clock, seconds since 1970
  double percent = 0;       // as the gauge shows it
  double temperatureC = 0;  // of the battery
  ChargeState state = ChargeState::allow;
  bool plugged = false;  // cut or not
  bool hot = false;      // charging is paused for heat
};

struct PlayedDays {
  std::vector<PlayedMoment> moments = {};  // in order of time
  std::size_t nightWakes = 0;              // of a play; a history does not show them
};

// The sightings of a history or of a play, as far as they show the adapter and, after the first one that
// does, the temperature; 25 °C if none does.
[[nodiscard]] std::vector<PlayedMoment> momentsOf(const Trace& trace);

// From 22 to 7 o'clock in the zone in force.
[[nodiscard]] bool isNight(double time);

// The charge below which a Mac switches itself off, percent.
inline constexpr double emptyPercent = 1;

struct Figures {
  double seconds = 0;      // from the first moment to the last
  double above80 = 0;      // seconds
  double at100 = 0;        // seconds
  double hot = 0;          // seconds in which charging was paused
  double meanPercent = 0;  // over the time
  std::size_t unplugged = 0;
  std::optional<double> medianUnplugged = {};  // percent when the adapter was pulled; none if it never was
  std::optional<double> leastUnplugged = {};
  std::size_t timesEmpty = 0;  // unplugged and at most emptyPercent
  double secondsEmpty = 0;     // from then until plugged in again
  double cycles = 0;           // full ones: what left the battery, over its capacity
  std::size_t nightWakes = 0;
  Ageing ageing = {};
};

// Of at least two moments.
[[nodiscard]] Figures figuresOf(const PlayedDays& days);

}  // namespace brisko::lab
