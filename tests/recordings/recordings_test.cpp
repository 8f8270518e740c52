// The virtual Mac's battery beside recordings of real ones, which the project does not ship: read from the
// folder that BRISKO_DUMPS names.

#include <cmath>
#include <string>

#include "recordings/recorded_charge.h"
#include "recordings/recorded_moments.h"
#include "support/testing.h"

namespace brisko::test::recordings_test {
namespace {

class RecordedCharge : public ::testing::Test {
 protected:
  void SetUp() override {
    const auto folder = recordingsFolder();
    if (!folder) GTEST_SKIP() << "BRISKO_DUMPS names no folder";
    recorded = readCharge(*folder + recordedCharge);
    ASSERT_GT(recorded.size(), 100U);
    modelled = modelledCharge(recorded);
  }

  ChargeCurve recorded, modelled;
};

TEST_F(RecordedCharge, showsThePercentageWithinOneAndAHalfPointsAtEachLine) {
  for (std::size_t line = 0; line < recorded.size(); ++line) {
    EXPECT_NEAR(static_cast<double>(modelled[line].percent), static_cast<double>(recorded[line].percent), 1.5)
        << recorded[line].seconds << " s";
  }
}

TEST_F(RecordedCharge, shows100PercentWithin3MinutesAndEndsWithin3Too) {
  EXPECT_NEAR(firstSecondsAt100(modelled), firstSecondsAt100(recorded), 180);
  EXPECT_NEAR(firstSecondsFull(modelled), firstSecondsFull(recorded), 180);
}

TEST_F(RecordedCharge, flowsWithin5PercentBeforeTheTaper) {
  const std::size_t taper = taperBegin(recorded);
  ASSERT_GT(taper, 25U);
  ASSERT_LT(taper, recorded.size());
  for (std::size_t line = 0; line < taper; ++line) {
    EXPECT_NEAR(modelled[line].currentMA, recorded[line].currentMA, 0.05 * recorded[line].currentMA)
        << recorded[line].seconds << " s";
  }
}

TEST_F(RecordedCharge, hasTheVoltageWithin80MillivoltsAtEachLine) {
  for (std::size_t line = 0; line < recorded.size(); ++line)
    EXPECT_NEAR(modelled[line].millivolts, recorded[line].millivolts, 80) << recorded[line].seconds << " s";
}

TEST(RecordedMoments, restAtTheTemperatureTheCurrentAndTheVoltageOfTheModel) {
  const auto folder = recordingsFolder();
  if (!folder) GTEST_SKIP() << "BRISKO_DUMPS names no folder";
  int held = 0;
  for (const RecordedMoment& moment : recordedMoments(*folder)) {
    if (!moment.held || moment.recorded.currentMA != 0) continue;
    SCOPED_TRACE(moment.file);
    EXPECT_NEAR(moment.modelled.temperatureC, moment.recorded.temperatureC, 1.5);
    EXPECT_EQ(moment.modelled.currentMA, 0) << "no trickle";
    EXPECT_NEAR(moment.modelled.volts, moment.recorded.volts, 0.3);
    ++held;
  }
  EXPECT_GE(held, 4);
}

}  // namespace
}  // namespace brisko::test::recordings_test
