#include "sim/what_if/what_if_text.h"

#include <algorithm>
#include <cmath>
#include <set>

#include "report/history_summary.h"
#include "report/local_days.h"
#include "report/markup.h"

namespace brisko::lab {
namespace {

using Json = nlohmann::json;

std::string percent(const std::optional<double>& value) {
  return value ? fixed(*value, 0) + " %" : "never unplugged";
}

std::string ratioText(const AgeingRatio& ratio) {
  const std::string least = fixed(ratio.least(), 2);
  const std::string most = fixed(ratio.most(), 2);
  return least == most ? least : least + "–" + most;
}

// "once", "3 times"
std::string timesText(std::size_t times) {
  return times == 0 ? "never" : times == 1 ? "once" : std::to_string(times) + " times";
}

std::string cell(const std::string& text, std::size_t width, bool toTheRight) {
  const std::size_t letters = charactersOf(text);
  const std::string blanks(width > letters ? width - letters : 0, ' ');
  return toTheRight ? blanks + text : text + blanks;
}

double figureOf(double value) { return std::round(value * 1000) / 1000; }

Json figuresObject(const Figures& figures) {
  Json object{{"seconds", std::llround(figures.seconds)},
              {"secondsAbove80", std::llround(figures.above80)},
              {"secondsAt100", std::llround(figures.at100)},
              {"secondsHot", std::llround(figures.hot)},
              {"meanPercent", figureOf(figures.meanPercent)},
              {"timesUnplugged", figures.unplugged},
              {"timesEmpty", figures.timesEmpty},
              {"secondsEmpty", std::llround(figures.secondsEmpty)},
              {"fullCycles", figureOf(figures.cycles)},
              {"nightWakes", figures.nightWakes}};
  if (figures.medianUnplugged) {
    object["unplugged"] = {{"medianPercent", figureOf(*figures.medianUnplugged)},
                           {"leastPercent", figureOf(*figures.leastUnplugged)}};
  }
  return object;
}

Json ageingObject(const AgeingRatio& ratio) {
  Json models = Json::array();
  for (std::size_t model = 0; model < cellModelCount; ++model) {
    models.push_back({{"id", cellModels().at(model).id},
                      {"cell", cellModels().at(model).cell},
                      {"source", cellModels().at(model).source},
                      {"doi", cellModels().at(model).doi},
                      {"ratio", figureOf(ratio.byModel.at(model))}});
  }
  return {{"least", figureOf(ratio.least())}, {"most", figureOf(ratio.most())}, {"models", models}};
}

void addHistory(const PlayedHistory& history, Json& object) {
  object["from"] = std::llround(history.begin);
  object["to"] = std::llround(history.end);
  object["agreement"] = {{"withinThree", figureOf(history.agreement.withinThree)},
                         {"meanApart", figureOf(history.agreement.meanApart)},
                         {"sameState", figureOf(history.agreement.sameState)},
                         {"trust", trustWord(trustIn(history.agreement))}};
  object["assumptions"] = history.assumptions;
}

std::string valueText(const Json& value) {
  return value.is_boolean() ? value.get<bool>() ? "on" : "off" : value.dump();
}

// What a moment is between those of a list; the times that are asked for must come in order.
class MomentReader {
 public:
  explicit MomentReader(const std::vector<PlayedMoment>& moments) : moments_(moments) {}

  const PlayedMoment& at(double time) {
    while (index_ + 1 < moments_.size() && moments_[index_ + 1].time <= time) ++index_;
    return moments_[index_];
  }

