#include "report/chart.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <functional>
#include <map>
#include <utility>

#include "report/markup.h"
#include "report/svg.h"
#include "report/thinning.h"

namespace brisko::lab {
namespace {

using svg::box;
using svg::label;
using svg::line;
using svg::path;

constexpr double chargeHeight = 230;  // of its panel
constexpr double rowGap = 4;
constexpr std::size_t eventRows = 5;
constexpr std::size_t enoughMoments = 1500;
constexpr std::size_t thinnedColumns = 450;

// ---------------------------------------------------------------------------------------------------------
// Intervals in which something stays the same

struct RowStyle {
  const char* style;
  std::string word;
};
using StyleOf = std::function<std::optional<RowStyle>(const Moment&)>;

struct Interval {
  double from, until;
  std::size_t first;  // index of its first moment
  RowStyle look;
};

bool same(const std::optional<RowStyle>& one, const std::optional<RowStyle>& other) {
  return one.has_value() == other.has_value() && (!one || one->word == other->word);
}

std::vector<Interval> intervalsOf(const std::vector<Moment>& moments, const StyleOf& styleOf) {
  std::vector<Interval> intervals;
  std::optional<RowStyle> look;
  std::size_t first = 0;
  const auto close = [&](double until) {
    if (look) intervals.push_back({moments[first].time, until, first, *look});
  };
  for (std::size_t index = 0; index < moments.size(); ++index) {
    const Moment& moment = moments[index];
    auto next = styleOf(moment);
    if (index > 0 && !moment.afterGap && same(look, next)) continue;
    close(moment.afterGap ? moments[index - 1].time : moment.time);
    look = std::move(next);
    first = index;
  }
  close(moments.back().time);
  return intervals;
}

std::optional<RowStyle> stateStyle(const std::optional<ChargeState>& state) {
  if (!state) return std::nullopt;
  return RowStyle{stateName(*state), stateWord(state)};
}

std::optional<RowStyle> lightStyle(const Moment& moment) {
  constexpr std::array styles{"system", "dark", "green", "orange", "blinking"};
  if (!moment.light) return std::nullopt;
  return RowStyle{styles.at(static_cast<std::size_t>(*moment.light)), lightWord(moment.light)};
}

std::optional<RowStyle> supplyStyle(const Moment& moment) {
  constexpr std::array styles{"none", "discharge", "connected"};
  if (!moment.supply) return std::nullopt;
  return RowStyle{styles.at(static_cast<std::size_t>(*moment.supply)), supplyWord(moment.supply)};
}

std::optional<RowStyle> wakefulnessStyle(const Moment& moment) {
  constexpr std::array styles{"awake", "dark-wake", "asleep", "dark"};
  if (!moment.wakefulness) return std::nullopt;
  return RowStyle{styles.at(static_cast<std::size_t>(*moment.wakefulness)),
                  wakefulnessWord(moment.wakefulness)};
}

std::optional<RowStyle> occasionStyle(const Moment& moment) {
  if (moment.occasion == Occasion::none) return std::nullopt;
  const char* style = moment.occasion == Occasion::heat    ? "hot"
                      : moment.occasion == Occasion::topUp ? "top-up"
                                                           : "calibration";
  return RowStyle{style, occasionWord(moment.occasion)};
}

std::optional<RowStyle> asleepStyle(const Moment& moment) {
  if (moment.wakefulness != Wakefulness::asleep) return std::nullopt;
  return RowStyle{"night", ""};
}

std::optional<RowStyle> bandStyle(const Moment& moment) {
  if (!moment.band) return std::nullopt;
  return RowStyle{"band", std::to_string(moment.band->lower) + " " + std::to_string(moment.band->upper)};
}

using Number = std::optional<double> Moment::*;

std::optional<std::pair<double, double>> bordersOf(const std::vector<Moment>& moments, Number number) {
  std::optional<std::pair<double, double>> borders;
  for (const Moment& moment : moments) {
    const auto& value = moment.*number;
    if (!value) continue;
    if (!borders) borders = {*value, *value};
    borders = {std::min(borders->first, *value), std::max(borders->second, *value)};
  }
  return borders;
}

// The gauge rounds and is up to a minute late; only a larger difference deserves a curve of its own.
bool gaugeDiffers(const std::vector<Moment>& moments) {
  constexpr double worthShowing = 1.75;  // percent
  return std::any_of(moments.begin(), moments.end(), [](const Moment& moment) {
    return moment.level && moment.shown &&
           std::abs(*moment.level - static_cast<double>(*moment.shown)) > worthShowing;
  });
}

// An event, and the position of its text.
struct MarkedEvent {
  double x = 0;
  std::string words = {};
  bool leftward = false;                // to the left of its mark, near the end
  std::optional<std::size_t> row = {};  // from below; none when there is no room for text
};

constexpr std::size_t longestWords = 44;

std::vector<MarkedEvent> markedEvents(const std::vector<Event>& events, const Scale& time) {
  std::vector<MarkedEvent> marked;
  double before = 0;
  for (const Event& event : events) {
    if (!marked.empty() && event.time == before) {
      marked.back().words += ", " + event.words;
    } else {
      marked.push_back({.x = time.at(event.time), .words = event.words});
    }
    before = event.time;
  }
  return marked;
}

class Drawing : private PanelDrawing {
 public:
  Drawing(const Picture& picture, Frame frame, const Layout& layout)
      : PanelDrawing(layout, frame, picture.moments.front().time,
                     std::max(picture.moments.back().time, picture.moments.front().time + 60)),
        picture_(picture),
        moments_(picture.moments) {
    chart_.moments = thinned(moments_, enoughMoments, thinnedColumns, picture.curves.has_value());
    chart_.width = layout_.width;
    chart_.time = time_;
  }

