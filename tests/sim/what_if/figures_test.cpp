// What some days come to, how they compare, and which limit is advised.

#include "sim/what_if/figures.h"

#include <cstdlib>
#include <ctime>

#include "sim/what_if/advice.h"
#include "sim/what_if/agreement.h"
#include "sim/what_if/what_if_text.h"
#include "support/record_schemas.h"
#include "support/testing.h"

namespace brisko::lab::what_if_test {
namespace {

using ::testing::Contains;
using ::testing::HasSubstr;

constexpr double hour = 3600;
constexpr double morning = 1772352000;  // 2026-03-01T08:00:00Z

PlayedMoment at(double hours, double percent, bool plugged = true) {
  return {.time = morning + hours * hour, .percent = percent, .temperatureC = 25, .plugged = plugged};
}

TEST(Figures, countTheTimeAboveEightyAndAtAHundredFromTheMomentBefore) {
  const Figures figures = figuresOf({.moments = {at(0, 80), at(1, 81), at(3, 99), at(7, 100), at(15, 100)}});
  EXPECT_DOUBLE_EQ(figures.seconds, 15 * hour);
  EXPECT_DOUBLE_EQ(figures.above80, 14 * hour) << "not at 80 % itself";
  EXPECT_DOUBLE_EQ(figures.at100, 8 * hour) << "not at 99 %";
  EXPECT_NEAR(figures.meanPercent, (80.5 * 1 + 90 * 2 + 99.5 * 4 + 100 * 8) / 15, 1e-9);
  EXPECT_DOUBLE_EQ(figures.hot, 0);
}

TEST(Figures, countTheTimeInWhichChargingWasPausedForHeat) {
  PlayedDays days{.moments = {at(0, 70), at(1, 70), at(3, 70)}, .nightWakes = 4};
  days.moments[1].hot = true;
  EXPECT_DOUBLE_EQ(figuresOf(days).hot, 2 * hour);
  EXPECT_EQ(figuresOf(days).nightWakes, 4U);
}

TEST(Figures, haveTheChargeAtEachUnplugging) {
  PlayedDays days{.moments = {at(0, 50, false), at(1, 60), at(2, 90, false), at(3, 80, false), at(4, 70),
                              at(5, 76, false), at(6, 70), at(7, 81, false)}};
  const Figures odd = figuresOf(days);
  EXPECT_EQ(odd.unplugged, 3U) << "beginning on the battery is not an unplugging";
  EXPECT_DOUBLE_EQ(odd.medianUnplugged.value_or(0), 81);
  EXPECT_DOUBLE_EQ(odd.leastUnplugged.value_or(0), 76);
  days.moments.resize(6);
  EXPECT_DOUBLE_EQ(figuresOf(days).medianUnplugged.value_or(0), 83) << "of two: between them";
  days.moments = {at(0, 50), at(1, 60)};
  EXPECT_FALSE(figuresOf(days).medianUnplugged);
}

TEST(Figures, countTheTimesThatTheBatteryRanOutUntilItIsPluggedInAgain) {
  const Figures twice =
      figuresOf({.moments = {at(0, 5), at(1, 2, false), at(2, 1, false), at(3, 0, false), at(6, 0), at(7, 1),
                             at(8, 20), at(9, 1, false), at(10, 1, false)}});
  EXPECT_EQ(twice.timesEmpty, 2U) << "once at 1 %, and not on the adapter";
  EXPECT_DOUBLE_EQ(twice.secondsEmpty, 4 * hour + 1 * hour) << "the second time up to the end";
  EXPECT_EQ(figuresOf({.moments = {at(0, 5), at(1, 2, false), at(2, 20)}}).timesEmpty, 0U) << "not at 2 %";
}

TEST(Figures, countWhatLeavesTheBatteryAsCycles) {
  EXPECT_NEAR(figuresOf({.moments = {at(0, 100), at(1, 40, false), at(2, 80), at(3, 40, false)}}).cycles, 1,
              1e-9);
}

TEST(Figures, ageByTheChargeAndTheTemperatureOfEveryMoment) {
  PlayedDays days{.moments = {at(0, 100), at(240, 100)}};
  Ageing constant;
  age(constant, 10, 100, 25);
  for (std::size_t model = 0; model < cellModelCount; ++model)
    EXPECT_NEAR(lossOf(figuresOf(days).ageing, model) / lossOf(constant, model), 1, 1e-9);
  // From 100 to 0 %: between the ageing of the mean charge and that of the full one.
  days.moments.back().percent = 0;
  const Ageing falling = figuresOf(days).ageing;
  Ageing middle;
  age(middle, 10, 50, 25);
  for (std::size_t model = 0; model < cellModelCount; ++model) {
    EXPECT_GT(lossOf(falling, model), lossOf(middle, model));
    EXPECT_LT(lossOf(falling, model), lossOf(constant, model));
  }
}

TEST(Figures, nightIsFromTenToSevenInTheReadersZone) {
  ::setenv("TZ", "UTC", 1);
  ::tzset();
  const double midnight = morning - 8 * hour;
  EXPECT_FALSE(isNight(midnight + 22 * hour - 1));
  EXPECT_TRUE(isNight(midnight + 22 * hour));
  EXPECT_TRUE(isNight(midnight + 7 * hour - 1));
  EXPECT_FALSE(isNight(midnight + 7 * hour));
  ::setenv("TZ", "XYZ-3", 1);  // three hours east
  ::tzset();
  EXPECT_TRUE(isNight(midnight + 19 * hour));
  EXPECT_FALSE(isNight(midnight + 4 * hour));
}

TEST(Figures, areOfTheSightingsThatShowTheAdapter) {
  Trace trace;
  trace.sightings = {{.time = 1, .percent = 70, .plugged = true},
                     {.time = 2, .percent = 71, .plugged = std::nullopt},
                     {.time = 3, .percent = 72, .plugged = false, .hot = true, .temperatureC = 31},
                     {.time = 4, .percent = 73, .plugged = false}};
  const auto moments = momentsOf(trace);
  ASSERT_EQ(moments.size(), 3U);
  EXPECT_EQ(moments[1].percent, 72);
  EXPECT_TRUE(moments[1].hot);
  EXPECT_FALSE(moments[1].plugged);
  EXPECT_EQ(moments[0].temperatureC, 31) << "the first that is known";
  EXPECT_EQ(moments[2].temperatureC, 31) << "the last that was known";
  trace.sightings[2].temperatureC.reset();
  EXPECT_EQ(momentsOf(trace)[0].temperatureC, 25) << "none is known";
}

// --- The agreement

// The charge of the history is that of the play for this share of a hundred hours, and 4 points more after.
Agreement agreementFor(int hoursAlike) {
  Trace history;
  std::vector<PlayedMoment> played;
  for (int count = 0; count <= 100; ++count) {
    const std::int64_t apart = count <= hoursAlike ? 3 : 4;
    history.sightings.push_back({.time = morning + count * hour, .percent = 60 + apart, .plugged = true});
    played.push_back(at(count, 60));
  }
  return agreementOf(history, played);
}

TEST(Agreement, isTheShareOfTheTimeInWhichTheChargesAreAlike) {
  const Agreement all = agreementFor(100);
  EXPECT_DOUBLE_EQ(all.withinThree, 1) << "three points are alike";
  EXPECT_NEAR(all.meanApart, 3, 1e-9);
  EXPECT_DOUBLE_EQ(all.sameState, 1);
  EXPECT_NEAR(agreementFor(50).withinThree, 0.5, 0.01) << "four are not";
  Trace history;
  history.sightings = {{.time = morning, .percent = 60, .state = ChargeState::hold, .plugged = true},
                       {.time = morning + 10 * hour, .percent = 60, .plugged = true}};
  EXPECT_DOUBLE_EQ(agreementOf(history, {at(0, 60), at(10, 60)}).sameState, 0);
}

TEST(Agreement, saysHowFarToTrustWhatFollows) {
  struct Case {
    double withinThree;
    Trust trust;
    const char* text;
  };
  for (const Case& each :
       {Case{0.95, Trust::good, "You can trust"}, Case{0.949, Trust::fair, "not by how much"},
        Case{0.80, Trust::fair, "not by how much"}, Case{0.799, Trust::poor, "too little"}}) {
    const Agreement agreement{.withinThree = each.withinThree, .meanApart = 1.25, .sameState = 0.9};
    EXPECT_EQ(trustIn(agreement), each.trust) << each.withinThree;
    EXPECT_THAT(agreementText(agreement), HasSubstr(each.text));
  }
  EXPECT_THAT(
      agreementText({.withinThree = 0.912, .meanApart = 1.26, .sameState = 0.5}),
      HasSubstr("within three points of the history for 91.2 % of the time (1.3 points apart on average), "
                "and the state is the same for 50.0 %."));
}

// --- The advice

Advice adviceOf(const std::vector<std::size_t>& timesEmpty) {
  Advice advice;
  const auto limits = limitsToTry();
  EXPECT_EQ(limits.size(), timesEmpty.size());
  for (std::size_t index = 0; index < limits.size(); ++index) {
    const auto limit = static_cast<double>(limits[index]);
    Figures figures = figuresOf({.moments = {at(0, limit), at(24, limit)}});
    figures.timesEmpty = timesEmpty[index];
    figures.secondsEmpty = static_cast<double>(timesEmpty[index]) * hour;
    advice.tried.push_back({limits[index], figures});
  }
  return advice;
}

TEST(Advice, triesLimitsFromSixtyToAHundred) {
  EXPECT_THAT(limitsToTry(), ::testing::ElementsAre(60, 65, 70, 75, 80, 85, 90, 95, 100));
}

TEST(Advice, isTheLowestLimitThatWouldNeverHaveLeftAnybodyShort) {
  EXPECT_EQ(advisedLimit(adviceOf({3, 2, 1, 0, 0, 0, 0, 0, 0}).tried), 75);
  EXPECT_EQ(advisedLimit(adviceOf({0, 0, 0, 0, 0, 0, 0, 0, 0}).tried), 60);
  EXPECT_EQ(advisedLimit(adviceOf({9, 8, 7, 6, 5, 4, 3, 2, 0}).tried), 100);
  EXPECT_EQ(advisedLimit(adviceOf({0, 0, 1, 0, 0, 0, 0, 0, 0}).tried), 75)
      << "and neither with any higher one";
  const Advice short_ = adviceOf({3, 3, 2, 1, 1, 1, 1, 1, 1});
  EXPECT_EQ(advisedLimit(short_.tried), std::nullopt);
  EXPECT_EQ(limitThatIsNoWorse(short_.tried), 75);
  EXPECT_THAT(sentencesOf(short_).front(),
              HasSubstr("Even with a limit of 100 % the battery would have run out "
                        "once in these days. → 75 % is the lowest"));
}

TEST(Advice, isACurveOfAgeingAgainstTimesThatTheBatteryRanOut) {
  const std::string table = adviceTable(adviceOf({3, 1, 0, 0, 0, 0, 0, 0, 0}));
  // 60 % compared with 100 %: 0.62 by both models.
  EXPECT_THAT(table,
              HasSubstr("    60 %  0.62       ############          3 times, 3.0 h until plugged in\n"));
  EXPECT_THAT(table, HasSubstr("    65 %"));
  EXPECT_THAT(table,
              HasSubstr("once, 1.0 h until plugged in\n→   70 %  0.70–0.72  ##############        never\n"));
  EXPECT_THAT(table, HasSubstr("   100 %  1.00       ####################  never\n"));
  EXPECT_THAT(sentencesOf(adviceOf({3, 1, 0, 0, 0, 0, 0, 0, 0})).front(),
              HasSubstr("→ 70 % is the lowest limit that would never have left you short"));
}

TEST(Advice, isAnObjectThatMeetsItsSchema) {
  const std::string text = adviceObject(adviceOf({3, 1, 0, 0, 0, 0, 0, 0, 0})).dump();
  EXPECT_EQ(test::flawIn(text, "brisko-advice").value_or(""), "") << text;
  EXPECT_EQ(nlohmann::json::parse(text)["advised"], 70);
  EXPECT_TRUE(adviceObject(adviceOf({1, 1, 1, 1, 1, 1, 1, 1, 1}))["advised"].is_null());
}

// --- The comparison

WhatIf fromEightyTo(double percent) {
  return {.history = {.begin = morning, .end = morning + 48 * hour, .agreement = {.withinThree = 0.99}},
          .asked = {{"limit", 70}, {"thermal", true}},
          .asSet = figuresOf({.moments = {at(0, 80), at(48, 80)}}),
          .asAsked = figuresOf({.moments = {at(0, percent), at(48, percent)}})};
}

TEST(Comparison, hasARowForEverythingThatWasAsked) {
  ::setenv("TZ", "UTC", 1);
  const WhatIf whatIf = fromEightyTo(100);
  EXPECT_EQ(askedText(whatIf.asked), "limit=70 thermal=on");
  EXPECT_EQ(daysText(whatIf.history), "3 days, from 1 March 2026 to 3 March 2026");
  EXPECT_EQ(comparisonTable(comparedFigures(whatIf)),
            "                                 as it was set         as asked\n"
            "Above 80 %                                 0 h             48 h\n"
            "At 100 %                                   0 h             48 h\n"
            "Mean charge                               80 %            100 %\n"
            "Hot, charging paused                       0 h              0 h\n"
            "Charge when unplugged, median  never unplugged  never unplugged\n"
            "Charge when unplugged, least   never unplugged  never unplugged\n"
            "Battery ran out                          never            never\n"
            "Then until plugged in                      0 h              0 h\n"
            "Full cycles                                0.0              0.0\n"
            "Wakes at night, 22 to 7                      0                0\n"
            "Ageing by time alone                      1.00        1.22–1.27\n");
}

TEST(Comparison, saysWhatItsFiguresDoNotMean) {
  const auto sentences = sentencesOf(fromEightyTo(100));
  ASSERT_EQ(sentences.size(), 2U);
  EXPECT_THAT(sentences[0], HasSubstr("doi 10.1016/j.jpowsour.2014.02.012"));
  EXPECT_THAT(sentences[0], HasSubstr("doi 10.1149/2.0411609jes"));
  EXPECT_THAT(sentences[0], HasSubstr("A Mac's cells are neither of the two"));
  EXPECT_THAT(sentences[1], HasSubstr("99.0 %"));
  EXPECT_THAT(sentencesOf(fromEightyTo(80)), Contains(HasSubstr("made no difference")));
}

TEST(Comparison, drawsBothCurvesOverTheTimesOfBoth) {
  PlayedMoment held = at(1, 80);
  held.state = ChargeState::hold;
  const Picture picture = comparedPicture({at(0, 70), held, at(3, 90, false)}, {at(0, 70), at(2, 75)});
  ASSERT_EQ(picture.moments.size(), 4U);
  EXPECT_EQ(picture.moments[2].time, morning + 2 * hour);
  EXPECT_EQ(picture.moments[2].level, 75);
  EXPECT_EQ(picture.moments[2].shown, 80);
  EXPECT_EQ(picture.moments[2].hardware, ChargeState::hold);
  EXPECT_EQ(picture.moments[2].state, ChargeState::allow);
  EXPECT_EQ(picture.moments[3].shown, 90);
  EXPECT_EQ(picture.moments[3].level, 75);
  EXPECT_EQ(picture.curves->level, "as asked");
  const std::string page = whatIfPage(
      {.picture = picture, .figures = comparedFigures(fromEightyTo(100)), .sentences = {"A <sentence>."}});
  EXPECT_THAT(page, HasSubstr(whatIfMark));
  EXPECT_THAT(page, HasSubstr("<th scope=\"row\">Above 80 %</th><td>0 h</td><td>48 h</td>"));
  EXPECT_THAT(page, HasSubstr("<p>A &lt;sentence&gt;.</p>"));
  EXPECT_THAT(page, HasSubstr("as it was set"));
  EXPECT_EQ(page.find("http"), page.find("http://www.w3.org")) << "nothing is requested";
}

}  // namespace
}  // namespace brisko::lab::what_if_test
