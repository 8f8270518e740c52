#include "report/history_page.h"

#include <array>
#include <numeric>
#include <vector>

#include "report/chart.h"
#include "report/day_chart.h"
#include "report/markup.h"
#include "report/page_beginning.h"
#include "report/scale.h"
#include "report/selection.h"

namespace brisko::lab {
namespace {

constexpr std::size_t mostDaysOfCurves = 14;

Texts textsOf(const HistoryView& view) {
  return {.title = view.picture.title,
          .facts = view.picture.facts,
          .summary = summaryOf(view.picture),
          .notes = view.picture.notes};
}

Chart draw(const HistoryView& view, Frame frame, const Layout& layout) {
  if (showsCurves(view.summary)) return drawChart(view.picture, frame, layout);
  return drawDays(view.summary, textsOf(view), frame, layout);
}

// ---------------------------------------------------------------------------------------------------------
// The parts of the page

std::string figureText(const std::string& name, const std::string& value) {
  return "<div><dt>" + name + "</dt><dd>" + escaped(value) + "</dd></div>\n";
}

std::string whenText(const Moment& moment) {
  const std::string text = momentText(moment.time);
  return fixed(*moment.level, 0) + " %, " + text.substr(0, text.size() - 3);
}

std::string figuresOf(const HistorySummary& summary) {
  std::string text = "<dl class=\"figures\">\n";
  text += figureText("Lowest", whenText(summary.lowest)) + figureText("Highest", whenText(summary.highest)) +
          figureText("Above " + fixed(highCharge, 0) + " %", hoursText(summary.durations.high)) +
          figureText("Paused for heat", hoursText(summary.durations.hot)) +
          figureText("On the adapter", hoursText(summary.plugged)) +
          figureText("Recorded", hoursText(summary.durations.recorded));
  if (summary.coolest) {
    text +=
        figureText("Temperature", fixed(*summary.coolest, 1) + " to " + fixed(*summary.warmest, 1) + " °C");
  }
  return text + "</dl>\n";
}

struct LegendEntry {
  const char* style;  // of the chart
  bool isLine;
  const char* meaning;
};

std::string legendOf(const std::vector<LegendEntry>& entries) {
  std::string text = "<figcaption>\n<ul class=\"legend\">\n";
  for (const LegendEntry& entry : entries) {
    text += std::string("<li><svg class=\"picture swatch ") + (entry.isLine ? "of-line" : "of-area") +
            "\" width=\"26\" height=\"14\" aria-hidden=\"true\">";
    text += entry.isLine ? std::string("<path class=\"") + entry.style + "\" d=\"M1 7h24\"/>"
                         : std::string("<rect class=\"") + entry.style + "\" width=\"26\" height=\"14\"/>";
    text += std::string("</svg>") + escaped(entry.meaning) + "</li>\n";
  }
  return text + "</ul>\n</figcaption>\n";
}

std::string legendOf(const HistorySummary& summary) {
  const LegendEntry gap{"gap", false, "nothing recorded"};
  if (!showsCurves(summary)) {
    return legendOf({{"bar", false, "charge of a day, from the lowest to the highest"},
                     {"high", false, "hours above 80 %"},
                     {"heated", false, "hours in which charging was paused for heat"},
                     {"high-line", true, "80 %"},
                     gap});
  }
  return legendOf({{"level", true, "charge"},
                   {"look allow", false, "allow: the battery may charge"},
                   {"look hold", false, "hold: charging is stopped"},
                   {"look discharge", false, "discharge, cut: the Mac runs from its battery, plugged in"},
                   {"look connected", false, "adapter connected"},
                   {"look hot", false, "too hot: charging is paused"},
                   gap});
}

std::string tableOf(const HistorySummary& summary) {
  const double all = std::accumulate(summary.byCharge.begin(), summary.byCharge.end(), 0.0);
  std::string text =
      "<section>\n<h2 id=\"by-charge\">Hours by charge</h2>\n<table aria-labelledby=\"by-charge\">\n"
      "<thead><tr><th scope=\"col\">Charge</th><th scope=\"col\">Hours</th><th scope=\"col\">Share</th>"
      "<td></td></tr></thead>\n<tbody>\n";
  for (std::size_t index = summary.byCharge.size(); index-- > 0;) {
    const double seconds = summary.byCharge.at(index);
    const std::string percent = fixed(all > 0 ? 100 * seconds / all : 0, 1);
    text += "<tr><th scope=\"row\">" + chargeText(index) + "</th><td>" + hoursText(seconds) + "</td><td>" +
            percent + " %</td>";
    text +=
        "<td class=\"share\"><svg class=\"picture\" viewBox=\"0 0 100 10\" preserveAspectRatio=\"none\" "
        "aria-hidden=\"true\"><rect class=\"bar\" width=\"";
    text += percent + "\" height=\"10\"/></svg></td></tr>\n";
  }
  return text + "</tbody>\n</table>\n</section>\n";
}

std::string notesOf(const HistoryView& view, const Chart& chart) {
  std::vector<std::string> notes = view.picture.notes;
  if (chart.moments.size() > 0 && chart.moments.size() < view.picture.moments.size()) {
    notes.push_back("The curves go through " + std::to_string(chart.moments.size()) + " of " +
                    std::to_string(view.picture.moments.size()) +
                    " samples, among them the lowest and the highest of every interval.");
  }
  notes.emplace_back("Hours count only while something was recorded.");
  std::string text = "<footer class=\"notes\">\n";
  for (const std::string& note : notes) text += "<p>" + escaped(note) + "</p>\n";
  return text + "</footer>\n";
}

// The same picture for a phone's window, a small one and a large one. The style sheet shows the one that
// fits, so that letters stay readable without scrolling sideways.
struct Pictures {
  std::string svg;
  Selection selection;
  Chart widest;
};

Pictures picturesOf(const HistoryView& view) {
  Pictures pictures;
  for (const Layout& layout : {narrowLayout(), mediumLayout(), wideLayout()}) {
    Chart chart = draw(view, Frame::amongOthers, layout);
    const Selection selection =
        showsCurves(view.summary) ? selectionOf(chart) : selectionOfDays(view.summary, chart);
    if (pictures.selection.moments.empty()) {
      pictures.selection = selection;
    } else {
      pictures.selection.pictures.push_back(chart.time);
    }
    pictures.svg += chart.svg;
    pictures.widest = std::move(chart);
  }
  return pictures;
}

}  // namespace

bool showsCurves(const HistorySummary& summary) { return summary.days.size() <= mostDaysOfCurves; }

std::string historyPage(const HistoryView& view) {
  const Pictures pictures = picturesOf(view);
  const std::string title = escaped(view.picture.title);
  std::string page = pageBeginning(historyMark, title);
  page += "<header>\n<h1>" + title + "</h1>\n<p class=\"facts\">" + escaped(view.picture.facts) + ". " +
          escaped(summaryOf(view.picture)) + "</p>\n</header>\n<main>\n" + figuresOf(view.summary);
  page += "<figure>\n" + pictures.svg + selectionControls(pictures.selection) + legendOf(view.summary) +
          "</figure>\n" + tableOf(view.summary) + "</main>\n" + notesOf(view, pictures.widest) +
          selectionScripts(pictures.selection) + "</body>\n</html>\n";
  return page;
}

std::string historyPicture(const HistoryView& view) {
  std::string svg = draw(view, Frame::alone, wideLayout()).svg;
  const std::size_t begin = svg.find("?>\n") + 3;
  return svg.insert(begin, std::string("<!-- ") + historyMark + " -->\n");
}

}  // namespace brisko::lab