 private:
  const std::vector<PlayedMoment>& moments_;
  std::size_t index_ = 0;
};

}  // namespace

std::string askedText(const nlohmann::json& asked) {
  std::string text;
  for (const auto& [key, value] : asked.items())
    text += (text.empty() ? "" : " ") + key + "=" + valueText(value);
  return text;
}

std::string daysText(const PlayedHistory& history) {
  const Date first = dateOf(history.begin);
  const Date last = dateOf(history.end);
  const int days = daysBetween(first, last) + 1;
  return std::to_string(days) + (days == 1 ? " day, from " : " days, from ") + dateText(first) + " to " +
         dateText(last);
}

std::vector<ComparedFigure> comparedFigures(const WhatIf& whatIf) {
  const Figures& set = whatIf.asSet;
  const Figures& asked = whatIf.asAsked;
  const auto count = [](std::size_t number) { return std::to_string(number); };
  return {
      {"Above 80 %", hoursText(set.above80), hoursText(asked.above80)},
      {"At 100 %", hoursText(set.at100), hoursText(asked.at100)},
      {"Mean charge", percent(set.meanPercent), percent(asked.meanPercent)},
      {"Hot, charging paused", hoursText(set.hot), hoursText(asked.hot)},
      {"Charge when unplugged, median", percent(set.medianUnplugged), percent(asked.medianUnplugged)},
      {"Charge when unplugged, least", percent(set.leastUnplugged), percent(asked.leastUnplugged)},
      {"Battery ran out", timesText(set.timesEmpty), timesText(asked.timesEmpty)},
      {"Then until plugged in", hoursText(set.secondsEmpty), hoursText(asked.secondsEmpty)},
      {"Full cycles", fixed(set.cycles, 1), fixed(asked.cycles, 1)},
      {"Wakes at night, 22 to 7", count(set.nightWakes), count(asked.nightWakes)},
      {"Ageing by time alone", "1.00", ratioText(ageingRatio(asked.ageing, set.ageing))},
  };
}

std::string ageingSource() {
  std::string text = "The ageing is a ratio from two published models of calendar ageing: ";
  for (std::size_t model = 0; model < cellModelCount; ++model) {
    const CellModel& each = cellModels().at(model);
    text += std::string(model == 0 ? "" : "; ") + each.cell + ", " + each.source + ", doi " + each.doi;
  }
  return text +
         ". A Mac's cells are neither of the two, so only the ratio has a meaning; it is not a lifetime.";
}

std::vector<std::string> sentencesOf(const WhatIf& whatIf) {
  std::vector<std::string> sentences;
  const auto rows = comparedFigures(whatIf);
  const bool isSame = std::all_of(rows.begin(), rows.end() - 1,
                                  [](const ComparedFigure& row) { return row.asSet == row.asAsked; });
  if (isSame)
    sentences.emplace_back(
        "In these days the other settings would have made no difference to these figures.");
  sentences.push_back(ageingSource());
  sentences.push_back(agreementText(whatIf.history.agreement));
  return sentences;
}

std::string comparisonTable(const std::vector<ComparedFigure>& figures) {
  std::size_t name = 0;
  std::size_t set = charactersOf("as it was set");
  std::size_t asked = charactersOf("as asked");
  for (const ComparedFigure& figure : figures) {
    name = std::max(name, charactersOf(figure.name));
    set = std::max(set, charactersOf(figure.asSet));
    asked = std::max(asked, charactersOf(figure.asAsked));
  }
  const auto row = [&](const std::string& first, const std::string& second, const std::string& third) {
    return cell(first, name, false) + "  " + cell(second, set, true) + "  " + cell(third, asked, true) + "\n";
  };
  std::string text = row("", "as it was set", "as asked");
  for (const ComparedFigure& figure : figures) text += row(figure.name, figure.asSet, figure.asAsked);
  return text;
}

std::string adviceTable(const Advice& advice) {
  constexpr double barLetters = 20;  // of an ageing of 1
  const std::int64_t marked = limitThatIsNoWorse(advice.tried);
  std::string text = "   Limit  Ageing     " + std::string(static_cast<std::size_t>(barLetters), ' ') +
                     "  Battery ran out\n";
  for (const TriedLimit& each : advice.tried) {
    const AgeingRatio ratio = ageingRatio(each.figures.ageing, advice.tried.back().figures.ageing);
    const double middle = (ratio.least() + ratio.most()) / 2;
    const auto bar = static_cast<std::size_t>(std::lround(std::clamp(middle, 0.0, 1.0) * barLetters));
    const bool ranOut = each.figures.timesEmpty > 0;
    text += (each.limit == marked ? "→ " : "  ") + cell(std::to_string(each.limit) + " %", 6, true) + "  " +
            cell(ratioText(ratio), 9, false) + "  " +
            cell(std::string(bar, '#'), static_cast<std::size_t>(barLetters), false) + "  " +
            timesText(each.figures.timesEmpty) +
            (ranOut ? ", " + hoursText(each.figures.secondsEmpty) + " until plugged in" : "") + "\n";
  }
  return text;
}

std::vector<std::string> sentencesOf(const Advice& advice) {
  std::vector<std::string> sentences;
  const auto advised = advisedLimit(advice.tried);
  const std::string lowest = std::to_string(limitThatIsNoWorse(advice.tried)) + " %";
  if (advised) {
    sentences.push_back("→ " + lowest +
                        " is the lowest limit that would never have left you short in these days.");
  } else {
    sentences.push_back("Even with a limit of 100 % the battery would have run out " +
                        timesText(advice.tried.back().figures.timesEmpty) + " in these days. → " + lowest +
                        " is the lowest limit with which it would not have run out more often.");
  }
  sentences.emplace_back("The ageing is compared with that of a limit of 100 %.");
  sentences.push_back(ageingSource());
  sentences.push_back(agreementText(advice.history.agreement));
  return sentences;
}

nlohmann::json whatIfObject(const WhatIf& whatIf) {
  Json object{{"schema", "brisko.what-if/1"},
              {"asked", whatIf.asked},
              {"asSet", figuresObject(whatIf.asSet)},
              {"asAsked", figuresObject(whatIf.asAsked)},
              {"ageing", ageingObject(ageingRatio(whatIf.asAsked.ageing, whatIf.asSet.ageing))}};
  addHistory(whatIf.history, object);
  return object;
}

nlohmann::json adviceObject(const Advice& advice) {
  Json limits = Json::array();
  for (const TriedLimit& each : advice.tried) {
    const AgeingRatio ratio = ageingRatio(each.figures.ageing, advice.tried.back().figures.ageing);
    limits.push_back(
        {{"limit", each.limit}, {"figures", figuresObject(each.figures)}, {"ageing", ageingObject(ratio)}});
  }
  const auto advised = advisedLimit(advice.tried);
  Json object{{"schema", "brisko.advice/1"},
              {"limits", std::move(limits)},
              {"advised", advised ? Json(*advised) : Json()}};
  addHistory(advice.history, object);
  return object;
}

Picture comparedPicture(const std::vector<PlayedMoment>& asSet, const std::vector<PlayedMoment>& asAsked) {
  Picture picture;
  picture.curves =
      CurveNames{.level = "as asked", .shown = "as it was set", .state = "As asked", .hardware = "As set"};
  std::set<double> times;
  for (const auto* moments : {&asSet, &asAsked}) {
    for (const PlayedMoment& moment : *moments) times.insert(moment.time);
  }
  MomentReader set(asSet);
  MomentReader asked(asAsked);
  for (const double time : times) {
    const PlayedMoment& before = set.at(time);
    const PlayedMoment& now = asked.at(time);
    Moment moment;
    moment.time = time;
    moment.level = now.percent;
    moment.shown = std::llround(before.percent);
    moment.temperatureC = now.temperatureC;
    moment.state = now.state;
    moment.hardware = before.state;
    moment.supply = now.plugged ? Supply::connected : Supply::none;
    picture.moments.push_back(moment);
  }
  return picture;
}

}  // namespace brisko::lab
