#include "client/history_report.h"

#include <array>
#include <cmath>
#include <cstdio>
#include <nlohmann/json.hpp>
#include <utility>

#include "client/history_plot.h"
#include "client/local_time.h"
#include "report/chart.h"
#include "report/local_days.h"

namespace brisko::client {
namespace {

using lab::HistorySummary;
using lab::Moment;

std::int64_t whole(double number) { return static_cast<std::int64_t>(std::llround(number)); }

std::string titleOf(const HistorySummary& summary) {
  const lab::Date first = summary.days.front().date;
  const lab::Date last = summary.days.back().date;
  if (first == last) return "Charge on " + lab::dateText(first);
  return "Charge from " + lab::dateText(first) + " to " + lab::dateText(last);
}

std::string countText(std::size_t samples) {
  return std::to_string(samples) + (samples == 1 ? " sample" : " samples");
}

std::string lengthText(double seconds) { return seconds < 1 ? "none" : durationText(seconds); }

// ---------------------------------------------------------------------------------------------------------
// The table for a terminal

constexpr std::size_t labelWidth = 12;

struct Row {
  std::string label;
  std::string text;
};

std::string extremeText(const Moment& moment, double now) {
  return percentText(whole(*moment.level)) + "  " + timeText(moment.time, now);
}

std::vector<Row> rowsOf(const HistorySummary& summary, double now) {
  const lab::Durations& durations = summary.durations;
  std::vector<Row> rows{
      {"Lowest", extremeText(summary.lowest, now)},
      {"Highest", extremeText(summary.highest, now)},
      {"Above " + percentText(whole(lab::highCharge)), lengthText(durations.high)},
      {"Hot", lengthText(durations.hot)},
      {"Adapter", lengthText(summary.plugged)},
      {"Recorded", lengthText(durations.recorded)},
  };
  if (summary.coolest)
    rows.push_back({"Battery", degreesText(*summary.coolest) + " to " + degreesText(*summary.warmest)});
  return rows;
}

// ---------------------------------------------------------------------------------------------------------

Json daysOf(const HistorySummary& summary) {
  Json days = Json::array();
  for (const lab::DaySummary& day : summary.days) {
    Json object{{"day", lab::isoText(day.date)},
                {"recorded", whole(day.durations.recorded)},
                {"above80", whole(day.durations.high)},
                {"hot", whole(day.durations.hot)}};
    if (day.lowest) {
      object["lowest"] = whole(*day.lowest);
      object["highest"] = whole(*day.highest);
    }
    days.push_back(std::move(object));
  }
  return days;
}

Json extremeOf(const Moment& moment) {
  return {{"percent", whole(*moment.level)}, {"time", whole(moment.time)}};
}

Json secondsOf(const HistorySummary& summary) {
  const auto inState = [&](ChargeState state) {
    return whole(summary.inState.at(static_cast<std::size_t>(state)));
  };
  return {{"recorded", whole(summary.durations.recorded)}, {"above80", whole(summary.durations.high)},
          {"hot", whole(summary.durations.hot)},           {"plugged", whole(summary.plugged)},
          {"allow", inState(ChargeState::allow)},          {"hold", inState(ChargeState::hold)},
          {"discharge", inState(ChargeState::discharge)}};
}

// From the emptiest to the full battery.
Json chargesOf(const HistorySummary& summary) {
  Json charges = Json::array();
  for (std::size_t index = 0; index < summary.byCharge.size(); ++index) {
    const std::size_t from = index * 10;
    charges.push_back({{"from", from},
                       {"to", index == 10 ? from : from + 9},
                       {"seconds", whole(summary.byCharge.at(index))}});
  }
  return charges;
}

std::string decimal(const std::optional<double>& number) {
  if (!number) return "";
  std::array<char, 32> text{};
  static_cast<void>(std::snprintf(text.data(), text.size(), "%.1f", *number));
  return text.data();
}

}  // namespace

std::optional<HistoryReport> historyReport(lab::HistoryReading reading, double now, bool recording) {
  const std::size_t later =
      std::erase_if(reading.picture.moments, [now](const Moment& moment) { return moment.time > now; });
  if (reading.picture.moments.empty()) return std::nullopt;
  HistoryReport report{
      .picture = std::move(reading.picture), .skipped = reading.skipped, .recording = recording};
  report.summary = lab::summariseHistory(report.picture.moments);
  report.picture.title = titleOf(report.summary);
  report.picture.facts = countText(report.picture.moments.size());
  if (later > 0 || *reading.lastDay > lab::dateOf(now))
    report.remarks.emplace_back(
        "Part of the history is later than now, because the clock was set back; it is left out.");
  if (!recording)
    report.remarks.emplace_back("The history is switched off; \"brisko set history=on\" records it again.");
  auto& notes = report.picture.notes;
  notes.insert(notes.end(), report.remarks.begin(), report.remarks.end());
  return report;
}

std::string terminalText(const HistoryReport& report, const OutputStyle& style, double now) {
  std::string text = wrapped(report.picture.title + ", " + report.picture.facts, style.width) + "\n\n" +
                     plotText(report.picture.moments, style) + "\n";
  for (const Row& row : rowsOf(report.summary, now)) {
    const std::string line = row.label + std::string(labelWidth - row.label.size(), ' ') + row.text;
    text += wrapped(line, style.width, labelWidth) + "\n";
  }
  if (report.skipped > 0) text += "Unusable lines, left out: " + std::to_string(report.skipped) + "\n";
  for (const std::string& remark : report.remarks) text += wrapped(remark, style.width) + "\n";
  text.pop_back();
  return text;
}

std::string csvText(const std::vector<Moment>& samples) {
  std::string text = "time,seconds,percent,state,adapter,hot,celsius,watts\n";
  for (const Moment& sample : samples) {
    text += stampText(sample.time) + "," + std::to_string(whole(sample.time)) + "," +
            std::to_string(whole(*sample.level)) + "," + lab::stateWord(sample.state) + "," +
            lab::supplyWord(sample.supply) + "," + (sample.occasion == lab::Occasion::heat ? "yes," : "no,") +
            decimal(sample.temperatureC) + "," + decimal(sample.watts) + "\n";
  }
  return text;
}

Json historyObject(const HistoryReport& report) {
  const HistorySummary& summary = report.summary;
  Json object{{"schema", "brisko.history/1"},
              {"from", whole(report.picture.moments.front().time)},
              {"to", whole(report.picture.moments.back().time)},
              {"samples", report.picture.moments.size()},
              {"skipped", report.skipped},
              {"recording", report.recording},
              {"lowest", extremeOf(summary.lowest)},
              {"highest", extremeOf(summary.highest)},
              {"seconds", secondsOf(summary)},
              {"byCharge", chargesOf(summary)},
              {"days", daysOf(summary)}};
  if (summary.coolest) object["celsius"] = {{"lowest", *summary.coolest}, {"highest", *summary.warmest}};
  return object;
}

}  // namespace brisko::client
