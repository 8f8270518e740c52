#include "report/report.h"

#include <algorithm>
#include <functional>
#include <nlohmann/json.hpp>
#include <utility>
#include <vector>

#include "report/chart.h"
#include "report/markup.h"
#include "report/page_texts.h"

namespace brisko::lab {
namespace {

using OrderedJson = nlohmann::ordered_json;

constexpr std::size_t linesShownWhole = 3000;

// --- Values of a moment

struct Reading {
  const char* name;
  std::function<std::string(const Moment&)> text;
};

std::string numberText(const std::optional<double>& number, int digits, const char* unit) {
  return number ? fixed(*number, digits) + " " + unit : "";
}

std::string shownText(const Moment& moment) {
  return moment.shown ? std::to_string(*moment.shown) + " %" : "";
}

std::string bandText(const Moment& moment) {
  if (!moment.band) return "";
  return std::to_string(moment.band->lower) + "–" + std::to_string(moment.band->upper) + " %";
}

const std::vector<Reading>& allReadings() {
  static const auto& readings = *new std::vector<Reading>{
      {"Time", [](const Moment& moment) { return momentText(moment.time); }},
      {"Charge", [](const Moment& moment) { return numberText(moment.level, 1, "%"); }},
      {"Gauge", shownText},
      {"Band", bandText},
      {"Daemon", [](const Moment& moment) { return stateWord(moment.state); }},
      {"Hardware", [](const Moment& moment) { return stateWord(moment.hardware); }},
      {"Current", [](const Moment& moment) { return numberText(moment.currentMA, 0, "mA"); }},
      {"Power", [](const Moment& moment) { return numberText(moment.watts, 1, "W"); }},
      {"Temperature", [](const Moment& moment) { return numberText(moment.temperatureC, 1, "°C"); }},
      {"Light", [](const Moment& moment) { return lightWord(moment.light); }},
      {"Adapter", [](const Moment& moment) { return supplyWord(moment.supply); }},
      {"Mac", [](const Moment& moment) { return wakefulnessWord(moment.wakefulness); }},
      {"Occasion", [](const Moment& moment) { return occasionWord(moment.occasion); }},
  };
  return readings;
}

// The readings that at least one moment has.
std::vector<Reading> readingsOf(const std::vector<Moment>& moments) {
  std::vector<Reading> readings;
  for (const Reading& reading : allReadings()) {
    const bool known = std::any_of(moments.begin(), moments.end(),
                                   [&](const Moment& moment) { return !reading.text(moment).empty(); });
    if (known) readings.push_back(reading);
  }
  return readings;
}

// Times as the script compares them: a millisecond is accurate enough.
double rounded(double time) { return std::stod(fixed(time, 3)); }

std::string dataOf(const Chart& chart, const std::vector<Reading>& readings) {
  OrderedJson data;
  data["from"] = rounded(chart.time.from);
  data["until"] = rounded(chart.time.until);
  data["left"] = chart.time.begin;
  data["right"] = chart.time.end;
  data["names"] = OrderedJson::array();
  for (const Reading& reading : readings) data["names"].push_back(reading.name);
  data["moments"] = OrderedJson::array();
  for (const Moment& moment : chart.moments) {
    OrderedJson values = OrderedJson::array();
    for (const Reading& reading : readings) values.push_back(reading.text(moment));
    const double y = chart.charge.at(moment.level.value_or(chart.charge.from));
    data["moments"].push_back(
        {{"time", rounded(moment.time)}, {"y", std::stod(coordinate(y))}, {"values", std::move(values)}});
  }
  return escapedForScript(data.dump());
}

// --- The log

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

std::string readingTable(const std::vector<Reading>& readings) {
  std::string text = "<dl id=\"reading\">\n";
  for (const Reading& reading : readings) {
    text += std::string("<div><dt>") + reading.name + "</dt><dd></dd></div>\n";
  }
  return text + "</dl>\n";
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
  const std::vector<Reading> readings = readingsOf(chart.moments);
  std::size_t linesLeft = 0;
  const std::string log = logOf(picture, linesLeft);
  std::string page =
      "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n"
      "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">\n<title>";
  page += escaped(picture.title) + "</title>\n<style>\n" + reportCss + "</style>\n</head>\n<body>\n";
  page += "<header>\n<h1>" + escaped(picture.title) + "</h1>\n<p class=\"facts\">" + escaped(picture.facts) +
          ". " + escaped(summaryOf(picture)) + "</p>\n</header>\n" + failuresOf(picture);
  page += std::string(log.empty() ? "<main class=\"without-log\">" : "<main>") + "\n<figure>\n" + chart.svg +
          "<input id=\"moment\" type=\"range\" min=\"0\" max=\"" + std::to_string(chart.moments.size() - 1) +
          "\" value=\"0\" aria-label=\"Moment\">\n" + readingTable(readings) + "</figure>\n" + log +
          "</main>\n" + notesOf(picture, chart, linesLeft);
  page += "<script id=\"data\" type=\"application/json\">" + dataOf(chart, readings) + "</script>\n";
  page += std::string("<script>\n") + reportJs + "</script>\n</body>\n</html>\n";
  return page;
}

}  // namespace brisko::lab
