#include "report/selection.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <utility>

#include "report/markup.h"
#include "report/page_texts.h"

namespace brisko::lab {
namespace {

using OrderedJson = nlohmann::ordered_json;

// ---------------------------------------------------------------------------------------------------------
// Values of a moment

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

std::string nameOf(const Reading& reading, const std::optional<CurveNames>& curves) {
  std::string name = reading.name;
  if (!curves) return name;
  if (name == "Charge") return "Charge, " + curves->level;
  if (name == "Gauge") return "Charge, " + curves->shown;
  if (name == "Daemon") return curves->state;
  return name == "Hardware" ? curves->hardware : name;
}

// ---------------------------------------------------------------------------------------------------------

// Times as the script compares them: a millisecond is accurate enough.
double rounded(double time) { return std::stod(fixed(time, 3)); }

std::string dataOf(const Selection& selection) {
  OrderedJson data;
  data["from"] = rounded(selection.pictures.front().from);
  data["until"] = rounded(selection.pictures.front().until);
  data["pictures"] = OrderedJson::array();
  for (const Scale& time : selection.pictures)
    data["pictures"].push_back({{"left", time.begin}, {"right", time.end}});
  data["names"] = selection.names;
  data["moments"] = OrderedJson::array();
  for (const Selectable& moment : selection.moments) {
    data["moments"].push_back(
        {{"time", rounded(moment.time)}, {"y", std::stod(coordinate(moment.y))}, {"values", moment.values}});
  }
  return escapedForScript(data.dump());
}

}  // namespace

Selection selectionOf(const Chart& chart, const std::optional<CurveNames>& curves) {
  const std::vector<Reading> readings = readingsOf(chart.moments);
  Selection selection{.pictures = {chart.time}};
  for (const Reading& reading : readings) selection.names.push_back(nameOf(reading, curves));
  for (const Moment& moment : chart.moments) {
    std::vector<std::string> values;
    for (const Reading& reading : readings) values.push_back(reading.text(moment));
    selection.moments.push_back({.time = moment.time,
                                 .y = chart.charge.at(moment.level.value_or(chart.charge.from)),
                                 .values = std::move(values)});
  }
  return selection;
}

std::string selectionControls(const Selection& selection) {
  std::string text = "<input id=\"moment\" type=\"range\" min=\"0\" max=\"" +
                     std::to_string(selection.moments.size() - 1) +
                     "\" value=\"0\" aria-label=\"Moment\">\n<dl id=\"reading\">\n";
  for (const std::string& name : selection.names) text += "<div><dt>" + name + "</dt><dd></dd></div>\n";
  return text + "</dl>\n";
}

std::string selectionScripts(const Selection& selection) {
  return "<script id=\"data\" type=\"application/json\">" + dataOf(selection) + "</script>\n<script>\n" +
         selectionJs + "</script>\n";
}

}  // namespace brisko::lab
