#include <cmath>
#include <string>

#include "sim/machine/machine_bench.h"
#include "support/testing.h"

namespace brisko::test::machine_charging_test {
namespace {

using namespace virtual_mac;

constexpr double minute = 60;
constexpr double hour = 3600;

double current(const Bench& mac) { return mac.machine.battery.currentMA; }

// A Mac that charges from `percent` on an adapter of `watts`, without a limit.
Bench charging(std::string_view model, double percent, double watts, double loadWatts) {
  Bench mac({.gate = GateKind::chte, .percent = percent, .plugged = false}, model);
  mac.change(ChangeKind::load, loadWatts).change(ChangeKind::plug, watts);
  return mac;
}

// Minutes until `reached` returns true, at most a day.
template <typename Reached>
double minutesUntil(Bench& mac, Reached reached) {
  const double start = mac.machine.now;
  while (!reached() && mac.machine.now - start < 24 * hour) mac.pass(1);
  return (mac.machine.now - start) / minute;
}

bool near(double value, double fact, double share) { return std::abs(value - fact) <= share * fact; }

// ---- the charge curve

TEST(MachineCharging, holdsTheCurrentUntilTheTaperBegins) {
  Bench mac = charging("pro16", 83, 140, 10);
  mac.pass(1);
  EXPECT_DOUBLE_EQ(current(mac), 3440);
  minutesUntil(mac, [&] { return current(mac) < 3440; });
  EXPECT_NEAR(level(mac.machine), 94, 1);
  EXPECT_NEAR(static_cast<double>(mac.machine.gauge.voltageMV), 12952, 60);
}

TEST(MachineCharging, tapersAlmostExponentiallyAndEndsByItself) {
  Bench mac = charging("pro16", 83, 140, 10);
  minutesUntil(mac, [&] { return current(mac) < 3130; });
  const double constant = minutesUntil(mac, [&] { return current(mac) < 3130 / std::exp(1.0); });
  EXPECT_TRUE(near(constant, 14.6, 0.05)) << constant;

  double last = 0;
  const double rest = minutesUntil(mac, [&] {
    if (current(mac) > 0) last = current(mac);
    return mac.machine.battery.fullyCharged;
  });
  EXPECT_TRUE(near(constant + rest, 32, 0.15)) << constant + rest;
  EXPECT_TRUE(near(last, 0.045 * 8579, 0.02)) << last;
  EXPECT_EQ(std::round(level(mac.machine)), 100);

  mac.pass(2);
  EXPECT_EQ(current(mac), 0);
}

TEST(MachineCharging, showsHundredBeforeTheChargeEnds) {
  Bench mac = charging("pro16", 83, 140, 10);
  minutesUntil(mac, [&] { return std::round(level(mac.machine)) == 100; });
  EXPECT_FALSE(mac.machine.battery.fullyCharged);
  EXPECT_GT(current(mac), 700);
}

TEST(MachineCharging, reportsThatChargingEndedAndThatItIsFullInOnePublication) {
  Bench mac = charging("pro16", 99, 140, 10);
  mac.pass(minute);
  EXPECT_TRUE(mac.machine.gauge.charging);
  EXPECT_FALSE(mac.machine.gauge.full);
  while (mac.machine.gauge.charging) mac.pass(minute);
  EXPECT_TRUE(mac.machine.gauge.full);
  EXPECT_EQ(mac.machine.gauge.currentMA, 0);
  EXPECT_EQ(mac.machine.gauge.percent, 100);
}

// An Air with its lid closed, from empty: minutes to half and to full.
TEST(MachineCharging, chargesAnAirAsFastAsRealOnes) {
  struct Case {
    double watts, halfMinutes, fullMinutes;
  };
  for (const Case& fact : {Case{30, 55, 140}, Case{35, 55, 120}, Case{67, 30, 85}}) {
    SCOPED_TRACE(fact.watts);
    Bench mac = charging("air13", 0, fact.watts, 2);
    const double half = minutesUntil(mac, [&] { return level(mac.machine) >= 50; });
    EXPECT_TRUE(near(half, fact.halfMinutes, 0.15)) << half;
    // Full for a person is what the Mac shows as full.
    const double rest = minutesUntil(mac, [&] { return std::round(level(mac.machine)) == 100; });
    EXPECT_TRUE(near(half + rest, fact.fullMinutes, 0.15)) << half + rest;
  }
}

// A charger asks for less the fuller the battery is, so a stronger adapter counts below three quarters only.
TEST(MachineCharging, asksForLessTheFullerTheBatteryIs) {
  struct Case {
    std::string_view model;
    double percent, watts, milliamperes;
  };
  for (const Case& expected :
       {Case{"pro16", 20, 140, 9700}, Case{"pro16", 20, 67, 4650}, Case{"pro16", 60, 140, 7080},
        Case{"pro16", 71, 45, 2750}, Case{"pro16", 80, 140, 3440}, Case{"pro16", 80, 67, 3440},
        Case{"pro14", 59, 94, 5110}, Case{"pro14", 80, 94, 2600}, Case{"air13", 20, 67, 4900},
        Case{"air13", 34, 30, 2020}, Case{"air13", 80, 67, 1920}, Case{"air13", 80, 30, 1920}}) {
    SCOPED_TRACE(std::string(expected.model) + " at " + std::to_string(expected.percent));
    Bench mac = charging(expected.model, expected.percent, expected.watts, 10);
    if (expected.model == "air13") mac.change(ChangeKind::load, 4.23);
    mac.pass(1);
    EXPECT_TRUE(near(current(mac), expected.milliamperes, 0.05)) << current(mac);
  }
}

TEST(MachineCharging, changesItsStepAtTheShareOfTheCharge) {
  Bench mac = charging("pro16", 60, 140, 10);
  minutesUntil(mac, [&] { return current(mac) < 7000; });
  EXPECT_NEAR(mac.machine.battery.chargeMAh / mac.machine.battery.fullMAh, 0.75, 0.001);
  EXPECT_EQ(current(mac), 3440);
}

TEST(MachineCharging, waitsAt99PercentForMostOfTheTaper) {
  Bench mac = charging("pro16", 98, 140, 10);
  minutesUntil(mac, [&] { return mac.machine.gauge.percent == 99; });
  const double waits = minutesUntil(mac, [&] { return mac.machine.gauge.percent == 100; });
  EXPECT_NEAR(waits, 12, 2);
  const double rest = minutesUntil(mac, [&] { return mac.machine.gauge.full; });
  EXPECT_NEAR(rest, 12, 2);
}

TEST(MachineCharging, showsThePercentageThatWasSet) {
  for (const double percent : {0.0, 1.0, 50.0, 98.9, 99.0, 99.2, 99.5, 99.8, 100.0}) {
    Bench mac;
    mac.change(ChangeKind::charge, percent);
    EXPECT_NEAR(level(mac.machine), percent, 1e-9);
  }
}

TEST(MachineCharging, givesTheBatteryWhatTheAdapterLeaves) {
  Bench mac = charging("air13", 34, 30, 4.23);
  mac.pass(2 * minute);
  EXPECT_NEAR(current(mac), 2020, 60);
  const double watts = current(mac) * static_cast<double>(mac.machine.gauge.voltageMV) / 1e6;
  EXPECT_NEAR(watts, 24, 0.3);
}

TEST(MachineCharging, fillsAndDrainsEveryModel) {
  for (const Model& model : models()) {
    SCOPED_TRACE(model.name);
    Bench mac({.percent = 0}, model.name);
    EXPECT_LT(minutesUntil(mac, [&] { return mac.machine.battery.fullyCharged; }), 8 * 60);
    EXPECT_EQ(mac.machine.battery.chargeMAh, mac.machine.battery.fullMAh);
    EXPECT_LT(mac.machine.battery.temperatureC, 40);

    mac.change(ChangeKind::unplug);
    EXPECT_LT(minutesUntil(mac, [&] { return level(mac.machine) <= 0; }), 24 * 60);
    mac.pass(minute);
    EXPECT_EQ(mac.machine.gauge.percent, 0);
    EXPECT_EQ(mac.machine.gauge.rawMAh, 0);
  }
}

TEST(MachineCharging, staysEmptyOnBattery) {
  Bench mac({.percent = 1, .plugged = false});
  mac.pass(24 * hour);
  EXPECT_EQ(mac.machine.battery.chargeMAh, 0);
  EXPECT_EQ(current(mac), 0);
  mac.change(ChangeKind::load, 10);
  EXPECT_EQ(current(mac), 0);
  mac.change(ChangeKind::plug, 30).pass(10 * minute);
  EXPECT_GT(level(mac.machine), 5);
}

// ---- the flow of power

TEST(MachineCharging, drawsTheLoadFromTheBatteryWithoutAnAdapter) {
  Bench mac({.percent = 79, .plugged = false}, "pro14");
  mac.change(ChangeKind::load, 28.7).pass(2 * minute);
  EXPECT_TRUE(near(-current(mac), 2335, 0.05)) << current(mac);
  EXPECT_NEAR(static_cast<double>(-mac.machine.gauge.currentMA * mac.machine.gauge.voltageMV) / 1e6, 28.7,
              0.3);
}

TEST(MachineCharging, letsNothingFlowOnTheAdapterWhileItIsStopped) {
  Bench mac({.percent = 80});
  mac.write("CHTE", {1, 0, 0, 0});
  mac.pass(24 * hour);
  EXPECT_EQ(current(mac), 0);
  EXPECT_EQ(mac.machine.gauge.percent, 80);
}

TEST(MachineCharging, supportsAWeakAdapterFromTheBattery) {
  Bench mac({.percent = 80});
  mac.change(ChangeKind::load, 20).change(ChangeKind::plug, 10).pass(hour);
  EXPECT_LT(current(mac), -700);
  EXPECT_TRUE(mac.machine.powerSource.onAdapter);
  EXPECT_FALSE(mac.machine.powerSource.charging);
  EXPECT_LT(mac.machine.gauge.percent, 80);

  // The same while charging is stopped.
  mac.write("CHTE", {1, 0, 0, 0});
  EXPECT_LT(mac.pass(minute).machine.battery.currentMA, -700);
}

TEST(MachineCharging, allowsATrickleWhileChargingIsStopped) {
  Bench mac({.percent = 80});
  mac.change(ChangeKind::trickle, 150);
  mac.write("CHTE", {1, 0, 0, 0});
  mac.pass(minute);
  EXPECT_EQ(current(mac), 150);
  EXPECT_FALSE(mac.machine.gauge.charging);
  EXPECT_GT(mac.pass(2 * hour).machine.gauge.percent, 80);
}

TEST(MachineCharging, letsNoTrickleIntoAFullBattery) {
  Bench mac({.percent = 80});
  mac.change(ChangeKind::trickle, 150);
  mac.write("CHTE", {1, 0, 0, 0});
  mac.change(ChangeKind::charge, 100).pass(minute);
  EXPECT_EQ(current(mac), 0);
}

TEST(MachineCharging, drawsLittleAsleepAndNothingSwitchedOff) {
  Bench mac({.percent = 80, .plugged = false});
  const double before = level(mac.machine);
  mac.machine.system.asleep = true;
  mac.pass(hour);
  EXPECT_NEAR(before - level(mac.machine), 0.2, 0.05);  // percent in an hour
  mac.machine.system.asleep = false;

  shutDown(mac.machine);
  const double off = level(mac.machine);
  mac.pass(hour);
  EXPECT_EQ(level(mac.machine), off);
}

// ---- keys

TEST(MachineCharging, isStoppedOnlyByTheStopValueOfEachKey) {
  struct Case {
    GateKind gate;
    std::string key;
    Bytes bytes;
    bool stops;
  };
  for (const Case& expected :
       {Case{GateKind::chte, "CHTE", {1, 0, 0, 0}, true}, Case{GateKind::chte, "CHTE", {2, 0, 0, 0}, false},
        Case{GateKind::chte, "CHTE", {1, 0, 0, 1}, false}, Case{GateKind::ch0b0c, "CH0B", {2}, true},
        Case{GateKind::ch0b0c, "CH0B", {1}, false}, Case{GateKind::ch0b0c, "CH0C", {2}, true},
        Case{GateKind::ch0b0c, "CH0C", {3}, false}}) {
    SCOPED_TRACE(expected.key + "=" + std::to_string(expected.bytes[0]));
    Bench mac({.gate = expected.gate});
    EXPECT_EQ(mac.write(expected.key, expected.bytes), accepted);
    EXPECT_EQ(chargingIsOpen(mac.machine), !expected.stops);
    EXPECT_EQ(mac.pass(1).machine.battery.currentMA == 0, expected.stops);
  }
}

TEST(MachineCharging, runsFromTheBatteryWhileTheAdapterIsCut) {
  struct Case {
    CutKind cut;
    std::string key;
    std::uint8_t value;
    bool cuts;
  };
  for (const Case& expected : {Case{CutKind::chie, "CHIE", 8, true}, Case{CutKind::chie, "CHIE", 1, false},
                               Case{CutKind::ch0i, "CH0I", 1, true}, Case{CutKind::ch0i, "CH0I", 8, false},
                               Case{CutKind::ch0j, "CH0J", 1, true}, Case{CutKind::ch0j, "CH0J", 2, false}}) {
    SCOPED_TRACE(expected.key + "=" + std::to_string(expected.value));
    Bench mac({.cut = expected.cut});
    EXPECT_EQ(mac.write(expected.key, {expected.value}), accepted);
    EXPECT_EQ(adapterReachesBattery(mac.machine), !expected.cuts);
    EXPECT_EQ(mac.pass(1).machine.battery.currentMA < -300, expected.cuts);
  }
}

TEST(MachineCharging, ignoresAMissingKey) {
  Bench mac;
  mac.write("CHTE", {1, 0, 0, 0});
  mac.write("CHIE", {8});
  mac.key(ChangeKind::keyPresent, "CHTE", 0).key(ChangeKind::keyPresent, "CHIE", 0);
  EXPECT_TRUE(chargingIsOpen(mac.machine));
  EXPECT_TRUE(adapterReachesBattery(mac.machine));
}

// ---- the firmware's band

class MachineBand : public ::testing::Test {
 protected:
  void arm(std::uint8_t upper, std::uint8_t lower) {
    mac.write("bfF0", {0});
    mac.write("bfD0", {upper, 0, 0, 0});
    mac.write("bfE0", {lower, 0, 0, 0});
    mac.write("bfF0", {2});
  }
  bool chargesAt(double percent) {
    mac.change(ChangeKind::charge, percent);
    const bool open = chargingIsOpen(mac.machine);
    EXPECT_EQ(mac.pass(1).machine.battery.currentMA > 0, open);
    return open;
  }

