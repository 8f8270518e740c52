// The chart as an SVG document.

#include "report/chart.h"

#include <algorithm>
#include <map>
#include <regex>

#include "report/drawn_moments.h"
#include "report/xml.h"
#include "support/testing.h"

namespace brisko::lab::chart_test {
namespace {

using namespace test;

class ChartTest : public DrawnScenario {
 protected:
  [[nodiscard]] std::vector<std::string> at(const std::string& xpath) const {
    const auto texts = textsAt(drawChart(picture, Frame::alone).svg, xpath);
    EXPECT_TRUE(texts) << "no XML";
    return texts.value_or(std::vector<std::string>{});
  }
  // The steps of the path with this class.
  [[nodiscard]] std::string path(const std::string& style) const {
    const auto steps = at("//s:path[@class='" + style + "']/@d");
    return steps.empty() ? "" : steps.front();
  }
};

TEST_F(ChartTest, isAStandaloneDocument) {
  add(0, 70);
  add(60, 80);
  const std::string svg = drawChart(picture, Frame::alone).svg;
  EXPECT_THAT(svg, StartsWith("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<svg xmlns="));
  EXPECT_THAT(svg, Not(HasSubstr("http-equiv")));
  EXPECT_THAT(at("/s:svg/s:title"), ElementsAre("A scenario"));
  EXPECT_THAT(
      at("/s:svg/s:desc"),
      ElementsAre("From 1 March 2026 08:00:00 to 1 March 2026 09:00:00 (UTC). The charge begins at 70 % "
                  "and ends at 80 %; the lowest is 70 %, the highest 80 %."));
  EXPECT_THAT(at("//s:text[@class='heading']"), ElementsAre("A scenario"));
  EXPECT_THAT(at("/s:svg/@role"), ElementsAre("img"));
  EXPECT_THAT(at("//s:script | //s:image | //@href"), IsEmpty());
}

TEST_F(ChartTest, isAnElementInAPage) {
  add(0, 70);
  const std::string svg = drawChart(picture, Frame::inPage).svg;
  EXPECT_THAT(svg, StartsWith("<svg "));
  EXPECT_THAT(svg, Not(HasSubstr("class=\"heading\">")));
}

TEST_F(ChartTest, escapesAnyText) {
  add(0, 70);
  add(60, 80);
  picture.title = "<b> & \"c\" 'd' \x01";
  picture.events = {{begin, "settings-file </text>"}};
  picture.log = {{begin, "⚠️ <&>"}};
  EXPECT_THAT(at("/s:svg/s:title"), ElementsAre("<b> & \"c\" 'd' \uFFFD"));
  EXPECT_THAT(at("//s:text[contains(@class,'event')]"), ElementsAre("settings-file </text>"));
}

TEST_F(ChartTest, drawsALineThroughItsMoments) {
  add(0, 60);
  add(30, 70);
  add(60, 80);
  const Chart chart = drawChart(picture, Frame::alone);
  EXPECT_EQ(chart.charge.from, 55);
  EXPECT_EQ(chart.charge.until, 85);
  EXPECT_EQ(chart.time.at(begin), 80);
  EXPECT_EQ(chart.time.at(begin + 3600), 986);
  std::smatch steps;
  const std::string d = path("level");
  ASSERT_TRUE(std::regex_match(d, steps, std::regex("M80 ([0-9.]+)h0L533 ([0-9.]+)L986 ([0-9.]+)"))) << d;
  EXPECT_NEAR(std::stod(steps[1]), chart.charge.at(60), 0.05);
  EXPECT_NEAR(std::stod(steps[3]), chart.charge.at(80), 0.05);
}

TEST_F(ChartTest, breaksItsCurvesAtGaps) {
  add(0, 60);
  add(5, 60);
  add(30, 70).afterGap = true;
  add(60, 70);
  const std::string d = path("level");
  EXPECT_EQ(std::count(d.begin(), d.end(), 'M'), 2) << d;
  EXPECT_THAT(at("//s:path[@class='gap']"), SizeIs(1));
}

TEST_F(ChartTest, breaksItsCurvesWhereANumberIsMissing) {
  add(0, 60);
  add(5, 60).level.reset();
  add(60, 70);
  const std::string d = path("level");
  EXPECT_EQ(std::count(d.begin(), d.end(), 'M'), 2) << d;
  EXPECT_EQ(std::count(d.begin(), d.end(), 'L'), 0) << d;
}

TEST_F(ChartTest, showsTheGaugeOnlyWhereItDiffers) {
  add(0, 60).shown = 61;
  add(60, 60).shown = 60;
  EXPECT_EQ(path("shown"), "");
  picture.moments.back().shown = 62;
  EXPECT_THAT(path("shown"), Not(IsEmpty()));
}

TEST_F(ChartTest, shadesTheBandWithItsLimits) {
  add(0, 60).band = Bounds{.upper = 80, .lower = 75};
  add(30, 60).band = Bounds{.upper = 90, .lower = 85};
  add(60, 60);
  EXPECT_THAT(at("//s:text[@class='limit-word']"), ElementsAre("limit 80 %", "75 %", "limit 90 %", "85 %"));
  const std::string boxes = path("band");
  EXPECT_EQ(std::count(boxes.begin(), boxes.end(), 'M'), 2);
  EXPECT_EQ(drawChart(picture, Frame::alone).charge.until, 95);
}

TEST_F(ChartTest, hasARowForEachKnownState) {
  add(0, 60).state = ChargeState::allow;
  add(20, 60).state = ChargeState::hold;
  add(40, 60).state = ChargeState::discharge;
  add(60, 60).state = ChargeState::discharge;
  EXPECT_THAT(at("//s:text[@class='row']"), ElementsAre("Daemon", "UTC"));
  EXPECT_THAT(at("//s:text[starts-with(@class,'word')]"), ElementsAre("allow", "hold", "discharge"));
  picture.moments.front().light = Light::blinking;
  picture.moments.front().wakefulness = Wakefulness::asleep;
  picture.moments.front().supply = Supply::none;
  picture.moments.front().hardware = ChargeState::hold;
  picture.moments.front().occasion = Occasion::heat;
  picture.log = {{begin, "2026-03-01T08:00:00Z  → state: hold"}};
  EXPECT_THAT(at("//s:text[@class='row']"),
              ElementsAre("Occasion", "Daemon", "Hardware", "Light", "Adapter", "Mac", "Log", "UTC"));
  EXPECT_THAT(at("//s:text[starts-with(@class,'word')]"),
              ElementsAre("too hot", "allow", "hold", "discharge", "hold", "blinking", "none", "asleep"));
}

TEST_F(ChartTest, endsAnIntervalAtAGap) {
  add(0, 60).state = ChargeState::hold;
  add(30, 60).state = ChargeState::hold;
  Moment& last = add(60, 60);
  last.state = ChargeState::hold;
  last.afterGap = true;
  EXPECT_THAT(path("look hold"), StartsWith("M80 "));
  EXPECT_THAT(path("look hold"), HasSubstr("h453v"));
}

TEST_F(ChartTest, hasAPanelForEveryKnownNumber) {
  add(0, 60);
  add(60, 60);
  EXPECT_THAT(at("//s:text[@class='title']"), ElementsAre("Charge, %"));
  picture.moments.front().temperatureC = 25;
  picture.moments.front().currentMA = -2000;
  EXPECT_THAT(at("//s:text[@class='title']"),
              ElementsAre("Charge, %", "Current into the battery, mA", "Temperature of the battery, °C"));
  picture.moments.front().currentMA.reset();
  picture.moments.front().watts = 3;
  EXPECT_THAT(at("//s:text[@class='title']"), Contains("Power into the battery, W"));
}

TEST_F(ChartTest, marksWarningsDifferentlyFromOtherLines) {
  add(0, 60);
  add(60, 60);
  picture.log = {{begin, "2026-03-01T08:00:00Z  cap 80%  batt 60%"}};
  EXPECT_THAT(at("//s:path[@class='said' or @class='warned']"), IsEmpty());
  picture.log.push_back({begin + 60, "2026-03-01T08:01:00Z  → state: hold"});
  picture.log.push_back({begin + 120, "2026-03-01T08:02:00Z  ⚠️ something"});
  EXPECT_THAT(at("//s:path[@class='said']"), SizeIs(1));
  EXPECT_THAT(at("//s:path[@class='warned']"), SizeIs(1));
  EXPECT_THAT(at("/s:svg/s:desc"), ElementsAre(HasSubstr("Warnings in the log: 1.")));
}

// --- Actions

TEST_F(ChartTest, showsActionsOfOneMomentTogether) {
  add(0, 60);
  add(60, 60);
  picture.events = {{begin, "plug"}, {begin, "wake"}, {begin + 1800, "sleep"}};
  EXPECT_THAT(at("//s:text[@class='event']"), ElementsAre("plug, wake", "sleep"));
}

TEST_F(ChartTest, letsNoLabelsOverlap) {
  add(0, 60);
  add(60, 60);
  for (int minute = 0; minute < 60; minute += 2)
    picture.events.push_back({begin + minute * 60, "settings limit 80"});
  const std::string words = "//s:text[starts-with(@class,'event')]";
  const auto xs = at(words + "/@x");
  const auto ys = at(words + "/@y");
  ASSERT_THAT(xs, SizeIs(::testing::Gt(20U)));
  ASSERT_EQ(xs.size(), ys.size());
  std::map<std::string, double> lastOfRow;
  for (std::size_t index = 0; index < xs.size(); ++index) {
    const double x = std::stod(xs[index]);
    if (lastOfRow.contains(ys[index])) {
      EXPECT_GT(x - lastOfRow[ys[index]], 17 * 5.5) << index;
    }
    lastOfRow[ys[index]] = x;
  }
  EXPECT_LE(lastOfRow.size(), 5U);
  const std::string marks = path("mark");
  EXPECT_EQ(std::count(marks.begin(), marks.end(), 'M'), 30) << "tick marks show the labels that do not fit";
}

TEST_F(ChartTest, keepsLateLabelsInsideTheChart) {
  add(0, 60);
  add(60, 60);
  picture.events = {{begin + 3600, "everything ends with these long words"}};
  EXPECT_THAT(at("//s:text[@class='event ends']/@x"), ElementsAre("982"));
  picture.events.insert(picture.events.begin(), {begin + 3240, "plug"});
  const auto rows = at("//s:text[starts-with(@class,'event')]/@y");
  ASSERT_THAT(rows, SizeIs(2));
  EXPECT_NE(rows.front(), rows.back()) << "the later label would overlap the earlier one";
}

TEST_F(ChartTest, shortensLongLabelsAndKeepsTheFullTextInTheirTitle) {
  add(0, 60);
  add(60, 60);
  picture.events = {{begin, std::string(44, 'a')}, {begin + 60, std::string(45, 'b')}};
  EXPECT_THAT(at("//s:text[@class='event']/s:title"), ElementsAre(std::string(45, 'b')));
  EXPECT_THAT(at("//s:text[@class='event']/text()"),
              ElementsAre(std::string(44, 'a'), std::string(43, 'b') + "…"));
}

// --- Sizes

TEST_F(ChartTest, acceptsASingleMoment) {
  add(0, 100).state = ChargeState::allow;
  EXPECT_THAT(path("level"), Not(IsEmpty()));
  EXPECT_EQ(drawChart(picture, Frame::alone).time.until, begin + 60);
}

TEST_F(ChartTest, acceptsMomentsWithoutACharge) {
  add(0, 60).level.reset();
  add(60, 60).level.reset();
  EXPECT_EQ(path("level"), "");
  EXPECT_EQ(drawChart(picture, Frame::alone).charge.until, 100);
}

TEST_F(ChartTest, staysSmallOverAYear) {
  for (int hour = 0; hour < 24 * 365; ++hour) {
    for (int part = 0; part < 6; ++part) add(hour * 60 + part * 10, 50 + (hour * 7 + part) % 40);
  }
  const Chart chart = drawChart(picture, Frame::alone);
  EXPECT_LT(chart.svg.size(), 200'000U);
  EXPECT_LT(chart.moments.size(), 4'000U);
  EXPECT_THAT(at("//s:text[contains(@class,'tick')]"), Contains("Apr 2026"));
}

TEST_F(ChartTest, isDeterministic) {
  add(0, 60.123).currentMA = 1234.5;
  add(17, 71.77).temperatureC = 30.05;
  EXPECT_EQ(drawChart(picture, Frame::alone).svg, drawChart(picture, Frame::alone).svg);
}

}  // namespace
}  // namespace brisko::lab::chart_test
