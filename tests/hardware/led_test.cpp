#include "hardware/led.h"

#include <gtest/gtest.h>

namespace brisko {
namespace {

TEST(LightMode, isTheSystemsWithoutTheWishOrTheAdapter) {
  for (const auto state : {ChargeState::allow, ChargeState::hold, ChargeState::discharge}) {
    EXPECT_EQ(ledMode(state, {.wanted = false, .adapterPresent = true}), LedMode::system);
    EXPECT_EQ(ledMode(state, {.wanted = true, .adapterPresent = false}), LedMode::system);
  }
}

TEST(LightMode, isGreenWhileHeldAndBlinksWhileDischarging) {
  EXPECT_EQ(ledMode(ChargeState::hold, {.adapterPresent = true, .pct = 80, .shownTarget = 80}),
            LedMode::green);
  EXPECT_EQ(ledMode(ChargeState::discharge, {.adapterPresent = true, .pct = 90, .shownTarget = 80}),
            LedMode::blink);
}

TEST(LightMode, blinksOnTheWayToTheTargetAndIsOrangeThere) {
  EXPECT_EQ(ledMode(ChargeState::allow, {.adapterPresent = true, .pct = 79, .shownTarget = 80}),
            LedMode::blink);
  EXPECT_EQ(ledMode(ChargeState::allow, {.adapterPresent = true, .pct = 80, .shownTarget = 80}),
            LedMode::orange);
}

TEST(LightMode, isOrangeWhenNothingIsControlled) {
  EXPECT_EQ(ledMode(ChargeState::allow,
                    {.adapterPresent = true, .controlling = false, .pct = 30, .shownTarget = 80}),
            LedMode::orange);
}

TEST(LightMode, hasNamesForTheSummary) {
  EXPECT_STREQ(ledModeName(LedMode::system), "system");
  EXPECT_STREQ(ledModeName(LedMode::green), "green");
  EXPECT_STREQ(ledModeName(LedMode::orange), "orange");
  EXPECT_STREQ(ledModeName(LedMode::blink), "blink");
}

TEST(LightValues, areThoseOfTheKey) {
  EXPECT_EQ(LED_SYSTEM, 0);
  EXPECT_EQ(LED_OFF, 1);
  EXPECT_EQ(LED_GREEN, 3);
  EXPECT_EQ(LED_ORANGE, 4);
}

}  // namespace
}  // namespace brisko
