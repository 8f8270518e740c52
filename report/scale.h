// report/scale.h
// Positions of values on an axis, and the values that are labelled.
#pragma once

#include <string>
#include <vector>

namespace brisko::lab {

// Maps the values `from` … `until` to the positions `begin` … `end`, which may run either way.
struct Scale {
  double from = 0, until = 1;  // from < until
  double begin = 0, end = 1;

  [[nodiscard]] double at(double value) const {
    return begin + (value - from) / (until - from) * (end - begin);
  }
};

// A round step (1, 2 or 5 times a power of ten): the smallest that gives at most `most` ticks and is at least
// `least`.
[[nodiscard]] double roundStep(double span, std::size_t most, double least);

// The multiples of the step in [from, until].
[[nodiscard]] std::vector<double> multiples(double from, double until, double step);

// A range that shows all of [least, most] with some margin, spans at least `span` and begins and ends at a
// multiple of `step`; never beyond [bottom, top].
struct Extent {
  double from, until;
};
[[nodiscard]] Extent roundExtent(double least, double most, double span, double step, double bottom,
                                 double top);

// --- Time, as clocks show it in the zone in force

struct TimeTick {
  double time = 0;    // seconds since 1970
  std::string clock;  // "22:00"; "" where a day or more lies between two ticks
  std::string day;    // "2 March" at the first tick of that day; else ""
};
// Ticks at round moments, at most `most` of them, for spans from a second to centuries.
[[nodiscard]] std::vector<TimeTick> timeTicks(double from, double until, std::size_t most);

// "2 March 2026 22:15:30"
[[nodiscard]] std::string momentText(double time);
// The zone's short name at that time, e.g. "UTC".
[[nodiscard]] std::string zoneText(double time);

}  // namespace brisko::lab