  Chart draw() {
    const Texts texts{.title = picture_.title,
                      .facts = picture_.facts,
                      .summary = summaryOf(picture_),
                      .notes = picture_.notes};
    drawHeading(texts);
    drawEvents();
    drawCharge();
    drawRows();
    drawNumbers(&Moment::currentMA, "Current into the battery, mA", 84, 400, 100);
    drawNumbers(&Moment::watts, "Power into the battery, W", 84, 4, 1);
    drawNumbers(&Moment::temperatureC, "Temperature of the battery, °C", 64, 4, 1);
    drawTimeAxis();
    drawEventLines();
    drawNotes(texts.notes);
    chart_.svg = document(texts);
    return std::move(chart_);
  }

 private:
  // --- Events

  // Places every text in the lowest row with room for it. Returns the number of rows used.
  [[nodiscard]] std::size_t placeWords(std::vector<MarkedEvent>& events) const {
    std::array<double, eventRows> filledUntil{};
    filledUntil.fill(-1e9);
    std::size_t rows = 0;
    for (MarkedEvent& event : events) {
      const double length = widthOf(shortened(event.words, longestWords)) + 6;
      event.leftward = event.x + length > layout_.width - 4;
      const double begin = event.leftward ? event.x - length : event.x;
      const auto row = std::find_if(filledUntil.begin(), filledUntil.end(),
                                    [&](double filled) { return filled <= begin; });
      if (row == filledUntil.end()) continue;
      *row = begin + length + 6;
      event.row = static_cast<std::size_t>(row - filledUntil.begin());
      rows = std::max(rows, *event.row + 1);
    }
    return rows;
  }

  void drawEvents() {
    std::vector<MarkedEvent> events = markedEvents(picture_.events, time_);
    y_ += 4 + layout_.lineHeight * static_cast<double>(placeWords(events));
    for (const MarkedEvent& event : events) {
      if (!event.row) {
        eventMarks_.emplace_back(event.x, y_ - 2);
        continue;
      }
      const double y = y_ - layout_.lineHeight * static_cast<double>(*event.row) - 3;
      eventMarks_.emplace_back(event.x, y - 9);
      const std::string words = shortened(event.words, longestWords);
      eventWords_ += "<text" + svg::attribute("class", event.leftward ? "event ends" : "event") +
                     svg::attribute("x", event.leftward ? event.x - 4 : event.x + 4) +
                     svg::attribute("y", y) + ">" +
                     (words == event.words ? "" : "<title>" + escaped(event.words) + "</title>") +
                     escaped(words) + "</text>\n";
    }
  }

