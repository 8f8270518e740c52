#include "sim/dump_import/dump_import.h"

#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <set>
#include <string>

#include "sim/dump_import/read_dump.h"
#include "sim/machine/models.h"
#include "sim/machine/properties.h"
#include "support/testing.h"

namespace brisko::test::dump_import_test {
namespace {

using namespace virtual_mac;

std::string sample(const std::string& name) { return std::string(BRISKO_TEST_DATA) + "/dumps/" + name; }

Machine imported(const std::string& path, const MachineOptions& options = {}) {
  std::string reason;
  const auto machine = machineFromDumpFile(path, options, reason);
  EXPECT_TRUE(machine.has_value()) << reason;
  return machine.value_or(Machine{});
}

std::string refusal(const std::string& path) {
  std::string reason;
  EXPECT_FALSE(machineFromDumpFile(path, {}, reason).has_value());
  return reason;
}

std::string refusalOf(std::string_view json) {
  std::string reason;
  const auto dump = readDump(json, reason);
  if (dump) {
    EXPECT_FALSE(machineFromDump(*dump, nullptr, {}, reason).has_value());
  }
  return reason;
}

Machine fromJson(std::string_view json) {
  std::string reason;
  const auto dump = readDump(json, reason);
  EXPECT_TRUE(dump.has_value()) << reason;
  const auto machine = machineFromDump(dump.value_or(platform::Dictionary{}), nullptr, {}, reason);
  EXPECT_TRUE(machine.has_value()) << reason;
  return machine.value_or(Machine{});
}

// Whether any property of the entry, nested ones included, has this text.
bool mentions(const platform::Value& value, const std::string& text) {
  if (const std::string* found = value.asText()) return *found == text;
  if (const platform::Dictionary* inner = value.asDictionary()) {
    for (const auto& [key, element] : *inner) {
      if (mentions(element, text)) return true;
    }
  }
  return false;
}

TEST(DumpImport, importsAMacOnBatteryFromAPropertyList) {
  const Machine machine = imported(sample("air-on-battery.plist"));
  EXPECT_EQ(machine.gauge.percent, 75);
  EXPECT_EQ(std::round(level(machine)), 75);
  EXPECT_EQ(machine.battery.chargeMAh, 2940);
  EXPECT_EQ(machine.battery.fullMAh, 4000);
  EXPECT_EQ(machine.battery.designMAh, 4563);
  EXPECT_EQ(machine.battery.reserveMAh, 127);
  EXPECT_EQ(machine.battery.cycles, 301);
  EXPECT_NEAR(machine.battery.shownFull, 0.98, 1e-9);
  EXPECT_EQ(machine.battery.temperatureC, 30.21);
  EXPECT_FALSE(machine.adapter.present);
  EXPECT_FALSE(machine.powerSource.onAdapter);
  EXPECT_EQ(machine.powerSource.minutes, 288);
  EXPECT_EQ(machine.gauge.currentMA, -612);
  EXPECT_EQ(machine.gauge.voltageMV, 12101);
  EXPECT_NEAR(machine.surroundings.loadWatts, 0.612 * 12.101, 1e-9);
  EXPECT_EQ(machine.layout, RegistryLayout::flat);
  EXPECT_EQ(machine.system.macOS, 26);
}

TEST(DumpImport, importsAChargingMacInTheNestedLayoutWithItsPack) {
  const Machine machine = imported(sample("air-charging.json"));
  EXPECT_EQ(machine.gauge.percent, 40);
  EXPECT_EQ(machine.battery.chargeMAh, 1694);
  EXPECT_EQ(machine.battery.fullMAh, 4400);
  EXPECT_EQ(machine.battery.reserveMAh, 127);
  EXPECT_EQ(machine.battery.temperatureC, 33.44);  // the pack's
  EXPECT_TRUE(machine.adapter.present);
  EXPECT_EQ(machine.adapter.watts, 30);
  EXPECT_EQ(machine.surroundings.loadWatts, 4.1);
  EXPECT_TRUE(machine.powerSource.charging);
  EXPECT_EQ(machine.powerSource.minutes, 151);
  EXPECT_EQ(machine.gauge.currentMA, 2010);
  EXPECT_EQ(machine.layout, RegistryLayout::nested);
  EXPECT_EQ(machine.system.macOS, 27);
}

TEST(DumpImport, startsAtTheTimeOfTheDump) {
  Machine machine = imported(sample("air-charging.json"), {.startTime = 1772352000});
  EXPECT_EQ(machine.now, 1772352000);
  advance(machine, machine.now + 600);
  EXPECT_NEAR(static_cast<double>(machine.gauge.currentMA), 2010, 60);
  EXPECT_EQ(machine.gauge.percent, 48);
}

TEST(DumpImport, usesTheKeysAndTheVersionOfTheOptions) {
  const Machine machine =
      imported(sample("air-on-battery.plist"), {.gate = GateKind::ch0b0c, .cut = CutKind::ch0j, .macOS = 15});
  EXPECT_TRUE(findKey(machine, keyCode("CH0B"))->present);
  EXPECT_FALSE(findKey(machine, keyCode("CHTE"))->present);
  EXPECT_TRUE(findKey(machine, keyCode("CH0J"))->present);
  EXPECT_EQ(machine.system.macOS, 15);
  EXPECT_EQ(imported(sample("air-charging.json"), {.macOS = 28}).system.macOS, 28);
}

TEST(DumpImport, importsNoSerialNumbers) {
  for (const char* name : {"air-on-battery.plist", "air-charging.json"}) {
    const Machine machine = imported(sample(name));
    for (const char* entry : {"AppleSmartBattery", "AppleSmartBatteryPack"}) {
      const auto properties = entryProperties(machine, entry);
      const bool found = properties && mentions(platform::Value(properties), "THIS-IS-A-SERIAL");
      EXPECT_FALSE(found) << entry;
    }
    EXPECT_EQ(textOf(machine.model), "MacBook, 4563 mAh");
  }
}

TEST(DumpImport, showsThePercentageOfTheDumpEvenWhenItsChargeDiffers) {
  const Machine machine = fromJson(
      R"({"CurrentCapacity":80,"MaxCapacity":100,"AppleRawCurrentCapacity":500,"AppleRawMaxCapacity":5000})");
  EXPECT_EQ(machine.gauge.percent, 80);
  EXPECT_EQ(std::round(level(machine)), 80);
}

TEST(DumpImport, needsOnlyAFewValues) {
  const Machine machine = fromJson(R"({"CurrentCapacity":50,"MaxCapacity":100,"AppleRawMaxCapacity":6000})");
  EXPECT_EQ(machine.battery.fullMAh, 6000);
  EXPECT_EQ(machine.battery.designMAh, 6000);
  EXPECT_EQ(machine.battery.maxChargeMA, findModel("pro14")->maxChargeMA);
  EXPECT_EQ(std::round(level(machine)), 50);
  EXPECT_FALSE(machine.adapter.present);
}

TEST(DumpImport, rejectsImpossibleNumbers) {
  const Machine machine = fromJson(
      R"({"CurrentCapacity":50,"MaxCapacity":100,"AppleRawMaxCapacity":6000,"DesignCapacity":-1,
          "AppleRawCurrentCapacity":1e300,"Temperature":9e9,"CycleCount":-5,"Amperage":18446744073709551133,
          "Voltage":"high","AdapterDetails":{"Watts":1e9},"ExternalConnected":1})");
  EXPECT_EQ(machine.battery.designMAh, 6000);
  EXPECT_EQ(machine.battery.cycles, 0);
  EXPECT_EQ(machine.gauge.currentMA, -483);
  EXPECT_LT(machine.battery.temperatureC, 60);
  EXPECT_EQ(machine.adapter.watts, findModel("pro14")->adapterWatts);
}

TEST(DumpImport, reportsWhatIsWrongWithAFile) {
  EXPECT_EQ(refusal(sample("absent.json")), sample("absent.json") + ": cannot be read");
  EXPECT_THAT(refusal(sample("listing.txt")), HasSubstr("neither a property list nor JSON"));
  EXPECT_THAT(refusal(sample("settings.json")), HasSubstr("not the properties of AppleSmartBattery"));
  EXPECT_THAT(refusal(sample("air-charging.pack.json")),
              HasSubstr("not the properties of AppleSmartBattery"));
  EXPECT_THAT(refusal(sample("desktop.json")), HasSubstr("this Mac has no battery"));
  EXPECT_EQ(refusal(BRISKO_TEST_DATA), std::string(BRISKO_TEST_DATA) + ": cannot be read");
}

TEST(DumpImport, reportsWhatIsWrongWithItsContent) {
  EXPECT_THAT(refusalOf(""), HasSubstr("neither"));
  EXPECT_THAT(refusalOf("{\"CurrentCapacity\":"), HasSubstr("neither"));
  EXPECT_THAT(refusalOf("[]"), HasSubstr("not a dictionary"));
  EXPECT_THAT(refusalOf("[1]"), HasSubstr("not a dictionary"));
  EXPECT_THAT(refusalOf("<plist><integer>1</integer></plist>"), HasSubstr("not a dictionary"));
  EXPECT_THAT(refusalOf(R"({"CurrentCapacity":50})"), HasSubstr("not the properties"));
  EXPECT_THAT(refusalOf(R"({"CurrentCapacity":50,"MaxCapacity":100,"BatteryInstalled":0})"),
              HasSubstr("no battery"));
  EXPECT_THAT(refusalOf(R"({"CurrentCapacity":4000,"MaxCapacity":5000})"), HasSubstr("not a percentage"));
  EXPECT_THAT(refusalOf(R"({"CurrentCapacity":101,"MaxCapacity":100})"), HasSubstr("not a percentage"));
  EXPECT_THAT(refusalOf(R"({"CurrentCapacity":50,"MaxCapacity":100})"), HasSubstr("the battery's capacity"));
}

TEST(DumpImport, leavesOutAKeyWithAZeroByte) {
  // {"A\0": 6} as a binary property list: the objects, their offsets, and the trailer. The key is UTF-16.
  std::string binary = {'b', 'p', 'l',    'i', 's', 't', '0', '0',    '\xD1',
                        1,   2,   '\x62', 0,   'A', 0,   0,   '\x10', 6};
  binary += std::string{8, 11, 16} + std::string(6, '\0') + std::string{1, 1};
  for (const char number : std::string{3, 0, 18}) binary += std::string(7, '\0') + number;
  std::string reason;
  const auto dump = readDump(binary, reason);
  ASSERT_TRUE(dump) << reason;
  EXPECT_TRUE(dump->empty());
}

TEST(DumpImport, survivesDeepNesting) {
  std::string deep(20000, '[');
  EXPECT_THAT(refusalOf(deep + std::string(20000, ']')), HasSubstr("not a dictionary"));

  std::string arrays = "<plist>";
  for (int level = 0; level < 20000; ++level) arrays += "<array>";
  for (int level = 0; level < 20000; ++level) arrays += "</array>";
  EXPECT_THAT(refusalOf(arrays + "</plist>"), HasSubstr("not a dictionary"));
}

// Dumps of real Macs, which the project does not ship: read from the folder that BRISKO_DUMPS names.
TEST(DumpImport, importsEveryRealDump) {
  const char* folder = std::getenv("BRISKO_DUMPS");
  if (folder == nullptr) GTEST_SKIP() << "BRISKO_DUMPS names no folder";
  int taken = 0;
  for (const auto& entry : std::filesystem::directory_iterator(folder)) {
    const std::string path = entry.path().string();
    if (!path.ends_with(".json") && !path.ends_with(".plist")) continue;
    if (path.ends_with(".pack.json")) continue;
    SCOPED_TRACE(path);
    if (path.find("no-battery") != std::string::npos) {
      EXPECT_THAT(refusal(path), HasSubstr("this Mac has no battery"));
      continue;
    }
    Machine machine = imported(path);
    const platform::Dictionary& shown = *entryProperties(machine, "AppleSmartBattery");
    EXPECT_EQ(find(shown, "CurrentCapacity")->asInteger(), machine.gauge.percent);
    EXPECT_EQ(std::round(level(machine)), static_cast<double>(machine.gauge.percent));
    EXPECT_GT(machine.battery.designMAh, 4000);
    EXPECT_GT(machine.battery.shownFull, 0.94);
    EXPECT_GT(machine.battery.temperatureC, 25);
    EXPECT_EQ(machine.layout == RegistryLayout::nested, path.find("macos27") != std::string::npos);
    advance(machine, machine.now + 3600);
    EXPECT_GE(level(machine), 0);
    EXPECT_LE(level(machine), 100);
    ++taken;
  }
  EXPECT_GT(taken, 0);
}

}  // namespace
}  // namespace brisko::test::dump_import_test
