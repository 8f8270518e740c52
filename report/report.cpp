#include "report/report.h"

#include <algorithm>
#include <utility>
#include <vector>

#include "report/chart.h"
#include "report/markup.h"
#include "report/page_texts.h"
#include "report/selection.h"

namespace brisko::lab {
namespace {

constexpr std::size_t linesShownWhole = 3000;

// ---------------------------------------------------------------------------------------------------------
// The log

struct Shown {
  double time;
  const char* style;
  std::string text;
};

// If there are very many lines, only the first and the last of consecutive summaries are shown.
std::vector<Shown> shownLines(const std::vector<LoggedLine>& log, std::size_t& left) {
  const bool all = log.size() <= linesShownWhole;
  const auto sumsUp = [&](std::size_t index) { return index < log.size() && isSummary(log[index].text); };
  std::vector<Shown> shown;
  left = 0;
  for (std::size_t index = 0; index < log.size(); ++index) {
    const LoggedLine& line = log[index];
    const bool between = sumsUp(index) && index > 0 && sumsUp(index - 1) && sumsUp(index + 1);
    if (!all && between) {
      ++left;
      continue;
    }
    const char* style = isWarning(line.text) ? "warning" : isSummary(line.text) ? "summary" : "line";
    shown.push_back({line.time, style, line.text});
  }
  return shown;
}

// Inserts the events before the lines that followed them.
void insertEvents(const std::vector<Event>& events, std::vector<Shown>& shown) {
  for (const Event& event : events) {
    const auto place = std::find_if(shown.begin(), shown.end(), [&](const Shown& line) {
      return line.time > event.time || (line.time == event.time && std::string(line.style) != "event");
    });
    shown.insert(place, {event.time, "event", "▸ " + event.words});
  }
}

std::string logOf(const Picture& picture, std::size_t& left) {
  std::vector<Shown> shown = shownLines(picture.log, left);
  insertEvents(picture.events, shown);
  if (shown.empty()) return "";
  std::string text = "<section>\n<h2>Log</h2>\n<ol id=\"lines\">\n";
  for (const Shown& line : shown) {
    text += std::string("<li class=\"") + line.style + "\" data-time=\"" + fixed(line.time, 3) + "\">" +
            escaped(line.text) + "</li>\n";
  }
  return text + "</ol>\n</section>\n";
}

std::string failuresOf(const Picture& picture) {
  if (picture.failures.empty()) return "";
  std::string text = "<section class=\"failures\">\n<h2>Not everything was seen as it should be</h2>\n";
  for (const std::string& failure : picture.failures) text += "<pre>" + escaped(failure) + "</pre>\n";
  return text + "</section>\n";
}

std::string notesOf(const Picture& picture, const Chart& chart, std::size_t linesLeft) {
  std::vector<std::string> notes = picture.notes;
  if (chart.moments.size() < picture.moments.size()) {
    notes.push_back("The curves go through " + std::to_string(chart.moments.size()) + " of " +
                    std::to_string(picture.moments.size()) +
                    " moments: of each piece of time the first, the last, and the lowest and the highest of "
                    "every number. The rows leave out nothing.");
  }
  if (linesLeft > 0) {
    notes.push_back("Of summaries that follow each other in the log only the first and the last are shown; " +
                    std::to_string(linesLeft) + " lines are left out.");
  }
  std::string text;
  for (const std::string& note : notes) text += "<p>" + escaped(note) + "</p>\n";
  return text.empty() ? "" : "<footer class=\"notes\">\n" + text + "</footer>\n";
}

}  // namespace

std::string reportPage(const Picture& picture) {
  const Chart chart = drawChart(picture, Frame::inPage);
  const Selection selection = selectionOf(chart, picture.curves);
  std::size_t linesLeft = 0;
  const std::string log = logOf(picture, linesLeft);
  std::string page =
      "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n"
      "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">\n<title>";
  page += escaped(picture.title) + "</title>\n<style>\n" + reportCss + "</style>\n</head>\n<body>\n";
  page += "<header>\n<h1>" + escaped(picture.title) + "</h1>\n<p class=\"facts\">" + escaped(picture.facts) +
          ". " + escaped(summaryOf(picture)) + "</p>\n</header>\n" + failuresOf(picture);
  page += std::string(log.empty() ? "<main class=\"without-log\">" : "<main>") + "\n<figure>\n" + chart.svg +
          selectionControls(selection) + "</figure>\n" + log + "</main>\n" +
          notesOf(picture, chart, linesLeft);
  page += selectionScripts(selection) + "</body>\n</html>\n";
  return page;
}

}  // namespace brisko::lab