  Bench mac{{.percent = 50}, "pro16"};
};

TEST_F(MachineBand, stopsAtTheUpperEdgeAndStartsBelowTheLower) {
  arm(80, 75);
  EXPECT_TRUE(chargesAt(79));
  EXPECT_FALSE(chargesAt(80));
  EXPECT_FALSE(chargesAt(79));
  EXPECT_FALSE(chargesAt(75));
  EXPECT_TRUE(chargesAt(74));
  EXPECT_TRUE(chargesAt(75));
  EXPECT_TRUE(chargesAt(79));
  EXPECT_FALSE(chargesAt(100));
}

TEST_F(MachineBand, usesThePercentageThatUsersSee) {
  arm(80, 75);
  EXPECT_TRUE(chargesAt(79.4));
  EXPECT_FALSE(chargesAt(79.6));
  EXPECT_FALSE(chargesAt(74.6));
  EXPECT_TRUE(chargesAt(74.4));
}

TEST_F(MachineBand, holdsTheChargeThereByItself) {
  arm(80, 75);
  mac.pass(8 * hour);
  EXPECT_EQ(mac.machine.gauge.percent, 80);
  EXPECT_EQ(mac.machine.gauge.currentMA, 0);
}

TEST_F(MachineBand, allowsChargingWhenItIsDisarmed) {
  arm(80, 75);
  EXPECT_FALSE(chargesAt(90));
  mac.write("bfF0", {0});
  EXPECT_TRUE(chargingIsOpen(mac.machine));
  EXPECT_TRUE(chargesAt(90));
}

TEST_F(MachineBand, keepsItsDirectionWhenItIsRearmedAtOnce) {
  arm(80, 75);
  EXPECT_FALSE(chargesAt(80));
  EXPECT_FALSE(chargesAt(77));
  mac.write("bfF0", {0});
  EXPECT_TRUE(chargingIsOpen(mac.machine));  // for this instant
  arm(80, 70);
  EXPECT_FALSE(chargingIsOpen(mac.machine));
}

TEST_F(MachineBand, continuesChargingWhenItFindsTheBatteryCharging) {
  arm(80, 75);
  EXPECT_FALSE(chargesAt(80));
  EXPECT_FALSE(chargesAt(77));
  mac.write("bfF0", {0});
  mac.pass(2);
  arm(80, 75);
  EXPECT_TRUE(chargingIsOpen(mac.machine));
}

TEST_F(MachineBand, readsItsEdgesAsLittleEndianNumbers) {
  mac.write("bfD0", {80, 1, 0, 0});  // 336 %
  mac.write("bfE0", {75, 0, 0, 0});
  mac.write("bfF0", {2});
  EXPECT_TRUE(chargesAt(99));
}

// ---- full, and full again

TEST(MachineCharging, startsAgainOnlyBelowTheRechargeLevel) {
  Bench mac({.percent = 100});
  EXPECT_EQ(current(mac), 0);
  mac.change(ChangeKind::unplug);
  minutesUntil(mac, [&] { return level(mac.machine) < 95.1; });
  mac.change(ChangeKind::plug, 30).pass(minute);
  EXPECT_EQ(current(mac), 0);
  EXPECT_FALSE(mac.machine.gauge.charging);

  mac.change(ChangeKind::unplug);
  minutesUntil(mac, [&] { return level(mac.machine) < 95; });
  mac.change(ChangeKind::plug, 30).pass(minute);
  EXPECT_GT(current(mac), 1000);
}

// ---- how fast the current follows

TEST(MachineCharging, followsAStopAtOnceUnlessToldOtherwise) {
  Bench mac;
  EXPECT_GT(current(mac), 1500);
  mac.write("CHTE", {1, 0, 0, 0});
  EXPECT_EQ(current(mac), 0);
}

TEST(MachineCharging, followsAStopSlowly) {
  Bench mac({.percent = 50});
  mac.change(ChangeKind::decay, 60);
  const double before = current(mac);
  mac.write("CHTE", {1, 0, 0, 0});
  EXPECT_EQ(current(mac), before);
  mac.pass(15);
  EXPECT_GT(current(mac), before / 4);
  EXPECT_LT(current(mac), before / 2);
  mac.pass(45);
  EXPECT_LT(current(mac), before / 20);
  EXPECT_GT(current(mac), 0);
  mac.pass(120);
  EXPECT_EQ(current(mac), 0);
}

// ---- voltage and temperature

TEST(MachineCharging, restsAtTheVoltageOfItsCharge) {
  struct Case {
    double percent, loadWatts, millivolts;
  };
  for (const Case& fact : {Case{100, 0, 12909}, Case{80, 0, 12260}, Case{8, 5.9, 10948}}) {
    Bench mac({.percent = fact.percent, .plugged = false}, "pro14");
    mac.change(ChangeKind::load, fact.loadWatts).pass(minute);
    EXPECT_NEAR(static_cast<double>(mac.machine.gauge.voltageMV), fact.millivolts, 60) << fact.percent;
  }
}

TEST(MachineCharging, warmsUpWithCurrentAndLoadAndCoolsDownAgain) {
  Bench mac({.percent = 20});
  mac.write("CHTE", {1, 0, 0, 0});
  mac.pass(6 * hour);
  const double resting = mac.machine.battery.temperatureC;
  EXPECT_NEAR(resting, 29, 1.5);

  mac.write("CHTE", {0, 0, 0, 0});
  mac.pass(hour);
  EXPECT_NEAR(mac.machine.battery.temperatureC, 33, 1.5);

  mac.write("CHTE", {1, 0, 0, 0});
  mac.pass(20 * minute);
  EXPECT_GT(mac.machine.battery.temperatureC, resting + 0.5);
  mac.pass(12 * hour);
  EXPECT_EQ(mac.machine.battery.temperatureC, resting);
}

TEST(MachineCharging, followsTheRoom) {
  Bench mac({.percent = 80});
  mac.write("CHTE", {1, 0, 0, 0});
  mac.pass(6 * hour);
  const double before = mac.machine.battery.temperatureC;
  mac.change(ChangeKind::ambient, 35).pass(6 * hour);
  EXPECT_NEAR(mac.machine.battery.temperatureC, before + 10, 0.01);
}

}  // namespace
}  // namespace brisko::test::machine_charging_test
