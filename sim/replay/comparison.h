// sim/replay/comparison.h
// How far a replay agrees with the report that it was made from, and what departs first.
#pragma once

#include <array>
#include <cstddef>
#include <map>
#include <string>
#include <vector>

#include "report/picture.h"
#include "sim/replay/trace.h"

namespace brisko::lab {

// Of one charge state, in seconds.
struct StateAgreement {
  double reported = 0;
  double replayed = 0;
  double agreed = 0;  // in it in both
  [[nodiscard]] double share() const { return reported > 0 ? agreed / reported : 1; }
  // In a shorter time, one change of the state that comes a minute earlier or later would determine the
  // share.
  [[nodiscard]] bool canBeJudged() const { return reported >= 900; }
};

// The charge at one moment, percent.
struct ChargePoint {
  double time = 0;
  double reported = 0;
  double replayed = 0;
};

struct LineCounts {
  std::size_t reported = 0;
  std::size_t replayed = 0;
};

// Something that the two do not have in common.
struct Departure {
  double time = 0;
  std::string words = {};  // a sentence without its moment
};

struct Comparison {
  std::array<StateAgreement, 3> states = {};     // by ChargeState
  std::vector<ChargePoint> charge = {};          // every five minutes while the daemon ran
  std::size_t withinThree = 0;                   // of them: at most three points apart
  std::map<std::string, LineCounts> lines = {};  // of the log, by kind; summaries are not counted
  std::vector<Departure> departures = {};        // in order of time

  [[nodiscard]] double chargeShare() const {
    return charge.empty() ? 1 : static_cast<double>(withinThree) / static_cast<double>(charge.size());
  }
};

// Both have sightings. The time in which no daemon ran in one of them is not compared.
[[nodiscard]] Comparison compare(const Trace& reported, const Trace& replayed);

// A line without its stamp, with "#" for each number.
[[nodiscard]] std::string kindOf(const std::string& line);

// For a terminal; several lines.
[[nodiscard]] std::string comparisonText(const Comparison& comparison);

// Both curves and both states as one picture, with the log of the report.
[[nodiscard]] Picture comparisonPicture(const Trace& reported, const Trace& replayed,
                                        const Comparison& comparison);

}  // namespace brisko::lab
