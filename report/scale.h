// report/scale.h
// Where a value stands on an axis, and which values are written beside it.
#pragma once

#include <string>
#include <vector>

namespace brisko::lab {

// From the values `from` … `until` to the places `begin` … `end`, which may run either way.
struct Scale {
  double from = 0, until = 1;  // from < until
  double begin = 0, end = 1;

  [[nodiscard]] double at(double value) const {
    return begin + (value - from) / (until - from) * (end - begin);
  }
};

// Round steps (1, 2 or 5 times a power of ten), the smallest that gives at most `most` ticks, and at least
// `least` itself.
[[nodiscard]] double roundStep(double span, std::size_t most, double least);

// The multiples of the step in [from, until].
[[nodiscard]] std::vector<double> multiples(double from, double until, double step);

// A scale that shows all of [least, most] with some room, spans at least `span` and begins and ends at a
// multiple of `step`; never beyond [bottom, top].
struct Extent {
  double from, until;
};
[[nodiscard]] Extent roundExtent(double least, double most, double span, double step, double bottom,
                                 double top);

// --- Time, as clocks of the zone in force show it

struct TimeTick {
  double time = 0;    // seconds since 1970
  std::string clock;  // "22:00"; "" where a day, or several, lie between two ticks
  std::string day;    // "2 March", where it is the first tick of that day; else ""
};
// At round moments, at most `most` of them, for spans from a second to centuries.
[[nodiscard]] std::vector<TimeTick> timeTicks(double from, double until, std::size_t most);

// "2 March 2026 22:15:30"
[[nodiscard]] std::string momentText(double time);
// The zone's short name at that time, e.g. "UTC".
[[nodiscard]] std::string zoneText(double time);

}  // namespace brisko::lab
