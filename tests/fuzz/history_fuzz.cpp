// A day of the history in any bytes: its readers agree on what a sample is, and what is made of the samples
// is whole and harmless.
#include <algorithm>
#include <cmath>
#include <nlohmann/json.hpp>
#include <string>

#include "client/history_report.h"
#include "client/recent_history.h"
#include "fuzz/bytes.h"
#include "fuzz/require.h"
#include "fuzz/target.h"
#include "report/history_files.h"
#include "report/local_days.h"
#include "report/terminal_text.h"

namespace brisko::history_fuzz {
namespace {

constexpr double midnight = 1772323200;  // of 2026-03-01, UTC
constexpr double now = midnight + 86400;

void tryRecent(const std::string& text) {
  const client::RecentHistory recent = client::recentHistory(now, [&text](double) { return text; });
  for (const client::RecentSample& sample : recent.samples) require(sample.time <= now);
  const auto slope = client::slopeOf(recent.samples);
  if (!slope) return;
  require(std::isfinite(slope->perMinute) && slope->perMinute != 0);
  for (const double target : {20.0, 80.0, 100.0}) {
    if (const auto minutes = client::minutesUntil(target, *slope, now)) require(*minutes >= 0);
  }
}

lab::HistoryReading readingOf(std::string_view text) {
  lab::HistoryReading reading;
  for (Bytes bytes(text); !bytes.atEnd();) {
    const lab::HistoryLine line = lab::readHistoryLine(std::string(bytes.upTo('\n')), midnight);
    require(line.moment.has_value() == (line.fault == nullptr));
    if (!line.moment) {
      ++reading.skipped;
      continue;
    }
    require(*line.moment->level >= 0 && *line.moment->level <= 100 && line.moment->state.has_value());
    require(std::abs(line.moment->time - midnight) <= 3 * 86400);
    reading.picture.moments.push_back(*line.moment);
  }
  std::stable_sort(reading.picture.moments.begin(), reading.picture.moments.end(),
                   [](const lab::Moment& one, const lab::Moment& other) { return one.time < other.time; });
  reading.firstDay = reading.lastDay = lab::dateIn("2026-03-01");
  return reading;
}

void tryReport(std::string_view text) {
  const auto report = client::historyReport(readingOf(text), now, true);
  if (!report) return;
  const std::string csv = client::csvText(report->picture.moments);
  require(static_cast<std::size_t>(std::count(csv.begin(), csv.end(), '\n')) ==
          report->picture.moments.size() + 1);
  require(client::historyObject(*report).at("samples") == report->picture.moments.size());
  const std::string shown = client::terminalText(*report, {.width = 60}, now);
  require(lab::forTerminal(shown) == shown);
}

void tryInput(std::string_view input) {
  tryRecent(std::string(input));
  tryReport(input);
}

const FuzzTarget target("history", tryInput);

}  // namespace
}  // namespace brisko::history_fuzz
