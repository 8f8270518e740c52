// Days are played as they were set, which must agree with them, and with another limit.

#include "sim/what_if/play_days.h"

#include <csignal>
#include <filesystem>

#include "replay_proof/generated_report.h"
#include "sim/process/scratch.h"
#include "sim/what_if/agreement.h"
#include "sim/what_if/other_settings.h"
#include "sim/what_if/prepared_days.h"
#include "support/scratch_folder.h"
#include "support/testing.h"

namespace brisko::lab::play_days_test {
namespace {

// Three days at a limit of 80 %: two hours on the battery each, and a night; on the second day it is used for
// so long that it gets nearly empty.
GeneratedScenario threeDays() {
  constexpr std::int64_t hour = 3600;
  GeneratedScenario scenario{.description = "Three days.", .seconds = 72 * hour};
  scenario.mac = {
      {"model", "pro14"}, {"macOS", 26}, {"percent", 70}, {"plugged", true}, {"start", "2026-03-01 08:00"}};
  scenario.settings = ScenarioJson{{"limit", 80}, {"hysteresis", 5}};
  for (std::int64_t day = 0; day < 3; ++day) {
    const std::int64_t begin = day * 24 * hour;
    const auto add = [&](std::int64_t at, ScenarioJson action) {
      scenario.timedActions.push_back({begin + at, std::move(action)});
    };
    add(1 * hour, actionOf("load", 12));
    add(4 * hour, "unplug");
    add(day == 1 ? 8 * hour : 6 * hour, "plug");
    add(14 * hour, "close-lid");
    add(22 * hour, "open-lid");
  }
  return scenario;
}

TEST(PlayedDays, agreeWithTheHistoryAsTheyWereSetAndAreEmptierWithALowerLimit) {
  const auto report = proof::reportOf(threeDays(), {.powerLog = false});
  ASSERT_EQ(report.failure, "");
  const ReportReading reading = readReport(report.archive);
  ASSERT_TRUE(reading.days) << reading.error;
  const Reconstruction asSet = prepare(*reading.days);
  Reconstruction asAsked = asSet;
  setThroughout({{"limit", 60}}, asAsked);
  std::vector<std::size_t> progress;
  const auto plays = playAll({asSet, asAsked}, [&](std::size_t played) { progress.push_back(played); });
  ASSERT_TRUE(plays);
  EXPECT_EQ(progress.back(), 2U);

  const Agreement agreement = agreementOf(reading.days->trace, plays->at(0).moments);
  EXPECT_EQ(trustIn(agreement), Trust::good) << agreementText(agreement);
  const Figures set = figuresOf(plays->at(0));
  const Figures asked = figuresOf(plays->at(1));
  EXPECT_EQ(set.unplugged, 3U);
  EXPECT_NEAR(set.medianUnplugged.value_or(0), 80, 1);
  EXPECT_NEAR(asked.medianUnplugged.value_or(0), 60, 1);
  EXPECT_EQ(set.timesEmpty, 0U);
  EXPECT_EQ(asked.timesEmpty, 1U) << "on the second day";
  EXPECT_GT(asked.secondsEmpty, 600);
  EXPECT_LT(ageingRatio(asked.ageing, set.ageing).most(), 0.95);
  EXPECT_GT(ageingRatio(asked.ageing, set.ageing).least(), 0.6);
  EXPECT_GE(set.nightWakes, 2U) << "the lid was opened at six in the morning";

  // The eight hours of a night are not one step.
  const auto& moments = plays->at(0).moments;
  for (std::size_t index = 1; index < moments.size(); ++index)
    ASSERT_LE(moments[index].time - moments[index - 1].time, 600);
}

TEST(PlayedDays, leaveNothingBehindWhenASignalEndsTheProgram) {
  const test::ScratchFolder scratch;
  sim::setScratchRoot(scratch.path());
  const auto daysOf = [](int count) {
    ReportedDays days;
    for (int number = 0; number < count; ++number)
      days.trace.sightings.push_back(
          {.time = 1772352000.0 + number * 86400, .percent = 70, .plugged = true, .inHistory = true});
    return prepare(days);
  };
  // As soon as the first is played; the others take minutes.
  EXPECT_FALSE(playAll({daysOf(1), daysOf(5000), daysOf(5000)},
                       [](std::size_t) { static_cast<void>(::raise(SIGINT)); }));
  EXPECT_TRUE(std::filesystem::is_empty(scratch.path()));
}

}  // namespace
}  // namespace brisko::lab::play_days_test
