#include "sim/machine/properties.h"

#include <string>

#include "sim/machine/machine_bench.h"
#include "support/testing.h"

namespace brisko::test::properties_test {
namespace {

using namespace virtual_mac;
using platform::Dictionary;
using platform::SharedDictionary;
using platform::Value;

constexpr double minute = 60;

SharedDictionary battery(const Bench& mac) { return entryProperties(mac.machine, "AppleSmartBattery"); }

const Value& at(const Dictionary& dictionary, std::string_view key) {
  static const Value nothing;
  const Value* value = find(dictionary, key);
  return value == nullptr ? nothing : *value;
}

std::optional<std::int64_t> integer(const SharedDictionary& dictionary, std::string_view key) {
  return at(*dictionary, key).asInteger();
}

std::optional<bool> flag(const SharedDictionary& dictionary, std::string_view key) {
  return at(*dictionary, key).asBoolean();
}

std::string text(const SharedDictionary& dictionary, std::string_view key) {
  const std::string* value = at(*dictionary, key).asText();
  return value == nullptr ? "none" : *value;
}

std::optional<std::int64_t> nested(const SharedDictionary& dictionary, std::string_view outer,
                                   std::string_view key) {
  const Dictionary* inner = at(*dictionary, outer).asDictionary();
  return inner == nullptr ? std::nullopt : at(*inner, key).asInteger();
}

bool has(const SharedDictionary& dictionary, std::string_view key) {
  return find(*dictionary, key) != nullptr;
}

// ---- the battery's registry entry, up to macOS 26

TEST(PropertiesFlat, showsTheBatteryAsTheGaugePublishedIt) {
  Bench mac({.percent = 59});
  mac.pass(minute);
  const SharedDictionary properties = battery(mac);
  const Gauge& gauge = mac.machine.gauge;

  EXPECT_EQ(integer(properties, "CurrentCapacity"), gauge.percent);
  EXPECT_EQ(integer(properties, "MaxCapacity"), 100);
  EXPECT_EQ(integer(properties, "AppleRawCurrentCapacity"), gauge.rawMAh);
  EXPECT_EQ(integer(properties, "AppleRawMaxCapacity"), 4427);
  EXPECT_EQ(integer(properties, "DesignCapacity"), 4563);
  EXPECT_EQ(integer(properties, "PackReserve"), 127);
  EXPECT_EQ(integer(properties, "NominalChargeCapacity"), 4427 + 127);
  EXPECT_EQ(integer(properties, "CycleCount"), 37);
  EXPECT_EQ(integer(properties, "Amperage"), gauge.currentMA);
  EXPECT_EQ(integer(properties, "InstantAmperage"), gauge.currentMA);
  EXPECT_EQ(integer(properties, "Voltage"), gauge.voltageMV);
  EXPECT_EQ(integer(properties, "Temperature"), gauge.temperatureCentiC);
  EXPECT_EQ(integer(properties, "UpdateTime"), 1772352060);
  EXPECT_EQ(nested(properties, "BatteryData", "DesignCapacity"), 4563);
  EXPECT_EQ(nested(properties, "BatteryData", "CycleCount"), 37);
  EXPECT_EQ(flag(properties, "BatteryInstalled"), true);
  EXPECT_EQ(flag(properties, "IsCharging"), true);
  EXPECT_EQ(flag(properties, "FullyCharged"), false);
  EXPECT_EQ(flag(properties, "built-in"), true);
}

TEST(PropertiesFlat, haveAnUpdateTimeByTheWallClock) {
  Bench mac;
  mac.change(ChangeKind::clockStep, -3600);
  EXPECT_EQ(integer(battery(mac), "UpdateTime"), 1772352000 - 3600);
}

TEST(PropertiesFlat, showTheAdapterAtOnceAndTheRestLater) {
  Bench mac({.percent = 76, .plugged = false});
  mac.pass(90);
  const auto before = integer(battery(mac), "Amperage");
  EXPECT_EQ(flag(battery(mac), "ExternalConnected"), false);
  EXPECT_FALSE(nested(battery(mac), "AdapterDetails", "Watts").has_value());

  mac.change(ChangeKind::plug, 45);
  EXPECT_EQ(flag(battery(mac), "ExternalConnected"), true);
  EXPECT_EQ(nested(battery(mac), "AdapterDetails", "Watts"), 45);
  EXPECT_GT(nested(battery(mac), "ChargerData", "ChargingCurrent"), 500);
  EXPECT_EQ(flag(battery(mac), "IsCharging"), false);
  EXPECT_EQ(integer(battery(mac), "Amperage"), before);
}

TEST(PropertiesFlat, distinguishTheCutFromTheCable) {
  Bench mac;
  mac.write("CHIE", {8});
  EXPECT_EQ(flag(battery(mac), "ExternalConnected"), false);
  EXPECT_EQ(flag(battery(mac), "AppleRawExternalConnected"), true);
  EXPECT_EQ(flag(battery(mac), "IsCharging"), false);
}

TEST(PropertiesFlat, reportWhyTheBatteryDoesNotCharge) {
  const auto reason = [](const Bench& mac) {
    return nested(battery(mac), "ChargerData", "NotChargingReason");
  };
  Bench mac({.percent = 70});
  EXPECT_EQ(reason(mac), 0);
  mac.write("CHTE", {1, 0, 0, 0});
  EXPECT_EQ(reason(mac.pass(minute)), 16777216);
  mac.change(ChangeKind::unplug);
  EXPECT_EQ(reason(mac.pass(minute)), 128);
  EXPECT_EQ(reason(Bench({.percent = 100})), 4194305);
}

TEST(PropertiesFlat, haveConsistentPowerValues) {
  for (const bool plugged : {true, false}) {
    Bench mac({.percent = 50, .plugged = plugged});
    mac.pass(minute);
    const auto power = [&](std::string_view key) { return *nested(battery(mac), "PowerTelemetryData", key); };
    EXPECT_EQ(power("SystemPowerIn"), power("SystemLoad") + power("BatteryPower"));
    EXPECT_NEAR(static_cast<double>(power("SystemLoad")), 4200, 60);
    EXPECT_EQ(power("BatteryPower") > 0, plugged);
  }
}

TEST(PropertiesFlat, showUnknownMinutesAs65535) {
  Bench mac({.percent = 80});
  mac.write("CHTE", {1, 0, 0, 0});
  mac.pass(minute);
  EXPECT_EQ(integer(battery(mac), "TimeRemaining"), 65535);
  mac.change(ChangeKind::unplug).pass(minute);
  EXPECT_EQ(integer(battery(mac), "TimeRemaining"), mac.machine.powerSource.minutes);
  EXPECT_EQ(integer(battery(mac), "AvgTimeToEmpty"), mac.machine.powerSource.minutes);
  EXPECT_EQ(integer(battery(mac), "AvgTimeToFull"), 65535);

  mac.write("CHTE", {0, 0, 0, 0});
  mac.change(ChangeKind::plug, 30).pass(minute);
  EXPECT_EQ(integer(battery(mac), "TimeRemaining"), mac.machine.powerSource.minutes);
  EXPECT_EQ(integer(battery(mac), "AvgTimeToFull"), mac.machine.powerSource.minutes);
  EXPECT_EQ(integer(battery(mac), "AvgTimeToEmpty"), 65535);
}

TEST(PropertiesFlat, areThoseOfADesktopWithoutABattery) {
  Bench mac;
  mac.change(ChangeKind::batteryInstalled, 0);
  EXPECT_EQ(flag(battery(mac), "BatteryInstalled"), false);
  EXPECT_EQ(flag(battery(mac), "ExternalConnected"), true);
  EXPECT_EQ(integer(battery(mac), "CurrentCapacity"), 0);
  EXPECT_EQ(integer(battery(mac), "MaxCapacity"), 0);
  EXPECT_FALSE(has(battery(mac), "DesignCapacity"));
}

TEST(PropertiesFlat, haveNoEntryForThePack) {
  EXPECT_EQ(entryProperties(Bench().machine, "AppleSmartBatteryPack"), nullptr);
  EXPECT_EQ(entryProperties(Bench().machine, "AppleSmartBatteryManager"), nullptr);
}

// ---- the same from macOS 27 on

TEST(PropertiesNested, keepTheCapacitiesInTheBatteryDataOnly) {
  Bench mac({.macOS = 27, .percent = 34});
  mac.pass(minute);
  const SharedDictionary properties = battery(mac);
  for (const char* gone :
       {"AppleRawCurrentCapacity", "AppleRawMaxCapacity", "DesignCapacity", "PackReserve",
        "NominalChargeCapacity", "Temperature", "VirtualTemperature", "AbsoluteCapacity"}) {
    EXPECT_FALSE(has(properties, gone)) << gone;
  }
  EXPECT_EQ(nested(properties, "BatteryData", "RemainingCapacity"), mac.machine.gauge.rawMAh);
  EXPECT_EQ(nested(properties, "BatteryData", "FullChargeCapacity"), 4427);
  EXPECT_EQ(nested(properties, "BatteryData", "DesignCapacity"), 4563);
  EXPECT_EQ(nested(properties, "BatteryData", "NominalChargeCapacity"), 4554);
  EXPECT_EQ(integer(properties, "Amperage"), mac.machine.gauge.currentMA);
  EXPECT_EQ(integer(properties, "CycleCount"), 37);
  EXPECT_EQ(integer(properties, "BatteryPackCount"), 1);
  EXPECT_FALSE(nested(properties, "ChargerData", "ChargingCurrent").has_value());
}

TEST(PropertiesNested, haveTheTemperatureInThePack) {
  Bench mac({.macOS = 27});
  const SharedDictionary pack = entryProperties(mac.machine, "AppleSmartBatteryPack");
  ASSERT_NE(pack, nullptr);
  EXPECT_EQ(nested(pack, "BatteryData", "Temperature"), mac.machine.gauge.temperatureCentiC);
  EXPECT_EQ(nested(pack, "BatteryData", "AppleRawCurrentCapacity"), mac.machine.gauge.rawMAh);
  mac.change(ChangeKind::batteryInstalled, 0);
  EXPECT_EQ(entryProperties(mac.machine, "AppleSmartBatteryPack"), nullptr);
}

// ---- faults

TEST(PropertiesFault, removeAProperty) {
  Bench mac;
  mac.property("DesignCapacity", PropertyFault::missing);
  EXPECT_FALSE(has(battery(mac), "DesignCapacity"));
  EXPECT_EQ(nested(battery(mac), "BatteryData", "DesignCapacity"), 4563);

  mac.property("BatteryData/DesignCapacity", PropertyFault::missing);
  EXPECT_FALSE(nested(battery(mac), "BatteryData", "DesignCapacity").has_value());
  EXPECT_EQ(nested(battery(mac), "BatteryData", "CycleCount"), 37);

  mac.property("DesignCapacity", PropertyFault::none);
  EXPECT_EQ(integer(battery(mac), "DesignCapacity"), 4563);
}

TEST(PropertiesFault, removeAWholeEntry) {
  Bench mac;
  mac.property("AppleSmartBattery", PropertyFault::text);
  EXPECT_NE(virtual_mac::entryProperties(mac.machine, "AppleSmartBattery"), nullptr);
  mac.property("AppleSmartBattery", PropertyFault::missing);
  EXPECT_EQ(virtual_mac::entryProperties(mac.machine, "AppleSmartBattery"), nullptr);
  EXPECT_NE(virtual_mac::entryProperties(mac.machine, "IOPMrootDomain"), nullptr);
  mac.property("AppleSmartBattery", PropertyFault::none);
  EXPECT_NE(virtual_mac::entryProperties(mac.machine, "AppleSmartBattery"), nullptr);
}

TEST(PropertiesFault, changeTheTypeOfANumber) {
  Bench mac({.plugged = false});
  const std::int64_t current = mac.machine.gauge.currentMA;
  ASSERT_LT(current, 0);

  mac.property("Amperage", PropertyFault::text);
  EXPECT_EQ(text(battery(mac), "Amperage"), std::to_string(current));
  mac.property("Amperage", PropertyFault::real);
  EXPECT_EQ(at(*battery(mac), "Amperage").asDouble(), static_cast<double>(current));
  mac.property("Amperage", PropertyFault::unsignedInteger);
  EXPECT_FALSE(at(*battery(mac), "Amperage").asInteger().has_value());  // 2^64 - n fits no signed number
  EXPECT_EQ(at(*battery(mac), "Amperage").asWrappedInteger(), current);
}

TEST(PropertiesFault, changeTheTypeOfOtherPropertiesIfPossible) {
  Bench mac;
  mac.property("BatteryInstalled", PropertyFault::text).property("BatteryData", PropertyFault::real);
  EXPECT_EQ(text(battery(mac), "BatteryInstalled"), "Yes");
  EXPECT_NE(at(*battery(mac), "BatteryData").asDictionary(), nullptr);
  mac.property("BatteryInstalled", PropertyFault::unsignedInteger)
      .property("BatteryData", PropertyFault::text);
  EXPECT_EQ(integer(battery(mac), "BatteryInstalled"), 1);
  EXPECT_EQ(at(*battery(mac), "BatteryData").asDictionary(), nullptr);
  mac.property("Nothing", PropertyFault::missing).property("Serial/Number", PropertyFault::missing);
  EXPECT_TRUE(has(battery(mac), "Serial"));
}

TEST(PropertiesFault, reachThePowerSourceAndTheRootDomainByTheirOwnNames) {
  Bench mac;
  mac.property("Current Capacity", PropertyFault::text)
      .property("System Capabilities", PropertyFault::missing);
  EXPECT_EQ(text(powerSourceList(mac.machine)->front(), "Current Capacity"), "70");
  EXPECT_FALSE(has(entryProperties(mac.machine, "IOPMrootDomain"), "System Capabilities"));
}

// ---- the root domain

TEST(PropertiesRootDomain, showsTheCapabilitiesOnlyWhileTheyAreReadable) {
  Bench mac;
  const auto domain = [&] { return entryProperties(mac.machine, "IOPMrootDomain"); };
  EXPECT_EQ(integer(domain(), "System Capabilities"), 15);
  mac.change(ChangeKind::capabilities, 9);
  EXPECT_EQ(integer(domain(), "System Capabilities"), 9);
  mac.change(ChangeKind::capabilities, 4294967295.0);
  EXPECT_EQ(integer(domain(), "System Capabilities"), 4294967295);
  mac.change(ChangeKind::capabilities, -1);
  EXPECT_FALSE(has(domain(), "System Capabilities"));
}

// ---- power sources

TEST(PropertiesPowerSource, describesTheInternalBatteryWhileItCharges) {
  Bench mac({.percent = 60});
  mac.pass(minute);
  const auto list = powerSourceList(mac.machine);
  ASSERT_EQ(list->size(), 1U);
  const SharedDictionary& source = list->front();
  EXPECT_EQ(text(source, "Name"), "InternalBattery-0");
  EXPECT_EQ(text(source, "Type"), "InternalBattery");
  EXPECT_EQ(text(source, "Transport Type"), "Internal");
  EXPECT_EQ(text(source, "Power Source State"), "AC Power");
  EXPECT_EQ(integer(source, "Current Capacity"), mac.machine.powerSource.percent);
  EXPECT_EQ(integer(source, "Max Capacity"), 100);
  EXPECT_EQ(flag(source, "Is Present"), true);
  EXPECT_EQ(flag(source, "Is Charging"), true);
  EXPECT_EQ(flag(source, "Is Charged"), false);
  EXPECT_EQ(flag(source, "Is Finishing Charge"), false);
  EXPECT_EQ(integer(source, "Time to Full Charge"), mac.machine.powerSource.minutes);
  EXPECT_EQ(integer(source, "Time to Empty"), 0);
  EXPECT_EQ(integer(source, "Current"), mac.machine.gauge.currentMA);
}

TEST(PropertiesPowerSource, describesItOnBatteryAndHeldAndFull) {
  Bench mac({.percent = 60, .plugged = false});
  mac.pass(minute);
  SharedDictionary source = powerSourceList(mac.machine)->front();
  EXPECT_EQ(text(source, "Power Source State"), "Battery Power");
  EXPECT_EQ(integer(source, "Time to Empty"), mac.machine.powerSource.minutes);
  EXPECT_EQ(integer(source, "Time to Full Charge"), 0);

  mac.write("CHTE", {1, 0, 0, 0});
  mac.change(ChangeKind::plug, 30).pass(minute);
  source = powerSourceList(mac.machine)->front();
  EXPECT_EQ(text(source, "Power Source State"), "AC Power");
  EXPECT_EQ(flag(source, "Is Charging"), false);
  EXPECT_EQ(integer(source, "Time to Empty"), 0);
  EXPECT_EQ(integer(source, "Time to Full Charge"), 0);

  source = powerSourceList(Bench({.percent = 100}).machine)->front();
  EXPECT_EQ(flag(source, "Is Charged"), true);
  EXPECT_EQ(flag(source, "Is Finishing Charge"), false);
}

TEST(PropertiesPowerSource, isFinishingChargeFrom99PercentOn) {
  for (const auto& [percent, finishing] : {std::pair{98, false}, std::pair{99, true}}) {
    Bench mac;
    mac.change(ChangeKind::charge, percent);
    EXPECT_EQ(flag(powerSourceList(mac.machine)->front(), "Is Finishing Charge"), finishing) << percent;
  }
}

TEST(PropertiesPowerSource, canBeMissingInSeveralWays) {
  Bench mac;
  const auto fault = [&](PowerSourceFault kind) {
    mac.change(ChangeKind::powerSources, static_cast<double>(kind));
    return powerSourceList(mac.machine);
  };
  EXPECT_EQ(fault(PowerSourceFault::noSnapshot), std::nullopt);
  EXPECT_TRUE(fault(PowerSourceFault::emptyList)->empty());

  const auto upsAlone = fault(PowerSourceFault::noInternalBattery);
  ASSERT_EQ(upsAlone->size(), 1U);
  EXPECT_EQ(text(upsAlone->front(), "Type"), "UPS");

  const auto upsFirst = fault(PowerSourceFault::upsFirst);
  ASSERT_EQ(upsFirst->size(), 2U);
  EXPECT_EQ(text(upsFirst->front(), "Type"), "UPS");
  EXPECT_EQ(text(upsFirst->back(), "Type"), "InternalBattery");

  EXPECT_EQ(fault(PowerSourceFault::none)->size(), 1U);
  mac.change(ChangeKind::batteryInstalled, 0);
  EXPECT_TRUE(powerSourceList(mac.machine)->empty());
}

// ---- reads are cheap while nothing is published

TEST(PropertiesMemory, returnsTheSameDictionaryUntilTheGaugePublishes) {
  Bench mac({.percent = 50});
  const SharedDictionary first = battery(mac);
  EXPECT_EQ(battery(mac.pass(59)), first);
  EXPECT_NE(battery(mac.pass(1)), first);
  EXPECT_EQ(integer(first, "UpdateTime"), 1772352000);  // a returned dictionary does not change
}

TEST(PropertiesMemory, doesNotConfuseTwoMachines) {
  Bench left({.percent = 50});
  Bench right({.percent = 60});
  EXPECT_EQ(integer(battery(left), "CurrentCapacity"), 50);
  EXPECT_EQ(integer(battery(right), "CurrentCapacity"), 60);
  EXPECT_EQ(integer(battery(left), "CurrentCapacity"), 50);
}

}  // namespace
}  // namespace brisko::test::properties_test