  void drawEventLines() {
    std::string lines;
    for (const auto& [x, top] : eventMarks_) {
      lines += "M" + coordinate(x) + " " + coordinate(top) + "V" + coordinate(panelsBottom_);
    }
    body_ += path("mark", lines) + eventWords_;
  }

  // --- Panels

  // What lies behind the curves: when the Mac slept, and when nothing is known.
  [[nodiscard]] std::string behind(double top, double bottom) const {
    std::string nights;
    for (const Interval& night : intervalsOf(moments_, asleepStyle)) {
      nights += box(xOf(night.from), top, xOf(night.until), bottom);
    }
    std::string gaps;
    for (std::size_t index = 1; index < moments_.size(); ++index) {
      if (!moments_[index].afterGap) continue;
      gaps += box(xOf(moments_[index - 1].time), top, xOf(moments_[index].time), bottom);
    }
    return path("night", nights) + path("gap", gaps);
  }

  Scale beginPanelOfCurves(const std::string& title, double height, const Extent& extent, double step) {
    return beginPanel(title, height, extent, step, behind(nextPanelTop(), nextPanelTop() + height));
  }

  // A line from moment to moment, interrupted at gaps and where the number is missing.
  [[nodiscard]] std::string curve(Number number, const Scale& scale) const {
    std::string steps;
    std::string last;
    bool drawing = false;
    for (const Moment& moment : chart_.moments) {
      const auto& value = moment.*number;
      if (moment.afterGap || !value) drawing = false;
      if (!value) continue;
      const std::string point = coordinate(xOf(moment.time)) + " " + coordinate(scale.at(*value));
      // A single moment is a line of length 0, which round ends turn into a dot.
      if (!drawing) steps += "M" + point + "h0";
      if (drawing && point != last) steps += "L" + point;
      drawing = true;
      last = point;
    }
    return steps;
  }

  [[nodiscard]] std::string gaugeCurve(const Scale& scale) const {
    std::string steps;
    std::optional<std::int64_t> last;
    for (const Moment& moment : chart_.moments) {
      if (!moment.shown || (moment.shown == last && &moment != &chart_.moments.back())) continue;
      const std::string x = coordinate(xOf(moment.time));
      const std::string y = coordinate(scale.at(static_cast<double>(*moment.shown)));
      steps.append(last ? "H" : "M").append(x).append(last ? "V" : " ").append(y);
      last = moment.shown;
    }
    return steps;
  }

  [[nodiscard]] Extent extentOfCharge(bool withGauge) const {
    auto borders = bordersOf(moments_, &Moment::level).value_or(std::pair{0.0, 100.0});
    const auto widen = [&](double value) {
      borders = {std::min(borders.first, value), std::max(borders.second, value)};
    };
    for (const Moment& moment : moments_) {
      if (moment.band) widen(static_cast<double>(moment.band->lower));
      if (moment.band) widen(static_cast<double>(moment.band->upper));
      if (withGauge && moment.shown) widen(static_cast<double>(*moment.shown));
    }
    return roundExtent(borders.first, borders.second, 20, 5, 0, 100);
  }

  void drawCharge() {
    const bool withGauge = picture_.curves || gaugeDiffers(moments_);
    const Extent extent = extentOfCharge(withGauge);
    chart_.charge =
        beginPanelOfCurves("Charge, %", chargeHeight, extent, roundStep(extent.until - extent.from, 11, 5));
    if (withGauge) drawLegend();
    drawBand();
    if (withGauge) body_ += path("shown", gaugeCurve(chart_.charge));
    body_ += path("level", curve(&Moment::level, chart_.charge)) + bandWords_;
  }

