#include "hardware/battery.h"

#include <bit>
#include <cmath>
#include <cstring>
#include <limits>

#include "hardware/adapter.h"
#include "state/tick_state.h"
#include "support/on_virtual_mac.h"
#include "support/testing.h"

namespace brisko::battery_test {
namespace {

using namespace test;
using platform::Dictionary;
using platform::SharedDictionary;

SharedDictionary source(Dictionary properties) {
  properties.emplace("Type", "InternalBattery");
  return std::make_shared<const Dictionary>(std::move(properties));
}

std::optional<std::int64_t> percent(Dictionary properties) {
  const auto state = powerStateOf({source(std::move(properties))});
  return state ? std::optional(state->pct) : std::nullopt;
}

TEST(PowerStateOf, scalesByTheMaximumAndRoundsHalvesAwayFromZero) {
  EXPECT_EQ(percent({{"Current Capacity", 4000}, {"Max Capacity", 5000}}), 80);
  EXPECT_EQ(percent({{"Current Capacity", 4025}, {"Max Capacity", 5000}}), 81);
  EXPECT_EQ(percent({{"Current Capacity", 1425}, {"Max Capacity", 5000}}), 28);
  EXPECT_EQ(percent({{"Current Capacity", 5100}, {"Max Capacity", 5000}}), 102);
  // 2875 of 5000 is a little below 57.5 when divided first.
  EXPECT_EQ(percent({{"Current Capacity", 2875}, {"Max Capacity", 5000}}), 57);
  EXPECT_EQ(percent({{"Current Capacity", -1}, {"Max Capacity", 200}}), -1);
}

TEST(PowerStateOf, usesThePercentageUnscaledBelowAMaximumOfOne) {
  EXPECT_EQ(percent({{"Current Capacity", 57}, {"Max Capacity", 0}}), 57);
  EXPECT_EQ(percent({{"Current Capacity", 57}, {"Max Capacity", -100}}), 57);
  EXPECT_EQ(percent({{"Current Capacity", 1}, {"Max Capacity", 1}}), 100);
}

TEST(PowerStateOf, usesDefaultsForWhatIsMissingOrNoInteger) {
  EXPECT_EQ(percent({{"Current Capacity", 57}}), 57);
  EXPECT_EQ(percent({{"Current Capacity", 57}, {"Max Capacity", "100"}}), 57);
  EXPECT_EQ(percent({{"Current Capacity", 57}, {"Max Capacity", 50.0}}), 57);
  EXPECT_EQ(percent({{"Max Capacity", 100}}), 0);
  EXPECT_EQ(percent({{"Current Capacity", true}}), 0);
  EXPECT_EQ(percent({{"Current Capacity", 57.0}}), 0);
}

TEST(PowerStateOf, hasNoReadingOfAPercentageBeyond64Bits) {
  constexpr std::int64_t most = std::numeric_limits<std::int64_t>::max();
  constexpr std::int64_t least = std::numeric_limits<std::int64_t>::min();
  EXPECT_EQ(percent({{"Current Capacity", most}, {"Max Capacity", 1}}), std::nullopt);
  EXPECT_EQ(percent({{"Current Capacity", least}, {"Max Capacity", 99}}), std::nullopt);
  EXPECT_EQ(percent({{"Current Capacity", most}, {"Max Capacity", most}}), 100);
  EXPECT_EQ(percent({{"Current Capacity", least}, {"Max Capacity", 100}}), least);
  EXPECT_EQ(percent({{"Current Capacity", most}, {"Max Capacity", 100}}), std::nullopt) << "2^63 as a double";
  EXPECT_NE(percent({{"Current Capacity", most}, {"Max Capacity", 101}}), std::nullopt);
  EXPECT_EQ(percent({{"Current Capacity", most}, {"Max Capacity", 0}}), most) << "unscaled";
}

TEST(PowerStateOf, isPluggedOnlyOnACPower) {
  const auto plugged = [](Dictionary properties) {
    return powerStateOf({source(std::move(properties))})->plugged;
  };
  EXPECT_TRUE(plugged({{"Power Source State", "AC Power"}}));
  EXPECT_FALSE(plugged({{"Power Source State", "Battery Power"}}));
  EXPECT_FALSE(plugged({{"Power Source State", "Off Line"}}));
  EXPECT_FALSE(plugged({{"Power Source State", "AC power"}}));
  EXPECT_FALSE(plugged({{"Power Source State", 1}}));
  EXPECT_FALSE(plugged({}));
}

TEST(PowerStateOf, choosesTheFirstInternalBattery) {
  const auto ups = std::make_shared<const Dictionary>(Dictionary{{"Type", "UPS"}, {"Current Capacity", 33}});
  const auto first = source({{"Current Capacity", 44}});
  const auto second = source({{"Current Capacity", 55}});
  EXPECT_EQ(powerStateOf({ups, first, second})->pct, 44);
  EXPECT_EQ(powerStateOf({nullptr, second})->pct, 55);
  EXPECT_FALSE(powerStateOf({ups}));
  EXPECT_FALSE(powerStateOf({}));
}

class Sensors : public test::OnVirtualMac {
 protected:
  void SetUp() override { openController(); }
  void size(std::string_view key, double bytes) {
    mac.change({.kind = ChangeKind::keySize, .key = virtual_mac::keyCode(key), .number = bytes});
  }
  void temperatureBytes(float celsius) {
    Bytes bytes(sizeof celsius);
    std::memcpy(bytes.data(), &celsius, sizeof celsius);
    mac.keyBytes("TB0T", bytes);
  }
};

TEST_F(Sensors, readTheChargeAndTheAdapter) {
  mac.charge(64);
  EXPECT_EQ(powerState()->pct, 64);
  EXPECT_TRUE(powerState()->plugged);
  mac.unplug();
  EXPECT_FALSE(powerState()->plugged);
}

TEST_F(Sensors, findTheBatteryBehindAUps) {
  mac.charge(64).number(ChangeKind::powerSources, static_cast<double>(PowerSourceFault::upsFirst));
  EXPECT_EQ(powerState()->pct, 64);
}

TEST_F(Sensors, haveNoPowerStateWithoutASnapshotAListOrABattery) {
  for (const auto fault :
       {PowerSourceFault::noSnapshot, PowerSourceFault::emptyList, PowerSourceFault::noInternalBattery}) {
    mac.number(ChangeKind::powerSources, static_cast<double>(fault));
    EXPECT_FALSE(powerState());
  }
}

TEST(AdapterWatts, areThoseOfTheAdaptersDetails) {
  const auto watts = [](Dictionary details) {
    return SmartBattery::adapterWatts({{"AdapterDetails", std::move(details)}});
  };
  EXPECT_EQ(watts({{"Watts", 94}}), 94);
  EXPECT_FALSE(watts({{"FamilyCode", 0}}));
  EXPECT_FALSE(watts({{"Watts", 0}}));
  EXPECT_FALSE(watts({{"Watts", "94"}}));
  EXPECT_FALSE(SmartBattery::adapterWatts({}));
  EXPECT_FALSE(SmartBattery::adapterWatts({{"AdapterDetails", 94}}));
}

TEST(Voltage, isAboveNone) {
  EXPECT_EQ(SmartBattery::voltageMV({{"Voltage", 12'180}}), 12'180);
  EXPECT_FALSE(SmartBattery::voltageMV({{"Voltage", 0}}));
  EXPECT_FALSE(SmartBattery::voltageMV({}));
}

TEST(Amperage, isMissingFrom20AmperesOn) {
  using SmartBattery::amperageMA;
  EXPECT_EQ(amperageMA({{"Amperage", 1200}}), 1200);
  EXPECT_EQ(amperageMA({{"Amperage", -483}}), -483);
  EXPECT_EQ(amperageMA({{"Amperage", 19999}}), 19999);
  EXPECT_EQ(amperageMA({{"Amperage", -19999}}), -19999);
  EXPECT_FALSE(amperageMA({{"Amperage", 20000}}));
  EXPECT_FALSE(amperageMA({{"Amperage", -20000}}));
  EXPECT_FALSE(amperageMA({{"Amperage", 25000}}));
  EXPECT_FALSE(amperageMA({{"Amperage", std::numeric_limits<std::int64_t>::min()}}));
  EXPECT_FALSE(amperageMA({{"Amperage", "1200"}}));
  EXPECT_FALSE(amperageMA({{"Amperage", true}}));
  EXPECT_FALSE(amperageMA({}));
}

TEST(Amperage, isNegativeIfItArrivesAsALargeUnsignedNumber) {
  EXPECT_EQ(SmartBattery::amperageMA({{"Amperage", std::uint64_t{18446744073709550616U}}}), -1000);
  EXPECT_FALSE(SmartBattery::amperageMA({{"Amperage", std::uint64_t{9223372036854775808U}}}));
}

TEST(Amperage, mayArriveAsAFloatingPointNumber) {
  using SmartBattery::amperageMA;
  EXPECT_EQ(amperageMA({{"Amperage", 1200.0}}), 1200);
  EXPECT_EQ(amperageMA({{"Amperage", -1200.9}}), -1200);
  EXPECT_EQ(amperageMA({{"Amperage", -0.5}}), 0);
  EXPECT_EQ(amperageMA({{"Amperage", 19999.9}}), 19999);
  EXPECT_FALSE(amperageMA({{"Amperage", 20000.0}}));
  EXPECT_FALSE(amperageMA({{"Amperage", -20000.0}}));
  EXPECT_FALSE(amperageMA({{"Amperage", 1e300}}));
  EXPECT_FALSE(amperageMA({{"Amperage", std::numeric_limits<double>::infinity()}}));
  EXPECT_FALSE(amperageMA({{"Amperage", std::numeric_limits<double>::quiet_NaN()}}));
}

TEST(BatteryPower, isCurrentTimesVoltage) {
  using SmartBattery::watts;
  EXPECT_DOUBLE_EQ(*watts({{"Amperage", 2000}, {"Voltage", 12500}}), 25.0);
  EXPECT_DOUBLE_EQ(*watts({{"Amperage", -1000}, {"Voltage", 12000}}), -12.0);
  EXPECT_DOUBLE_EQ(*watts({{"Amperage", 0}, {"Voltage", 1}}), 0.0);
  EXPECT_FALSE(watts({{"Amperage", 2000}, {"Voltage", 0}}));
  EXPECT_FALSE(watts({{"Amperage", 2000}, {"Voltage", -12000}}));
  EXPECT_FALSE(watts({{"Amperage", 2000}}));
  EXPECT_FALSE(watts({{"Amperage", 20000}, {"Voltage", 12000}}));
}

TEST(Capacity, isReadFromTheTopOrFromTheNestedData) {
  using SmartBattery::mAh;
  const Dictionary nested{{"BatteryData", Dictionary{{"DesignCapacity", 4563}}}};
  EXPECT_EQ(mAh({{"DesignCapacity", 4629}}, "DesignCapacity"), 4629);
  EXPECT_EQ(mAh(nested, "DesignCapacity"), 4563);
  EXPECT_EQ(
      mAh({{"DesignCapacity", 1}, {"BatteryData", Dictionary{{"DesignCapacity", 2}}}}, "DesignCapacity"), 1);
  // The value at the top counts as absent if it is not an integer.
  EXPECT_EQ(
      mAh({{"DesignCapacity", "4629"}, {"BatteryData", Dictionary{{"DesignCapacity", 2}}}}, "DesignCapacity"),
      2);
  EXPECT_FALSE(mAh({{"BatteryData", 5}}, "DesignCapacity"));
  EXPECT_FALSE(mAh({}, "DesignCapacity"));
}

TEST_F(Sensors, readTheTemperature) {
  mac.temperature(31.5);
  EXPECT_NEAR(*readTemp(), 31.5, 0.01);
}

TEST_F(Sensors, haveNoTemperatureOutsideTheOpenInterval) {
  for (const float celsius : {0.0F, -5.0F, 100.0F, 120.0F, std::numeric_limits<float>::quiet_NaN(),
                              std::numeric_limits<float>::infinity()}) {
    temperatureBytes(celsius);
    EXPECT_FALSE(readTemp()) << celsius;
  }
  temperatureBytes(99.99F);
  EXPECT_FLOAT_EQ(static_cast<float>(*readTemp()), 99.99F);
  temperatureBytes(0.01F);
  EXPECT_TRUE(readTemp());
}

TEST_F(Sensors, needFourBytesOfTemperature) {
  mac.keyBytes("TB0T", {0, 0, 0xF8, 0x41, 0xFF, 0xFF});
  for (const int bytes : {0, 1, 2, 3}) {
    size("TB0T", bytes);
    EXPECT_FALSE(readTemp()) << bytes;
  }
  size("TB0T", 4);
  EXPECT_DOUBLE_EQ(*readTemp(), 31.0);
  size("TB0T", 6);
  EXPECT_DOUBLE_EQ(*readTemp(), 31.0);
  mac.removeKey("TB0T");
  EXPECT_FALSE(readTemp());
}

TEST_F(Sensors, reportWhetherTheBatteryCharges) {
  mac.charge(50);
  mac.pass(120);
  EXPECT_EQ(chargingNow(), true);
  mac.unplug();
  mac.pass(120);
  EXPECT_EQ(chargingNow(), false);
}

TEST_F(Sensors, doNotTakeATrickleForCharging) {
  mac.keyBytes("CHTE", {1, 0, 0, 0});
  mac.number(ChangeKind::trickle, 100).pass(120);
  EXPECT_EQ(chargingNow(), false);
  mac.number(ChangeKind::trickle, 101).pass(120);
  EXPECT_EQ(chargingNow(), true);
}

TEST_F(Sensors, fallBackToTheControllerWithoutACurrent) {
  mac.property("Amperage", PropertyFault::missing);
  mac.keyBytes("CHSC", {1});
  EXPECT_EQ(chargingNow(), true);
  mac.keyBytes("CHSC", {0});
  EXPECT_EQ(chargingNow(), false);
  mac.removeKey("CHSC");
  EXPECT_EQ(chargingNow(), std::nullopt);
}

TEST_F(Sensors, askTheControllerWhenThereIsNoBatteryEntry) {
  mac.number(ChangeKind::batteryInstalled, 0);
  mac.keyBytes("CHSC", {5});
  mac.property("Amperage", PropertyFault::text);
  EXPECT_EQ(chargingNow(), true);
}

TEST_F(Sensors, readTheCapabilities) {
  mac.number(ChangeKind::capabilities, 15);
  EXPECT_EQ(systemCapabilities(), 15U);
  mac.number(ChangeKind::capabilities, 9);
  EXPECT_EQ(systemCapabilities(), 9U);
  mac.number(ChangeKind::capabilities, -1);
  EXPECT_EQ(systemCapabilities(), std::nullopt);
}

TEST_F(Sensors, readCapabilitiesOfEveryKindOfNumber) {
  mac.number(ChangeKind::capabilities, 9);
  for (const auto kind : {PropertyFault::real, PropertyFault::unsignedInteger}) {
    mac.property("System Capabilities", kind);
    EXPECT_EQ(systemCapabilities(), 9U);
  }
  mac.property("System Capabilities", PropertyFault::text);
  EXPECT_EQ(systemCapabilities(), std::nullopt);
}

TEST_F(Sensors, seeTheAdapterThroughTheController) {
  EXPECT_TRUE(adapterPresent());
  mac.unplug();
  EXPECT_FALSE(adapterPresent());
  mac.keyBytes("AC-W", {0xFE});
  EXPECT_TRUE(adapterPresent());
  mac.keyBytes("AC-W", {0xFF});
  EXPECT_FALSE(adapterPresent());
}

TEST_F(Sensors, useTheLastPowerReadingIfTheAdapterCannotBeRead) {
  gLastPlugged = true;
  size("AC-W", 0);
  EXPECT_TRUE(adapterPresent());
  gLastPlugged = false;
  EXPECT_FALSE(adapterPresent());
  gLastPlugged = true;
  mac.removeKey("AC-W");
  EXPECT_TRUE(adapterPresent());
  gLastPlugged = false;
  EXPECT_FALSE(adapterPresent());
}

TEST_F(Sensors, stillSeeTheAdapterWhileItIsCut) {
  mac.keyBytes("CHIE", {8});
  EXPECT_TRUE(adapterPresent());
  EXPECT_FALSE(powerState()->plugged);
}

}  // namespace
}  // namespace brisko::battery_test
