#include <cmath>
#include <cstring>
#include <random>
#include <set>
#include <string>

#include "sim/machine/faults.h"
#include "sim/machine/machine_bench.h"
#include "support/testing.h"

namespace brisko::test::machine_time_test {
namespace {

using namespace virtual_mac;

constexpr double minute = 60;
constexpr double hour = 3600;

Change changeTo(ChangeKind kind, double number = 0) { return {.kind = kind, .number = number}; }

double uniform(std::mt19937_64& random, double least, double most) {
  return least + (most - least) * static_cast<double>(random() >> 11U) / 9007199254740992.0;
}

// A random change of the list, with plausible or implausible parameters.
Change anyChange(std::mt19937_64& random) {
  const Fault& fault = faults()[random() % faults().size()];
  Change change = fault.change;
  if (fault.asks.number) change.number = uniform(random, -20, 160);
  if (fault.asks.key) {
    constexpr std::array names{"CHTE", "CH0B", "CHIE", "CH0J", "bfF0",
                               "bfD0", "bfE0", "TB0T", "ACLC", "NONE"};
    change.key = keyCode(names[random() % names.size()]);
  }
  if (fault.asks.bytes) {
    change.byteCount = 4;
    for (std::size_t index = 0; index < 4; ++index)
      change.bytes[index] = static_cast<std::uint8_t>(random() % 9);
  }
  return change;
}

bool laterAnyChange(Bench& mac, std::mt19937_64& random, double within) {
  const double seconds = uniform(random, 0, within);
  return mac.later(seconds, anyChange(random));
}

// ---- time itself

TEST(MachineTime, isIndependentOfTheNumberOfAdvances) {
  for (std::uint64_t seed = 1; seed <= 20; ++seed) {
    SCOPED_TRACE(seed);
    std::mt19937_64 random(seed);
    Bench once({.percent = uniform(random, 0, 100), .plugged = seed % 2 == 0},
               seed % 3 == 0 ? "pro16" : "air13");
    if (seed % 4 == 0) once.change(ChangeKind::decay, 45);
    if (seed % 5 == 0) once.change(ChangeKind::powerSourceLag, 7.3);
    for (int count = 0; count < 40; ++count) {
      ASSERT_TRUE(laterAnyChange(once, random, 6 * hour));
    }
    Bench often;
    often.machine = once.machine;
    const double end = once.machine.now + 6 * hour;

    advance(once.machine, end);
    while (often.machine.now < end) {
      advance(often.machine, std::min(often.machine.now + uniform(random, 0, 90), end));
    }

    EXPECT_EQ(movingBits(often.machine), movingBits(once.machine));
  }
}

TEST(MachineTime, isIndependentOfStopsForNotifications) {
  int notices = 0;
  for (std::uint64_t seed = 1; seed <= 10; ++seed) {
    SCOPED_TRACE(seed);
    std::mt19937_64 random(seed);
    Bench once({.percent = 30});
    ASSERT_TRUE(virtual_mac::registerPowerClient(once.machine, 1));
    for (int count = 0; count < 60; ++count) {
      ASSERT_TRUE(laterAnyChange(once, random, 3 * hour));
    }
    Bench noticing;
    noticing.machine = once.machine;
    const double end = once.machine.now + 3 * hour;

    advance(once.machine, end);
    while (advanceToNotice(noticing.machine, end)) ++notices;

    EXPECT_EQ(noticing.machine.now, end);
    EXPECT_EQ(movingBits(noticing.machine), movingBits(once.machine));
  }
  EXPECT_GT(notices, 100);
}

TEST(MachineTime, countsSleepIndependentlyOfTheNumberOfAdvances) {
  Bench once;
  once.machine.system.asleep = true;
  Bench often;
  often.machine = once.machine;
  const double end = once.machine.now + 1000.7;
  advance(once.machine, end);
  for (double time = often.machine.now; time < end; time += 0.37) advance(often.machine, time);
  advance(often.machine, end);
  EXPECT_EQ(movingBits(often.machine), movingBits(once.machine));
}

// The figures come from one run; the results of every compiler must equal them, to the last bit.
TEST(MachineTime, computesTheSameBitsWithEveryCompiler) {
  Bench mac({.percent = 37.5});
  ASSERT_TRUE(mac.later(0.3 * hour, changeTo(ChangeKind::load, 11.3)));
  ASSERT_TRUE(mac.later(2 * hour + 0.7, changeTo(ChangeKind::unplug)));
  ASSERT_TRUE(mac.later(5 * hour, changeTo(ChangeKind::plug, 67)));
  mac.pass(5.4 * hour);
  EXPECT_EQ(std::bit_cast<std::uint64_t>(mac.machine.battery.chargeMAh), 4658993902197504226ULL);
  EXPECT_EQ(std::bit_cast<std::uint64_t>(mac.machine.battery.currentMA), 4660640674142486528ULL);
  EXPECT_EQ(std::bit_cast<std::uint64_t>(mac.machine.battery.temperatureC), 4630205975120623591ULL);
}

TEST(MachineTime, neverRunsBackwards) {
  Bench mac;
  mac.pass(10);
  const auto before = movingBits(mac.machine);
  advance(mac.machine, mac.machine.now - 5);
  advance(mac.machine, std::nan(""));
  EXPECT_EQ(movingBits(mac.machine), before);
  EXPECT_FALSE(advanceToNotice(mac.machine, mac.machine.now - 5));
}

TEST(MachineTime, keepsEveryPercentageWithinItsBounds) {
  for (std::uint64_t seed = 1; seed <= 30; ++seed) {
    SCOPED_TRACE(seed);
    std::mt19937_64 random(seed);
    Bench mac({.percent = uniform(random, 0, 100)}, seed % 2 == 0 ? "pro14" : "air13");
    for (int count = 0; count < 400; ++count) {
      mac.change(anyChange(random)).pass(uniform(random, 0, 20 * minute));
      const Battery& battery = mac.machine.battery;
      ASSERT_GE(battery.chargeMAh, 0);
      ASSERT_LE(battery.chargeMAh, battery.fullMAh);
      ASSERT_GE(level(mac.machine), 0);
      ASSERT_LE(level(mac.machine), 100);
      ASSERT_GE(mac.machine.gauge.percent, 0);
      ASSERT_LE(mac.machine.gauge.percent, 100);
      ASSERT_GE(mac.machine.powerSource.percent, 0);
      ASSERT_LE(mac.machine.powerSource.percent, 100);
      ASSERT_GE(mac.machine.powerSource.minutes, -1);
      ASSERT_TRUE(std::isfinite(battery.currentMA));
      ASSERT_GT(battery.temperatureC, -120);
      ASSERT_LT(battery.temperatureC, 260);
    }
  }
}

// ---- planned changes

TEST(MachinePlan, makesAPlannedChangeLikeAnImmediateOne) {
  Bench planned({.percent = 60});
  Bench byHand;
  byHand.machine = planned.machine;
  ASSERT_TRUE(planned.later(100, changeTo(ChangeKind::unplug)));
  planned.pass(250.5);
  byHand.pass(100).change(ChangeKind::unplug).pass(150.5);
  EXPECT_EQ(movingBits(planned.machine), movingBits(byHand.machine));
}

TEST(MachinePlan, keepsTheOrderOfPlanningAtOneInstant) {
  Bench mac;
  ASSERT_TRUE(mac.later(10, changeTo(ChangeKind::load, 1)));
  ASSERT_TRUE(mac.later(5, changeTo(ChangeKind::load, 2)));
  ASSERT_TRUE(mac.later(10, changeTo(ChangeKind::load, 3)));
  mac.pass(5);  // frees the second place, which the next plan takes
  EXPECT_EQ(mac.machine.surroundings.loadWatts, 2);
  ASSERT_TRUE(mac.later(5, changeTo(ChangeKind::load, 4)));
  mac.pass(5);
  EXPECT_EQ(mac.machine.surroundings.loadWatts, 4);
}

TEST(MachinePlan, makesAChangeExactlyAtItsTime) {
  Bench mac;
  ASSERT_TRUE(mac.later(10.5, changeTo(ChangeKind::load, 9)));
  EXPECT_NE(mac.pass(10.25).machine.surroundings.loadWatts, 9);
  EXPECT_EQ(mac.pass(0.25).machine.surroundings.loadWatts, 9);
}

TEST(MachinePlan, makesAChangePlannedForThePastAtOnce) {
  Bench mac;
  ASSERT_TRUE(mac.later(-100, changeTo(ChangeKind::load, 9)));
  const double before = mac.machine.now;
  mac.pass(0);
  EXPECT_EQ(mac.machine.surroundings.loadWatts, 9);
  EXPECT_EQ(mac.machine.now, before);
}

TEST(MachinePlan, refusesWhenFullAndReusesFreedPlaces) {
  Bench mac;
  for (std::size_t count = 0; count < plannedPlaces; ++count) {
    ASSERT_TRUE(mac.later(static_cast<double>(count) + 1, changeTo(ChangeKind::load, 5)));
  }
  EXPECT_FALSE(mac.later(1, changeTo(ChangeKind::load, 5)));
  mac.pass(1);
  EXPECT_TRUE(mac.later(1, changeTo(ChangeKind::load, 5)));
}

TEST(MachinePlan, makesEachChangeOnce) {
  Bench mac;
  ASSERT_TRUE(mac.later(1, changeTo(ChangeKind::clockStep, 60)));
  mac.pass(10).pass(10);
  EXPECT_EQ(mac.machine.system.wallOffset, 60);
}

// ---- notices

TEST(MachineNotice, stopsRightAtAPublishedChange) {
  Bench mac({.percent = 50});
  const double start = mac.machine.now;
  ASSERT_TRUE(mac.later(30.5, changeTo(ChangeKind::unplug)));
  EXPECT_TRUE(mac.passToNotice(hour));
  EXPECT_EQ(mac.machine.now, start + 30.5);
  EXPECT_FALSE(mac.machine.powerSource.onAdapter);
  EXPECT_TRUE(mac.passToNotice(hour));
  EXPECT_EQ(mac.machine.now, start + 60);  // the gauge publishes the drain
}

TEST(MachineNotice, stopsForASignalAndContinuesWithTheRestOfTheInstant) {
  Bench mac({.percent = 80});
  mac.write("CHTE", {1, 0, 0, 0});
  ASSERT_FALSE(mac.passToNotice(0.5));
  mac.pass(2 * minute);
  ASSERT_TRUE(mac.later(10, changeTo(ChangeKind::signal, 15)));
  ASSERT_TRUE(mac.later(10, changeTo(ChangeKind::unplug)));

  EXPECT_TRUE(mac.passToNotice(20));
  EXPECT_EQ(mac.machine.pendingSignals, 1U << 15U);
  EXPECT_TRUE(mac.machine.powerSource.onAdapter);

  mac.machine.pendingSignals = 0;
  const double instant = mac.machine.now;
  EXPECT_TRUE(mac.passToNotice(10));
  EXPECT_FALSE(mac.machine.powerSource.onAdapter);
  EXPECT_EQ(mac.machine.now, instant);
}

TEST(MachineNotice, stopsForASignalThatIsStillPending) {
  Bench mac({.percent = 80});
  mac.change(ChangeKind::signal, 15);
  ASSERT_TRUE(mac.later(10, changeTo(ChangeKind::signal, 15)));
  EXPECT_TRUE(mac.passToNotice(20));
}

TEST(MachineNotice, isSilentWhileTheChargeIsHeld) {
  Bench mac({.percent = 80});
  mac.write("CHTE", {1, 0, 0, 0});
  mac.pass(2 * minute);
  const double start = mac.machine.now;
  ASSERT_TRUE(mac.later(hour, changeTo(ChangeKind::ambient, 30)));
  EXPECT_FALSE(mac.passToNotice(24 * hour));
  EXPECT_EQ(mac.machine.now, start + 24 * hour);
}

// ---- publications of the gauge and powerd

TEST(MachineGauge, isStaleJustAfterPlugging) {
  Bench mac({.percent = 76, .plugged = false});
  mac.pass(90);
  const Gauge before = mac.machine.gauge;
  ASSERT_LT(before.currentMA, -300);

  mac.change(ChangeKind::plug, 45);
  mac.pass(29);
  EXPECT_TRUE(adapterReachesBattery(mac.machine));
  EXPECT_EQ(mac.machine.gauge.currentMA, before.currentMA);
  EXPECT_FALSE(mac.machine.gauge.charging);
  EXPECT_GT(mac.machine.gauge.askedMA, 500);
  EXPECT_TRUE(mac.machine.powerSource.onAdapter);
  EXPECT_FALSE(mac.machine.powerSource.charging);

  mac.pass(1);
  EXPECT_GT(mac.machine.gauge.currentMA, 1000);
  EXPECT_TRUE(mac.machine.gauge.charging);
  EXPECT_TRUE(mac.machine.powerSource.charging);
}

TEST(MachineGauge, reportsTheSameBetweenTwoPublications) {
  Bench mac({.percent = 40});
  mac.pass(60);
  const Gauge before = mac.machine.gauge;
  mac.change(ChangeKind::load, 20).change(ChangeKind::temperature, 39).pass(59);
  EXPECT_EQ(mac.machine.gauge, before);
  mac.pass(1);
  EXPECT_NE(mac.machine.gauge.currentMA, before.currentMA);
  EXPECT_GT(mac.machine.gauge.temperatureCentiC, 3800);
  EXPECT_EQ(mac.machine.gauge.publishedAt, before.publishedAt + 60);
}

TEST(MachineGauge, publishesOnAGridThatStartsAtBoot) {
  Bench mac({.uptime = 100});
  mac.pass(19);
  EXPECT_EQ(mac.machine.gauge.publishedAt, mac.machine.now - 19);
  mac.pass(1);
  EXPECT_EQ(mac.machine.gauge.publishedAt, mac.machine.now);

  mac.pass(13.5);
  boot(mac.machine);
  const double booted = mac.machine.now;
  EXPECT_EQ(mac.machine.gauge.publishedAt, booted);
  mac.pass(60);
  EXPECT_EQ(mac.machine.gauge.publishedAt, std::floor(booted) + 60);
}

TEST(MachineGauge, keepsItsGridWhileNothingChanges) {
  Bench mac({.percent = 80});
  mac.write("CHTE", {1, 0, 0, 0});
  mac.pass(24 * hour);
  mac.pass(1000);
  EXPECT_EQ(mac.machine.gauge.publishedAt, mac.machine.now - 40);
}

TEST(MachineGauge, publishesAChosenChargeAtOnceAndKeepsItsGrid) {
  Bench mac({.percent = 40});
  mac.pass(10).change(ChangeKind::charge, 81);
  EXPECT_EQ(mac.machine.gauge.percent, 81);
  EXPECT_EQ(mac.machine.powerSource.percent, 81);
  EXPECT_EQ(mac.machine.powerSource.changes, 1U);
  const double start = mac.machine.now;
  mac.pass(50);
  EXPECT_EQ(mac.machine.gauge.publishedAt, start + 50);
}

TEST(MachinePowerSource, followsTheAdapterAndTheCutInTheSameInstant) {
  Bench mac({.percent = 80});
  mac.write("CHIE", {8});
  EXPECT_FALSE(mac.machine.powerSource.onAdapter);
  EXPECT_EQ(mac.machine.powerSource.minutes, -1);
  EXPECT_EQ(mac.machine.powerSource.changes, 1U);
  mac.write("CHIE", {0});
  EXPECT_TRUE(mac.machine.powerSource.onAdapter);
  mac.change(ChangeKind::unplug);
  EXPECT_FALSE(mac.machine.powerSource.onAdapter);
  mac.write("CHIE", {8});  // nothing left to cut
  EXPECT_EQ(mac.machine.powerSource.changes, 3U);
}

TEST(MachinePowerSource, followsAfterAConfiguredDelay) {
  Bench mac({.percent = 80});
  mac.change(ChangeKind::powerSourceLag, 5).change(ChangeKind::unplug);
  mac.pass(4.5);
  EXPECT_TRUE(mac.machine.powerSource.onAdapter);
  mac.pass(0.5);
  EXPECT_FALSE(mac.machine.powerSource.onAdapter);
}

TEST(MachinePowerSource, missesAChangeThatIsShorterThanItsDelay) {
  Bench mac({.percent = 80});
  mac.write("CHTE", {1, 0, 0, 0});
  mac.pass(2 * minute).change(ChangeKind::powerSourceLag, 5);
  const std::uint64_t changes = mac.machine.powerSource.changes;
  mac.write("CHIE", {8});
  mac.pass(2);
  mac.write("CHIE", {0});
  mac.pass(20);
  EXPECT_EQ(mac.machine.powerSource.changes, changes);
  EXPECT_LT(mac.machine.powerSource.stateDueAt, 0);
}

TEST(MachinePowerSource, estimatesTheMinutesLeft) {
  Bench mac({.percent = 78, .plugged = false});
  mac.pass(minute);
  const double hours = mac.machine.battery.chargeMAh / -mac.machine.battery.currentMA;
  EXPECT_NEAR(static_cast<double>(mac.machine.powerSource.minutes), hours * 60, 2);

  mac.change(ChangeKind::plug, 30);
  EXPECT_EQ(mac.machine.powerSource.minutes, 0);  // the gauge does not show the charging yet
  mac.pass(minute);
  const std::int64_t estimate = mac.machine.powerSource.minutes;
  const double start = mac.machine.now;
  while (!mac.machine.battery.fullyCharged) mac.pass(1);
  EXPECT_NEAR(static_cast<double>(estimate), (mac.machine.now - start) / minute, 8);

  mac.pass(minute);
  EXPECT_EQ(mac.machine.powerSource.minutes, 0);
  EXPECT_TRUE(mac.machine.powerSource.full);
}

TEST(MachinePowerSource, countsEveryPublishedChange) {
  Bench mac({.percent = 50});
  const std::uint64_t before = mac.machine.powerSource.changes;
  std::uint64_t seen = 0;
  const double end = mac.machine.now + hour;
  while (advanceToNotice(mac.machine, end)) ++seen;
  EXPECT_GT(seen, 20U);
  EXPECT_EQ(mac.machine.powerSource.changes, before + seen);
}

// ---- the system

TEST(MachineSystem, distinguishesWallClockAndUptime) {
  Bench mac({.startTime = 1772352000, .uptime = 250});
  EXPECT_EQ(uptimeOf(mac.machine), 250);
  mac.pass(50).change(ChangeKind::clockStep, -3600.5);
  EXPECT_EQ(uptimeOf(mac.machine), 300);
  EXPECT_EQ(wallClock(mac.machine), 1772352000 + 50 - 3600.5);
}

TEST(MachineSystem, doesNotCountSleepAsUptime) {
  Bench mac({.uptime = 100});
  mac.machine.system.asleep = true;
  mac.pass(500.5);
  EXPECT_EQ(uptimeOf(mac.machine), 100);
  mac.machine.system.asleep = false;
  mac.pass(10);
  EXPECT_EQ(uptimeOf(mac.machine), 110);
}

TEST(MachineSystem, bootsWithTheKeysAsTheyWere) {
  Bench mac({.percent = 80});
  mac.write("CHTE", {1, 0, 0, 0});
  mac.write("CHIE", {8});
  mac.change(ChangeKind::capabilities, 9);
  shutDown(mac.machine);
  EXPECT_EQ(uptimeOf(mac.machine), 0);
  mac.pass(hour);
  boot(mac.machine);
  EXPECT_EQ(uptimeOf(mac.machine), 0);
  EXPECT_EQ(mac.machine.system.capabilities, 15U);
  EXPECT_EQ(mac.read("CHTE"), (Bytes{1, 0, 0, 0}));
  EXPECT_FALSE(adapterReachesBattery(mac.machine));
  EXPECT_LT(mac.pass(minute).machine.battery.currentMA, -300);
}

TEST(MachineSystem, startsHealthyAndAtRest) {
  const Bench mac;
  const Machine& machine = mac.machine;
  EXPECT_EQ(machine.version, machineVersion);
  EXPECT_EQ(textOf(machine.model), "MacBook Air 13");
  EXPECT_EQ(machine.now, 1772352000);
  EXPECT_EQ(machine.gauge.percent, 70);
  EXPECT_EQ(machine.gauge.publishedAt, machine.now);
  EXPECT_TRUE(machine.powerSource.onAdapter);
  EXPECT_TRUE(machine.powerSource.charging);
  EXPECT_EQ(machine.powerSource.changes, 0U);
  EXPECT_TRUE(chargingIsOpen(machine));
  EXPECT_EQ(machine.smc.service, SmcService::present);
  EXPECT_EQ(machine.system.macOS, 26);
  EXPECT_EQ(machine.system.capabilities, 15U);
  EXPECT_TRUE(machine.system.poweredOn);
  EXPECT_EQ(machine.speed, 1);
}

TEST(MachineSystem, truncatesALongText) {
  const ShortText text = shortText(std::string(50, 'x'));
  EXPECT_EQ(textOf(text), std::string(39, 'x'));
  EXPECT_EQ(textOf(shortText("")), "");
}

// ---- changes with impossible parameters

TEST(MachineChanges, clampsNumbers) {
  Bench mac;
  mac.change(ChangeKind::charge, 140);
  EXPECT_EQ(level(mac.machine), 100);
  mac.change(ChangeKind::charge, -3);
  EXPECT_EQ(level(mac.machine), 0);
  mac.change(ChangeKind::charge, std::nan(""));
  EXPECT_EQ(level(mac.machine), 0);
  mac.change(ChangeKind::health, 0);
  EXPECT_EQ(mac.machine.battery.fullMAh, 100);
  mac.change(ChangeKind::plug, -5);
  EXPECT_EQ(mac.machine.adapter.watts, 0);
  mac.change(ChangeKind::smcService, 3).change(ChangeKind::powerSources, -1).change(ChangeKind::layout, 2);
  EXPECT_EQ(mac.machine.smc.service, SmcService::present);
  EXPECT_EQ(mac.machine.powerSourceFault, PowerSourceFault::none);
  EXPECT_EQ(mac.machine.layout, RegistryLayout::flat);
  mac.change(ChangeKind::signal, 0).change(ChangeKind::signal, 32);
  EXPECT_EQ(mac.machine.pendingSignals, 0U);
}

// The tools and the machine accept the same range.
TEST(MachineChanges, haveTheSameRangesAsTheTools) {
  const auto after = [](const Fault& fault, double number) {
    Bench mac;
    mac.machine.system.asleep = fault.change.kind == ChangeKind::darkWake;  // only a sleeping Mac wakes
    Change change = fault.change;
    change.key = keyCode("CHTE");
    change.number = number;
    mac.change(change);
    return mac.machine;
  };
  const auto same = [](const Machine& one, const Machine& other) {
    return std::memcmp(&one, &other, sizeof one) == 0;
  };
  std::size_t measured = 0;
  for (const Fault& fault : faults()) {
    if (!fault.asks.number) continue;
    SCOPED_TRACE(fault.name);
    const auto& [least, most, unit] = fault.range();
    EXPECT_TRUE(same(after(fault, most + 1), after(fault, most)));
    EXPECT_TRUE(same(after(fault, most * 1000), after(fault, most)));
    const Machine below = after(fault, least - 1);
    const bool never =
        fault.change.kind == ChangeKind::keyReleaseAfter || fault.change.kind == ChangeKind::capabilities;
    EXPECT_EQ(same(below, after(fault, least)), !never) << "negative numbers are invalid";
    EXPECT_FALSE(same(after(fault, least), after(fault, most)));
    ++measured;
  }
  EXPECT_EQ(measured, 28U);
  EXPECT_EQ(rangeOf(ChangeKind::load).most, 300);
  EXPECT_EQ(rangeOf(ChangeKind::health).most, 20000);
  EXPECT_EQ(rangeOf(ChangeKind::request).most, 0) << "takes no number";
}

TEST(MachineChanges, keepsThePercentageWhenTheBatteryAges) {
  Bench mac({.percent = 70});
  mac.change(ChangeKind::health, 3977);
  EXPECT_NEAR(level(mac.machine), 70, 1e-9);
  EXPECT_EQ(mac.machine.battery.fullMAh, 3977);
}

TEST(MachineChanges, endsTheChargeOfABatteryThatIsSetTo100) {
  Bench mac;
  mac.change(ChangeKind::charge, 100).pass(minute);
  EXPECT_TRUE(mac.machine.gauge.full);
  EXPECT_EQ(mac.machine.gauge.currentMA, 0);
  mac.change(ChangeKind::charge, 99).pass(minute);
  EXPECT_FALSE(mac.machine.gauge.full);
  EXPECT_GT(mac.machine.gauge.currentMA, 0);
}

TEST(MachineChanges, removesAndRestoresTheBattery) {
  Bench mac({.percent = 60});
  mac.change(ChangeKind::batteryInstalled, 0).pass(hour);
  EXPECT_EQ(level(mac.machine), 0);
  EXPECT_EQ(mac.machine.gauge.percent, 0);
  EXPECT_EQ(mac.machine.gauge.voltageMV, 0);
  EXPECT_FALSE(mac.machine.gauge.charging);
  mac.change(ChangeKind::batteryInstalled, 1);
  EXPECT_EQ(mac.machine.gauge.percent, 60);
}

TEST(MachineChanges, makesRoomForANewPropertyFaultByDroppingTheOldest) {
  Bench mac;
  for (const char* name : {"A", "B", "C", "D", "E", "F", "G", "H", "I"}) {
    mac.property(name, PropertyFault::missing);
  }
  EXPECT_EQ(textOf(mac.machine.properties.front().name), "B");
  EXPECT_EQ(textOf(mac.machine.properties.back().name), "I");
  mac.property("B", PropertyFault::text);
  EXPECT_EQ(textOf(mac.machine.properties.back().name), "B");
  mac.property("B", PropertyFault::none);
  EXPECT_EQ(textOf(mac.machine.properties.back().name), "");
  EXPECT_EQ(textOf(mac.machine.properties[6].name), "I");
}

TEST(MachineChanges, followsAnUpgradeOfMacOSInTheRegistryToo) {
  Bench mac;
  mac.change(ChangeKind::macOS, 27);
  EXPECT_EQ(mac.machine.system.macOS, 27);
  EXPECT_EQ(mac.machine.layout, RegistryLayout::nested);
}

TEST(MachineChanges, hidesTheCapabilitiesBelowZero) {
  Bench mac;
  mac.change(ChangeKind::capabilities, -1);
  EXPECT_FALSE(mac.machine.system.capabilitiesReadable);
  mac.change(ChangeKind::capabilities, 9);
  EXPECT_TRUE(mac.machine.system.capabilitiesReadable);
  EXPECT_EQ(mac.machine.system.capabilities, 9U);
}

// ---- models and the list of changes

TEST(MachineModels, areThreeThatCoverEveryKeyFamily) {
  ASSERT_EQ(models().size(), 3U);
  std::set<GateKind> gates;
  std::set<CutKind> cuts;
  for (const Model& model : models()) {
    gates.insert(model.gate);
    cuts.insert(model.cut);
    EXPECT_EQ(findModel(model.name), &model);
  }
  EXPECT_EQ(gates.size(), 3U);
  EXPECT_EQ(cuts.size(), 3U);
  EXPECT_EQ(findModel("mini"), nullptr);
}

TEST(MachineFaults, haveANameAndAReason) {
  std::set<std::string_view> names;
  for (const Fault& fault : faults()) {
    SCOPED_TRACE(fault.name);
    EXPECT_TRUE(names.insert(fault.name).second);
    EXPECT_THAT(fault.name, ::testing::MatchesRegex("[a-z0-9-]+"));
    EXPECT_TRUE(fault.reason.ends_with('.'));
    if (fault.asks.number) {
      EXPECT_FALSE(fault.range().unit.empty());
      EXPECT_LT(fault.range().least, fault.range().most);
    }
    EXPECT_EQ(findFault(fault.name), &fault);
  }
  EXPECT_EQ(findFault("nothing-like-that"), nullptr);
}

TEST(MachineFaults, includeEveryKindOfChange) {
  std::set<ChangeKind> kinds;
  for (const Fault& fault : faults()) kinds.insert(fault.change.kind);
  constexpr auto all = static_cast<std::size_t>(ChangeKind::preferencesFail);
  constexpr std::size_t requests = 2;  // not faults, but requests of the app
  EXPECT_EQ(kinds.size(), all - requests);
  EXPECT_EQ(kinds.count(ChangeKind::nothing), 0U);
  EXPECT_EQ(kinds.count(ChangeKind::request), 0U);
  EXPECT_EQ(kinds.count(ChangeKind::requestUnawaited), 0U);
}

}  // namespace
}  // namespace brisko::test::machine_time_test