  void drawLegend() {
    const double y = y_ - chargeHeight - 9;
    body_ += path("level", "M" + coordinate(layout_.left + 90) + " " + coordinate(y) + "h24") +
             label("note", layout_.left + 120, y + 4, names().level) +
             path("shown", "M" + coordinate(layout_.left + 220) + " " + coordinate(y) + "h24") +
             label("note", layout_.left + 250, y + 4, names().shown);
  }

  [[nodiscard]] CurveNames names() const {
    return picture_.curves.value_or(CurveNames{.level = "in the battery",
                                               .shown = "as its gauge shows it",
                                               .state = "Daemon",
                                               .hardware = "Hardware"});
  }

  void drawBand() {
    std::string boxes;
    std::string uppers;
    std::string lowers;
    double drawnUntil = 0;
    for (const Interval& interval : intervalsOf(moments_, bandStyle)) {
      const Bounds& band = *moments_[interval.first].band;
      const double left = xOf(interval.from);
      const double right = xOf(interval.until);
      const double top = chart_.charge.at(static_cast<double>(band.upper));
      const double bottom = chart_.charge.at(static_cast<double>(band.lower));
      boxes += box(left, top, right, bottom);
      uppers += "M" + coordinate(left) + " " + coordinate(top) + "H" + coordinate(right);
      lowers += "M" + coordinate(left) + " " + coordinate(bottom) + "H" + coordinate(right);
      const std::string words = "limit " + std::to_string(band.upper) + " %";
      if (right - left < widthOf(words) + 8 || left < drawnUntil) continue;
      bandWords_ += label("limit-word", left + 4, top - 4, words);
      bandWords_ += label("limit-word", left + 4, bottom + 12, std::to_string(band.lower) + " %");
      drawnUntil = left + widthOf(words) + 8;
    }
    body_ += path("band", boxes) + path("upper", uppers) + path("lower", lowers);
  }

  // A panel of its own for a number, if any moment has it.
  void drawNumbers(Number number, const std::string& title, double height, double span, double least) {
    const auto borders = bordersOf(moments_, number);
    if (!borders) return;
    const double step = valueStep(std::max(borders->second - borders->first, span), height, least);
    const Extent extent = roundExtent(borders->first, borders->second, span, step, -1e9, 1e9);
    const Scale scale = beginPanelOfCurves(title, height, extent, step);
    if (extent.from < 0 && extent.until > 0 && number != &Moment::temperatureC) {
      body_ += line("zero", layout_.left, scale.at(0), layout_.right, scale.at(0));
    }
    body_ += path("number", curve(number, scale));
  }

  // --- Rows

  void drawRows() {
    y_ += 10;
    drawRow("Occasion", occasionStyle);
    drawRow(names().state, [](const Moment& moment) { return stateStyle(moment.state); });
    drawRow(names().hardware, [](const Moment& moment) { return stateStyle(moment.hardware); });
    drawRow("Light", lightStyle);
    drawRow("Adapter", supplyStyle);
    drawRow("Mac", wakefulnessStyle);
    drawLogRow();
  }

  void drawRow(const std::string& name, const StyleOf& styleOf) {
    const std::vector<Interval> intervals = intervalsOf(moments_, styleOf);
    if (intervals.empty()) return;
    std::map<std::string, std::string> boxes;
    std::string words;
    for (const Interval& interval : intervals) {
      const double left = xOf(interval.from);
      const double right = xOf(interval.until);
      boxes[interval.look.style] += box(left, y_, right, y_ + layout_.rowHeight);
      if (right - left < widthOf(interval.look.word) + 6) continue;
      words += label(std::string("word on-") + interval.look.style, left + 4, y_ + layout_.baseline,
                     interval.look.word);
    }
    body_ += label("row", layout_.left - 6, y_ + layout_.baseline, name);
    for (const auto& [style, steps] : boxes) body_ += path("look " + style, steps);
    body_ += words;
    endRow();
  }

