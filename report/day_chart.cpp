#include "report/day_chart.h"

#include <algorithm>
#include <utility>

#include "report/markup.h"
#include "report/svg.h"

namespace brisko::lab {
namespace {

constexpr double dayChargeHeight = 230;  // of the panels
constexpr double hoursHeight = 100;

class DayDrawing : private PanelDrawing {
 public:
  DayDrawing(const HistorySummary& summary, Frame frame, const Layout& layout)
      : PanelDrawing(layout, frame, summary.days.front().begin, summary.days.back().end), summary_(summary) {
    chart_.width = layout_.width;
    chart_.time = time_;
  }

  Chart draw(const Texts& texts) {
    drawHeading(texts);
    drawCharge();
    drawHours("Hours above " + fixed(highCharge, 0) + " %", "high", &Durations::high);
    drawHours("Hours hot", "heated", &Durations::hot);
    drawTimeAxis();
    drawNotes(texts.notes);
    chart_.svg = document(texts);
    return std::move(chart_);
  }

 private:
  // A bar is narrower than its day where there is room for a space between two.
  [[nodiscard]] std::string bar(const DaySummary& day, double top, double bottom) const {
    const double left = xOf(day.begin);
    const double right = xOf(day.end);
    const double space = right - left > 3 ? (right - left) * 0.15 : 0;
    return svg::box(left + space, top, right - space, bottom);
  }

  [[nodiscard]] std::string daysWithoutSamples(double height) const {
    std::string boxes;
    for (const DaySummary& day : summary_.days) {
      if (!day.lowest)
        boxes += svg::box(xOf(day.begin), nextPanelTop(), xOf(day.end), nextPanelTop() + height);
    }
    return svg::path("gap", boxes);
  }

  void drawCharge() {
    constexpr double thinnest = 2;  // of a day on which the charge stayed the same
    const double step = layout_.width < 500 ? 20 : 10;
    chart_.charge = beginPanel("Charge, lowest to highest, %", dayChargeHeight, {0, 100}, step,
                               daysWithoutSamples(dayChargeHeight));
    std::string bars;
    for (const DaySummary& day : summary_.days) {
      if (!day.lowest) continue;
      const double top = chart_.charge.at(*day.highest);
      const double bottom = chart_.charge.at(*day.lowest);
      const double missing = std::max(thinnest - (bottom - top), 0.0) / 2;
      bars += bar(day, top - missing, bottom + missing);
    }
    body_ += svg::path("bar", bars);
    const double high = chart_.charge.at(highCharge);
    body_ += svg::line("high-line", layout_.left, high, layout_.right, high);
  }

  void drawHours(const std::string& title, const char* style, double Durations::*duration) {
    constexpr double mostHours = 24;
    const Scale scale = beginPanel(title, hoursHeight, {0, mostHours}, 6, daysWithoutSamples(hoursHeight));
    std::string bars;
    for (const DaySummary& day : summary_.days) {
      const double hours = std::min(day.durations.*duration / 3600, mostHours);
      if (hours > 0) bars += bar(day, scale.at(hours), scale.at(0));
    }
    body_ += svg::path(style, bars);
  }

  const HistorySummary& summary_;
  Chart chart_;
};

std::string percentText(const std::optional<double>& percent) {
  return percent ? fixed(*percent, 0) + " %" : "";
}

}  // namespace

Chart drawDays(const HistorySummary& summary, const Texts& texts, Frame frame, const Layout& layout) {
  return DayDrawing(summary, frame, layout).draw(texts);
}

Selection selectionOfDays(const HistorySummary& summary, const Chart& chart) {
  Selection selection{
      .pictures = {chart.time},
      .names = {"Day", "Lowest", "Highest", "Above " + fixed(highCharge, 0) + " %", "Hot", "Recorded"}};
  for (const DaySummary& day : summary.days) {
    const auto hours = [&](double seconds) { return day.lowest ? hoursText(seconds) : ""; };
    selection.moments.push_back(
        {.time = (day.begin + day.end) / 2,
         .y = chart.charge.at(day.highest.value_or(chart.charge.from)),
         .values = {dateText(day.date), percentText(day.lowest), percentText(day.highest),
                    hours(day.durations.high), hours(day.durations.hot), hours(day.durations.recorded)}});
  }
  return selection;
}

}  // namespace brisko::lab
