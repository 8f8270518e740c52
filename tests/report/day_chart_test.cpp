// The chart with a bar for each day.

#include "report/day_chart.h"

#include <algorithm>

#include "report/drawn_moments.h"
#include "report/xml.h"
#include "support/testing.h"

namespace brisko::lab::day_chart_test {
namespace {

using namespace test;

constexpr double day = 86400;

class DayChart : public InUtc {
 protected:
  DayChart() {
    for (int count = 0; count < 20; ++count) {
      DaySummary each{.begin = midnight + count * day, .end = midnight + (count + 1) * day};
      each.date = dateOf(each.begin);
      each.lowest = 40;
      each.highest = 80;
      each.durations.recorded = 20 * 3600;
      summary.days.push_back(each);
    }
  }
  [[nodiscard]] Chart chart(const Layout& layout = wideLayout()) const {
    return drawDays(summary, {.title = "Charge", .facts = "20 days", .summary = "All days."}, Frame::alone,
                    layout);
  }
  [[nodiscard]] std::vector<std::string> at(const std::string& xpath) const {
    const auto texts = textsAt(chart().svg, xpath);
    EXPECT_TRUE(texts) << "no XML";
    return texts.value_or(std::vector<std::string>{});
  }
  [[nodiscard]] std::string path(const std::string& style) const {
    const auto steps = at("//s:path[@class='" + style + "']/@d");
    return steps.empty() ? "" : steps.front();
  }
  [[nodiscard]] static long barsIn(const std::string& steps) {
    return std::count(steps.begin(), steps.end(), 'M');
  }
  HistorySummary summary;
};

TEST_F(DayChart, hasABarForEachDayFromTheLowestToTheHighestCharge) {
  const std::string bars = path("bar");
  EXPECT_EQ(barsIn(bars), 20);
  const Scale charge = chart().charge;
  EXPECT_EQ(charge.from, 0);
  EXPECT_EQ(charge.until, 100);
  const double width = (986 - 78) / 20.0;
  EXPECT_THAT(bars, StartsWith("M" + std::to_string(78 + width * 0.15).substr(0, 4)));
  const auto height = std::to_string(static_cast<int>(charge.at(40) - charge.at(80)));
  EXPECT_THAT(bars, HasSubstr("v" + height + "h"));
}

TEST_F(DayChart, leavesOutADayWithoutSamples) {
  summary.days[3].lowest.reset();
  summary.days[3].highest.reset();
  EXPECT_EQ(barsIn(path("bar")), 19);
  EXPECT_EQ(barsIn(path("gap")), 1);
}

TEST_F(DayChart, showsADayOnWhichTheChargeStayedTheSame) {
  summary.days.front().lowest = summary.days.front().highest = 80;
  EXPECT_THAT(path("bar"), ContainsRegex("^M[0-9. ]*h[0-9.]*v2h"));
}

TEST_F(DayChart, hasAPanelForTheHoursAbove80AndOneForTheHotOnes) {
  EXPECT_THAT(at("//s:text[@class='title']"),
              ElementsAre("Charge, lowest to highest, %", "Hours above 80 %", "Hours hot"));
  EXPECT_EQ(path("high"), "");
  summary.days[1].durations.high = 6 * 3600;
  summary.days[2].durations.hot = 25 * 3600;
  EXPECT_THAT(path("high"), HasSubstr("v25h")) << "6 of 24 hours, in a panel of 100";
  EXPECT_THAT(path("heated"), HasSubstr("v100h")) << "not beyond its panel";
}

TEST_F(DayChart, isADocumentInEverySize) {
  for (const Layout& layout : {narrowLayout(), mediumLayout(), wideLayout()}) {
    const Chart drawn = chart(layout);
    EXPECT_EQ(drawn.width, layout.width);
    EXPECT_EQ(textsAt(drawn.svg, "/s:svg/s:title").value_or(std::vector<std::string>{}),
              std::vector<std::string>{"Charge"});
    EXPECT_THAT(drawn.svg, HasSubstr("class=\"picture large " + layout.name + "\""));
  }
}

TEST_F(DayChart, letsEveryDayBeSelectedAtItsMiddle) {
  summary.days[1].lowest.reset();
  summary.days[1].highest.reset();
  const Selection selection = selectionOfDays(summary, chart());
  EXPECT_THAT(selection.names, ElementsAre("Day", "Lowest", "Highest", "Above 80 %", "Hot", "Recorded"));
  ASSERT_THAT(selection.moments, SizeIs(20));
  EXPECT_EQ(selection.moments[0].time, midnight + day / 2);
  EXPECT_EQ(selection.moments[0].y, chart().charge.at(80));
  EXPECT_THAT(selection.moments[0].values, ElementsAre("1 March 2026", "40 %", "80 %", "0 h", "0 h", "20 h"));
  EXPECT_THAT(selection.moments[1].values, ElementsAre("2 March 2026", "", "", "", "", ""));
}

TEST_F(DayChart, isTheSameForTheSame) { EXPECT_EQ(chart().svg, chart().svg); }

}  // namespace
}  // namespace brisko::lab::day_chart_test