  // The log lines other than summaries, warnings above all.
  void drawLogRow() {
    std::string lines;
    std::string warnings;
    for (const LoggedLine& logged : picture_.log) {
      if (isSummary(logged.text)) continue;
      const std::string place = "M" + coordinate(xOf(logged.time)) + " " + coordinate(y_ + 2);
      if (isWarning(logged.text)) {
        warnings += place + "l4.5 11h-9z";
      } else {
        lines += place + "v" + coordinate(layout_.rowHeight - 4);
      }
    }
    if (lines.empty() && warnings.empty()) return;
    body_ += label("row", layout_.left - 6, y_ + layout_.baseline, "Log");
    body_ +=
        line("grid", layout_.left, y_ + layout_.rowHeight / 2, layout_.right, y_ + layout_.rowHeight / 2);
    body_ += path("said", lines) + path("warned", warnings);
    endRow();
  }

  void endRow() {
    y_ += layout_.rowHeight + rowGap;
    panelsBottom_ = y_;
  }

  const Picture& picture_;
  const std::vector<Moment>& moments_;
  Chart chart_;
  std::string bandWords_;
  std::string eventWords_;
  std::vector<std::pair<double, double>> eventMarks_;  // x, and the top of its line
};

std::string percentText(double value) { return fixed(value, 0) + " %"; }

}  // namespace

Chart drawChart(const Picture& picture, Frame frame, const Layout& layout) {
  return Drawing(picture, frame, layout).draw();
}

std::string stateWord(const std::optional<ChargeState>& state) { return state ? stateName(*state) : ""; }

std::string lightWord(const std::optional<Light>& light) {
  constexpr std::array words{"the system's", "off", "green", "orange", "blinking"};
  return light ? words.at(static_cast<std::size_t>(*light)) : "";
}

std::string supplyWord(const std::optional<Supply>& supply) {
  constexpr std::array words{"none", "cut", "connected"};
  return supply ? words.at(static_cast<std::size_t>(*supply)) : "";
}

std::string wakefulnessWord(const std::optional<Wakefulness>& wakefulness) {
  constexpr std::array words{"awake", "dark wake", "asleep", "off"};
  return wakefulness ? words.at(static_cast<std::size_t>(*wakefulness)) : "";
}

std::string occasionWord(Occasion occasion) {
  constexpr std::array words{"",
                             "Top Up",
                             "too hot",
                             "calibration: fill",
                             "calibration: drain",
                             "calibration: refill",
                             "calibration: soak",
                             "calibration: restore"};
  return words.at(static_cast<std::size_t>(occasion));
}

bool isSummary(const std::string& line) { return line.find("Z  cap ") != std::string::npos; }

bool isWarning(const std::string& line) { return line.find("⚠️") != std::string::npos; }

std::string summaryOf(const Picture& picture) {
  const auto& moments = picture.moments;
  std::string text = "From " + momentText(moments.front().time) + " to " + momentText(moments.back().time) +
                     " (" + zoneText(moments.front().time) + ").";
  const auto borders = bordersOf(moments, &Moment::level);
  if (!borders) return text;
  const auto has = [](const Moment& moment) { return moment.level.has_value(); };
  const auto first = std::find_if(moments.begin(), moments.end(), has);
  const auto last = std::find_if(moments.rbegin(), moments.rend(), has);
  text += " The charge begins at " + percentText(*first->level) + " and ends at " +
          percentText(*last->level) + "; the lowest is " + percentText(borders->first) + ", the highest " +
          percentText(borders->second) + ".";
  const auto warnings = std::count_if(picture.log.begin(), picture.log.end(),
                                      [](const LoggedLine& logged) { return isWarning(logged.text); });
  if (warnings > 0) text += " Warnings in the log: " + std::to_string(warnings) + ".";
  return text;
}

}  // namespace brisko::lab
