#include "client/history_plot.h"

#include <algorithm>
#include <sstream>
#include <string>
#include <vector>

#include "report/drawn_moments.h"
#include "support/testing.h"

namespace brisko::client::history_plot_test {
namespace {

using namespace test;

class HistoryPlot : public lab::InUtc {
 protected:
  void add(double hours, double level, bool afterGap = false) {
    samples.push_back(momentAt(midnight + hours * 3600, level));
    samples.back().afterGap = afterGap;
  }
  [[nodiscard]] std::vector<std::string> lines(std::size_t width, bool unicode) const {
    std::istringstream text(plotText(samples, {.unicode = unicode, .width = width}));
    std::vector<std::string> all;
    for (std::string line; std::getline(text, line);) all.push_back(line);
    return all;
  }
  std::vector<lab::Moment> samples;
};

TEST_F(HistoryPlot, fitsIntoEveryTerminal) {
  for (int hour = 0; hour < 200; ++hour) add(hour, hour % 101);
  for (const std::size_t width : {20UL, 40UL, 41UL, 80UL, 200UL}) {
    std::size_t widest = 0;
    for (const std::string& line : lines(width, true)) widest = std::max(widest, columnsOf(line));
    EXPECT_LE(widest, std::max<std::size_t>(std::min<std::size_t>(width, 80), 40)) << width;
    EXPECT_GE(widest, std::min<std::size_t>(width, 80) - 1) << width;
  }
}

TEST_F(HistoryPlot, showsTheLevelOfTheTime) {
  add(0, 0);
  add(10, 50);
  add(20, 100);
  add(30, 100);
  const auto plot = lines(40, true);
  ASSERT_EQ(plot.size(), 10U);
  EXPECT_THAT(plot[0], StartsWith("100 |"));
  EXPECT_THAT(plot[4], StartsWith(" 50 |"));
  EXPECT_THAT(plot[8], StartsWith("  0 +---"));
  EXPECT_THAT(plot[0], EndsWith("██████"));
  EXPECT_EQ(columnsOf(plot[0]), 39U) << "the upper row reaches to the last column";
  EXPECT_THAT(plot[7], StartsWith("    |▁▁▁")) << "an empty battery was recorded too";
  EXPECT_THAT(plot[4], HasSubstr("█"));
  EXPECT_EQ(columnsOf(plot[3].substr(0, plot[3].find("█"))), 5U + 22U) << "50 % ends at its line";
}

TEST_F(HistoryPlot, showsNothingWhereNothingWasRecorded) {
  add(0, 100);
  add(1, 100);
  add(9, 100, true);
  add(10, 100);
  const auto plot = lines(40, false);
  EXPECT_THAT(plot[0], ::testing::MatchesRegex("100 \\|#+ {20,}#+"));
}

TEST_F(HistoryPlot, needsNoUnicode) {
  for (int hour = 0; hour < 100; ++hour) add(hour, hour);
  for (const std::string& line : lines(80, false)) {
    for (const char character : line) EXPECT_GE(character, ' ') << line;
  }
}

TEST_F(HistoryPlot, namesTheDaysOrTheHoursAtItsEnds) {
  add(8, 50);
  add(20, 60);
  EXPECT_THAT(lines(40, false).back(), ::testing::MatchesRegex("     08:00 +20:00"));
  add(30, 60);
  EXPECT_THAT(lines(40, false).back(), ::testing::MatchesRegex("     Mar 1 +Mar 2"));
}

TEST_F(HistoryPlot, canBeOfOneSample) {
  add(8, 100);
  EXPECT_THAT(lines(40, false)[0], StartsWith("100 |#"));
}

}  // namespace
}  // namespace brisko::client::history_plot_test
