// Comparing a replay with its report: shares of time, the charge, and what departs first.

#include "sim/replay/comparison.h"

#include <cmath>

#include "replay_proof/agreement.h"
#include "report/report.h"
#include "support/testing.h"

namespace brisko::lab::comparison_test {
namespace {

using ::testing::HasSubstr;

// A sighting every minute, from one percentage to another.
void add(Trace& trace, double from, double until, ChargeState state, std::int64_t first, std::int64_t last) {
  for (double time = from; time <= until; time += 60) {
    const double share = (time - from) / (until - from);
    const double percent = static_cast<double>(first) + share * static_cast<double>(last - first);
    trace.sightings.push_back({.time = time, .percent = std::llround(percent), .state = state});
  }
}

Trace anHourOfHolding() {
  Trace trace;
  add(trace, 0, 3600, ChargeState::hold, 80, 80);
  return trace;
}

TEST(Comparison, agreesWithItself) {
  const Comparison comparison = compare(anHourOfHolding(), anHourOfHolding());
  EXPECT_EQ(comparison.states[1].reported, 3600);
  EXPECT_EQ(comparison.states[1].share(), 1);
  EXPECT_EQ(comparison.states[0].share(), 1) << "a state that never occurs";
  EXPECT_EQ(comparison.charge.size(), 13U);
  EXPECT_EQ(comparison.chargeShare(), 1);
  EXPECT_TRUE(comparison.departures.empty());
  EXPECT_THAT(comparisonText(comparison), HasSubstr("Nothing departs."));
}

TEST(Comparison, countsTheTimeInEachStateApart) {
  Trace replayed;
  add(replayed, 0, 1740, ChargeState::allow, 80, 80);
  add(replayed, 1800, 3600, ChargeState::hold, 80, 80);
  const Comparison comparison = compare(anHourOfHolding(), replayed);
  EXPECT_EQ(comparison.states[1].share(), 0.5);
  EXPECT_EQ(comparison.states[0].replayed, 1800);
  EXPECT_EQ(comparison.states[0].reported, 0);
  ASSERT_EQ(comparison.departures.size(), 1U);
  EXPECT_EQ(comparison.departures[0].time, 0);
  EXPECT_EQ(comparison.departures[0].words, "the state is hold in the report, allow in the replay");
}

TEST(Comparison, takesTheStateFromALineWhereTheMacFallsAsleepAtOnce) {
  Trace reported;
  add(reported, 0, 600, ChargeState::discharge, 80, 80);
  reported.lines = {{605, "→ state: hold"}};
  add(reported, 3600, 3660, ChargeState::hold, 80, 80);
  Trace replayed;
  add(replayed, 0, 600, ChargeState::discharge, 80, 80);
  add(replayed, 605, 3660, ChargeState::hold, 80, 80);
  const Comparison comparison = compare(reported, replayed);
  EXPECT_EQ(comparison.states[2].reported, 605);
  EXPECT_EQ(comparison.states[1].share(), 1);
  EXPECT_TRUE(comparison.departures.empty());
}

TEST(Comparison, judgesNoStateThatTheReportHasForLessThanAQuarterOfAnHour) {
  for (const auto& [minutes, judged] : {std::pair{14, false}, {15, true}}) {
    Trace reported;
    add(reported, 0, minutes * 60 - 60, ChargeState::discharge, 80, 80);
    add(reported, minutes * 60, 3600, ChargeState::hold, 80, 80);
    const Comparison comparison = compare(reported, anHourOfHolding());
    EXPECT_EQ(comparison.states[2].reported, minutes * 60);
    EXPECT_EQ(comparison.states[2].canBeJudged(), judged) << minutes;
    const std::string text = comparisonText(comparison);
    EXPECT_EQ(text.find("discharge: 0.2 h reported, 0.0 h replayed, too little to judge") == text.npos,
              judged)
        << text;
    proof::Agreement agreement;
    agreement.add(1, comparison);
    EXPECT_EQ(agreement.missedGoals().empty(), !judged) << agreement.text();
    const std::string all = agreement.text();
    EXPECT_EQ(all.find("discharge: 0.2 h reported, 0.0 h replayed, too little to judge") == all.npos, judged)
        << all;
  }
}

TEST(Comparison, takesNoShortDifferenceOfTheStateForADeparture) {
  for (const auto& [minutes, departs] : {std::pair{14, false}, {15, true}}) {
    Trace replayed;
    add(replayed, 0, 1740, ChargeState::hold, 80, 80);
    const double end = 1800 + minutes * 60;
    add(replayed, 1800, end - 60, ChargeState::allow, 80, 80);
    add(replayed, end, 3600, ChargeState::hold, 80, 80);
    const Comparison comparison = compare(anHourOfHolding(), replayed);
    EXPECT_EQ(!comparison.departures.empty(), departs) << minutes;
  }
}

// A state that flips in one of them.
TEST(Comparison, addsUpShortDifferencesOfTheStateWithMinutesBetweenThem) {
  for (const auto& [agreeing, departs] : {std::pair{240.0, true}, {360.0, false}}) {
    Trace replayed;
    for (double time = 0; time <= 3600; time += 60) {
      const bool differs = time >= 600 && std::fmod(time - 600, 180 + agreeing) < 180;
      add(replayed, time, time + 1, differs ? ChargeState::discharge : ChargeState::hold, 80, 80);
    }
    const Comparison comparison = compare(anHourOfHolding(), replayed);
    ASSERT_EQ(comparison.departures.size(), departs ? 1U : 0U) << agreeing;
    if (!departs) continue;
    EXPECT_EQ(comparison.departures[0].time, 600);
  }
}

TEST(Comparison, namesTheMomentAtWhichTheChargeIsMoreThanThreePointsApart) {
  Trace replayed;
  add(replayed, 0, 1500, ChargeState::hold, 80, 83);
  add(replayed, 1560, 3600, ChargeState::hold, 84, 84);
  const Comparison comparison = compare(anHourOfHolding(), replayed);
  EXPECT_EQ(comparison.withinThree, 6U) << "three points are not too far";
  ASSERT_EQ(comparison.departures.size(), 1U) << "once, not at every moment";
  EXPECT_EQ(comparison.departures[0].time, 1560) << "between two of the moments";
  EXPECT_EQ(comparison.departures[0].words, "the charge is 80 % in the report, 84 % in the replay");
}

TEST(Comparison, takesNoDistanceThatIsMadeUpBetweenTwoMomentsForADeparture) {
  Trace replayed;
  add(replayed, 0, 1500, ChargeState::hold, 80, 80);
  add(replayed, 1560, 1620, ChargeState::hold, 84, 84);
  add(replayed, 1680, 1740, ChargeState::hold, 80, 80);
  add(replayed, 1770, 3600, ChargeState::hold, 84, 84);
  const Comparison comparison = compare(anHourOfHolding(), replayed);
  ASSERT_EQ(comparison.departures.size(), 1U);
  EXPECT_EQ(comparison.departures[0].time, 1800);
}

// In between nothing is known but where the charge began and ended.
TEST(Comparison, datesADepartureInAGapOfTheReportAtItsEnd) {
  for (const auto& [percent, departs] : {std::pair{60, true}, {78, false}}) {
    Trace reported;
    add(reported, 0, 600, ChargeState::allow, 40, 40);
    add(reported, 7200, 7260, ChargeState::allow, 80, 80);
    Trace replayed;
    add(replayed, 0, 600, ChargeState::allow, 40, 40);
    add(replayed, 3600, 3660, ChargeState::allow, 45, 45);
    add(replayed, 7200, 7260, ChargeState::allow, percent, percent);
    const Comparison comparison = compare(reported, replayed);
    EXPECT_LT(comparison.chargeShare(), 0.9);
    ASSERT_EQ(comparison.departures.size(), departs ? 1U : 0U) << percent;
    if (!departs) continue;
    EXPECT_EQ(comparison.departures[0].time, 7200);
    EXPECT_EQ(comparison.departures[0].words, "the charge is 80 % in the report, 60 % in the replay");
  }
}

TEST(Comparison, leavesOutTheTimeWithoutADaemon) {
  Trace reported = anHourOfHolding();
  reported.lines = {{600, "Signal 15: charging, adapter and LED restored, exiting."},
                    {2400, "brisko-daemon started (event-driven) — …"}};
  Trace replayed;
  add(replayed, 0, 540, ChargeState::hold, 80, 80);
  add(replayed, 600, 2340, ChargeState::allow, 90, 90);
  add(replayed, 2400, 3600, ChargeState::hold, 80, 80);
  replayed.lines = reported.lines;
  const Comparison comparison = compare(reported, replayed);
  EXPECT_EQ(comparison.states[1].reported, 1800);
  EXPECT_EQ(comparison.states[1].share(), 1);
  EXPECT_TRUE(comparison.departures.empty());
}

TEST(Comparison, namesALineThatOnlyOneOfThemHasAndIgnoresNumbersInIt) {
  EXPECT_EQ(kindOf("veille à 82% (plage 75–80%)"), "veille à #% (plage #–#%)");
  Trace reported = anHourOfHolding();
  Trace replayed = anHourOfHolding();
  reported.lines = {{100, "gate found open during a hold — closing it again (CHTE)"},
                    {200, "macOS limit → 80%"},
                    {300, "veille à 80% — …"}};
  replayed.lines = {{900, "macOS limit → 85%"}};
  const Comparison comparison = compare(reported, replayed);
  ASSERT_EQ(comparison.departures.size(), 1U);
  EXPECT_EQ(comparison.departures[0].time, 100);
  EXPECT_THAT(comparison.departures[0].words, HasSubstr("only in the report is logged: gate found open"));
  EXPECT_THAT(comparisonText(comparison),
              HasSubstr("1 reported, 0 replayed: gate found open during a hold — closing it again (CHTE)"));
}

TEST(Comparison, leavesOutWhatARunningDaemonHadLoggedBefore) {
  Trace reported = anHourOfHolding();
  Trace replayed = anHourOfHolding();
  replayed.lines = {{100, "limit verified: charging really does stop"}};
  EXPECT_TRUE(compare(reported, replayed).departures.empty()) << "it ran before";
  reported.lines = {{0, "brisko-daemon started (event-driven) — …"}};
  EXPECT_EQ(compare(reported, replayed).departures.size(), 1U);
  replayed.lines = {{100, "native limit before Brisko: 85% — given back if Brisko leaves"}};
  reported.lines.clear();
  EXPECT_EQ(compare(reported, replayed).departures.size(), 1U);
  reported.earlier = {{-900, "native limit before Brisko: 90% — given back if Brisko leaves"}};
  EXPECT_TRUE(compare(reported, replayed).departures.empty());
}

TEST(Comparison, drawsBothCurvesAndBothStatesOnOnePage) {
  Trace reported = anHourOfHolding();
  reported.lines = {{100, "→ state: hold"}};
  Picture picture = comparisonPicture(reported, anHourOfHolding(), compare(reported, anHourOfHolding()));
  picture.title = "A report and its replay";
  const std::string page = reportPage(picture);
  for (const char* text : {"class=\"level\"", "class=\"shown\"", ">replayed<", ">reported<", ">Reported<",
                           ">Replayed<", "Charge, replayed"})
    EXPECT_THAT(page, HasSubstr(text));
  EXPECT_THAT(page, ::testing::Not(HasSubstr("Hardware")));
  ASSERT_EQ(picture.log.size(), 1U);
  EXPECT_EQ(picture.log[0].text, "1970-01-01T00:01:40Z  → state: hold");
}

// What no replay could name within ten minutes is counted apart.
TEST(Departures, areJudgedByWhatTheFaultDidToTheReport) {
  const auto at = [](double time) { return std::optional(Departure{time, "words"}); };
  struct Case {
    proof::FaultTrace trace;
    std::optional<Departure> departure;
    const char* text;
    bool misses;
  };
  const std::vector<Case> cases = {
      {{1000, 1100}, at(1600), "1 within ten minutes", false},
      {{1000, 1100}, at(1601), "1 later or not at all", true},
      {{1000, 1100}, at(400), "1 within ten minutes", false},
      {{1000, 1100}, at(399), "1 earlier", true},
      {{1000, 5000}, at(399), "1 earlier", true},
      {{1000, 5000}, at(5600), "1 showed later and were named then", false},
      {{1000, 5000}, at(5601), "1 later or not at all", true},
      {{1000, 1600}, at(2000), "1 later or not at all", true},
      {{1000, 1601}, at(2000), "1 showed later and were named then", false},
      {{1000, {}}, {}, "1 were too small to see", false},
      {{1000, {}}, at(1601), "1 later or not at all", true},
      {{1000, 1100}, {}, "1 later or not at all", true},
  };
  for (const Case& each : cases) {
    proof::Departures departures;
    departures.add(1, "a fault", each.trace, each.departure);
    EXPECT_THAT(departures.text(), HasSubstr(each.text)) << each.trace.first;
    EXPECT_EQ(!departures.missedGoals().empty(), each.misses) << departures.text();
  }
}

}  // namespace
}  // namespace brisko::lab::comparison_test
