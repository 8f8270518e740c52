// The bench of nights: the same night for the same seed, every kind of night, and what the table says of
// them.

#include "sim/generate/night_bench.h"

#include <set>
#include <string>

#include "support/testing.h"

namespace brisko::lab::night_bench_test {
namespace {

using namespace test;

// A night that begins plugged in, far below the limit.
NightPlan longCharge() {
  return {.model = "air13",
          .adapterWatts = 67,
          .percentAtDusk = 20,
          .bedtime = Bedtime::pluggedIn,
          .promoted = false,
          .nights = "quiet-nights",
          .adapterWakes = true,
          .batteryWakeSeconds = 20,
          .usedSeconds = 300,
          .pluggedAfter = 5};
}

TEST(NightBench, plansEveryKindOfNightAndTheSameForTheSameSeed) {
  std::set<std::string> models, nights, bedtimes;
  for (std::uint64_t seed = 1; seed <= 100; ++seed) {
    const NightPlan plan = planNight(seed);
    EXPECT_EQ(plan.percentAtDusk, planNight(seed).percentAtDusk);
    EXPECT_GE(plan.percentAtDusk, 10);
    EXPECT_LE(plan.percentAtDusk, 95);
    models.insert(plan.model);
    nights.insert(plan.nights);
    bedtimes.insert(std::string(nameOf(plan.bedtime)));
  }
  EXPECT_EQ(models.size(), 3U);
  EXPECT_EQ(nights.size(), 3U);
  EXPECT_EQ(bedtimes.size(), 3U);
}

TEST(NightBench, countsThePointsAboveTheLimitAndTheWakes) {
  const NightResult quiet = spendNight(longCharge(), {});
  EXPECT_EQ(quiet.violation, "");
  EXPECT_EQ(quiet.wakes, 1U) << "the one that the daemon scheduled";
  EXPECT_GT(quiet.above, 5) << "it came too early, and nobody closed the gate later";
  EXPECT_EQ(quiet.below, 0);

  NightPlan upkeep = longCharge();
  upkeep.nights = "upkeep-nights";
  const NightResult kept = spendNight(upkeep, {});
  EXPECT_GT(kept.wakes, 3U);

  NightPlan held = longCharge();
  held.percentAtDusk = 78;
  const NightResult held78 = spendNight(held, {});
  EXPECT_EQ(held78.above, 0);
  EXPECT_NEAR(held78.percentAtSeven, 77.5, 1);
}

TEST(NightBench, countsThePointsBelowTheBand) {
  NightPlan plan = longCharge();
  plan.percentAtDusk = 12;
  plan.adapterWatts = 2;  // less than it needs awake, and little more asleep
  const NightResult result = spendNight(plan, {});
  EXPECT_GT(result.below, 0);
  EXPECT_NEAR(result.below + result.percentAtSeven, 75, 1e-9);
}

TEST(NightBench, hasALineForAllNightsAndOneForEachClass) {
  std::vector<Night> nights;
  for (const double above : {0.0, 1.0, 4.0}) {
    nights.push_back({.plan = longCharge(), .result = {.percentAtSeven = 80 + above, .above = above}});
  }
  nights.back().plan.model = "pro16";
  const std::string table = nightTable(nights);
  EXPECT_THAT(table, HasSubstr("| all | 3 | 81.0 | 80.0 | 84.0 | 1.0 | 4.0 | 4.0 | 0 | 0.0 | 0 | 0 |\n"));
  EXPECT_THAT(table, HasSubstr("| air13 | 2 | 80.0 | 80.0 | 81.0 | 0.0 | 1.0 | 1.0 |"));
  EXPECT_THAT(table, HasSubstr("| pro16 | 1 | 84.0 | "));
  EXPECT_THAT(table, HasSubstr("| plugged in and closed | 3 | "));
}

TEST(NightBench, reportsHowNearTheGoalsTheNightsCome) {
  std::vector<Night> nights;
  for (const double above : {0.0, 1.0, 1.5, 4.0})
    nights.push_back({.plan = longCharge(), .result = {.above = above, .scheduledWakes = 3}});
  nights[1].result.below = 0.5;
  nights[2].result.below = 2;
  nights[2].result.bandInReach = false;
  nights[3].plan.bedtime = Bedtime::pluggedAsleep;
  nights[3].plan.adapterWakes = false;
  nights[3].result.batteryLost = 0.25;
  EXPECT_EQ(nightGoals(nights),
            "\nWhere plugging in wakes the Mac, or it is plugged in before:\n"
            "  at most 1 point above the limit: 2 of 3 (66.7 %), worst 1.5\n"
            "  in the band in the morning, where the adapter could bring it there: 1 of 2 (50.0 %)\n"
            "  lost on battery to scheduled wakes: 0.00 points at most\n"
            "  scheduled wakes a night: 3 at most\n"
            "Where it was plugged in asleep and that did not wake it:\n"
            "  at most 1 point above the limit: 0 of 1 (0.0 %), worst 4.0\n"
            "  in the band in the morning, where the adapter could bring it there: 1 of 1 (100.0 %)\n"
            "  lost on battery to scheduled wakes: 0.25 points at most\n"
            "  scheduled wakes a night: 3 at most\n");
}

TEST(NightBench, endsAtTheLimitWithTheGuardOfTheNight) {
  for (const bool promoted : {false, true}) {
    NightPlan plan = longCharge();
    plan.promoted = promoted;
    const NightResult result = spendNight(plan, {.guard = "night"});
    EXPECT_EQ(result.violation, "");
    EXPECT_LE(result.above, 1);
    EXPECT_NEAR(result.percentAtSeven, 80, 1);
    EXPECT_TRUE(result.bandInReach);
    EXPECT_GE(result.scheduledWakes, 2U);
    EXPECT_LE(result.scheduledWakes, 10U);
  }
}

TEST(NightBench, countsWhatCannotBeReached) {
  NightPlan plan = longCharge();
  plan.percentAtDusk = 12;
  plan.adapterWatts = 2;
  EXPECT_FALSE(spendNight(plan, {}).bandInReach);
}

}  // namespace
}  // namespace brisko::lab::night_bench_test
