// sim/what_if/what_if_text.h
// What the commands what-if and advise print: rows of a table, sentences, a page's picture, and one JSON
// object.
#pragma once

#include <cstdint>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "report/what_if_page.h"
#include "sim/what_if/advice.h"
#include "sim/what_if/agreement.h"
#include "sim/what_if/figures.h"

namespace brisko::lab {

// Of the days: where they begin and end, how well they can be played, and what is assumed of them.
struct PlayedHistory {
  double begin = 0;  // seconds since 1970
  double end = 0;
  Agreement agreement = {};
  std::vector<std::string> assumptions = {};  // a sentence each
};

struct WhatIf {
  PlayedHistory history = {};
  nlohmann::json asked = {};  // the settings, an object
  Figures asSet = {};
  Figures asAsked = {};
};

struct Advice {
  PlayedHistory history = {};
  std::vector<TriedLimit> tried = {};  // in order of the limits, the last one 100 %
};

// "limit=70 thermal=on"
[[nodiscard]] std::string askedText(const nlohmann::json& asked);
// "30 days, from 1 March 2026 to 30 March 2026"
[[nodiscard]] std::string daysText(const PlayedHistory& history);

[[nodiscard]] std::vector<ComparedFigure> comparedFigures(const WhatIf& whatIf);

// Where the ratio comes from, and what it does not mean.
[[nodiscard]] std::string ageingSource();
// That nothing differs, if so; how the ageing is to be understood; and how far the days agree.
[[nodiscard]] std::vector<std::string> sentencesOf(const WhatIf& whatIf);

// A table for a terminal.
[[nodiscard]] std::string comparisonTable(const std::vector<ComparedFigure>& figures);

// Every limit with its ageing, compared with a limit of 100 %, and how often the battery would have run out.
[[nodiscard]] std::string adviceTable(const Advice& advice);
[[nodiscard]] std::vector<std::string> sentencesOf(const Advice& advice);

// The members of brisko.what-if/1 and of brisko.advice/1.
[[nodiscard]] nlohmann::json whatIfObject(const WhatIf& whatIf);
[[nodiscard]] nlohmann::json adviceObject(const Advice& advice);

// Both curves: as asked is the charge, as it was set what else the gauge shows.
[[nodiscard]] Picture comparedPicture(const std::vector<PlayedMoment>& asSet,
                                      const std::vector<PlayedMoment>& asAsked);

}  // namespace brisko::lab
