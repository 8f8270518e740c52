// The contracts of platform/power_sources.h and platform/registry.h.

#include "platform/power_sources.h"

#include <string>

#include "platform/clock.h"
#include "platform/registry.h"
#include "platform/run_loop.h"
#include "support/contract_machine.h"
#include "support/testing.h"

namespace brisko::platform::power_sources_test {
namespace {

using namespace test;
using virtual_mac::ChangeKind;

// "Power Source State" of the internal battery; "" without one.
std::string publishedState() {
  const auto sources = powerSources();
  if (!sources) return "";
  for (const SharedDictionary& source : *sources) {
    const Value* type = find(*source, "Type");
    const Value* state = find(*source, "Power Source State");
    if (type == nullptr || type->asText() == nullptr || *type->asText() != "InternalBattery") continue;
    if (state != nullptr && state->asText() != nullptr) return *state->asText();
  }
  return "";
}

TEST(PowerSourcesContract, describeTheInternalBattery) {
  const ContractMachine mac({.percent = 55});
  const auto sources = powerSources();
  ASSERT_TRUE(sources.has_value());
  ASSERT_EQ(sources->size(), 1U);
  const Value* current = find(*sources->front(), "Current Capacity");
  ASSERT_NE(current, nullptr);
  EXPECT_EQ(current->asInteger(), 55);
  EXPECT_EQ(publishedState(), "AC Power");
}

TEST(PowerSourcesContract, followTheAdapter) {
  ContractMachine mac;
  mac.change({.kind = ChangeKind::unplug});
  pause(2);
  EXPECT_EQ(publishedState(), "Battery Power");
}

TEST(PowerSourcesContract, reportAChangeOnceItCanBeRead) {
  ContractMachine mac;
  std::string state;
  ASSERT_TRUE(addPowerSourceNotification([&] {
    state = publishedState();
    if (state == "Battery Power") stopMain();
  }));
  mac.later(30, {.kind = ChangeKind::unplug});
  postMainAfter(600, [] { stopMain(); });
  runMain();
  EXPECT_EQ(state, "Battery Power");
}

TEST(PowerSourcesContract, reportAnEarlierChangeOnlyInTheLoop) {
  ContractMachine mac;
  int told = 0;
  ASSERT_TRUE(addPowerSourceNotification([&] {
    ++told;
    stopMain();
  }));
  mac.change({.kind = ChangeKind::unplug});
  pause(2);
  EXPECT_EQ(told, 0);
  postMainAfter(600, [] { stopMain(); });
  runMain();
  EXPECT_EQ(told, 1);
}

TEST(PowerSourcesContract, reportAChangeEvenIfAPieceOfWorkHasReadIt) {
  ContractMachine mac;
  std::string trace;
  ASSERT_TRUE(addPowerSourceNotification([&] {
    trace += "told";
    stopMain();
  }));
  postMainAfter(5, [&] {
    mac.later(1, {.kind = ChangeKind::unplug});
    pause(20);
    trace += publishedState() + ", ";
  });
  postMainAfter(600, [&] {
    trace += "much later";
    stopMain();
  });
  runMain();
  EXPECT_EQ(trace, "Battery Power, told");
}

TEST(PowerSourcesContract, reportToEveryListener) {
  ContractMachine mac;
  int first = 0;
  int second = 0;
  ASSERT_TRUE(addPowerSourceNotification([&] { ++first; }));
  ASSERT_TRUE(addPowerSourceNotification([&] {
    ++second;
    stopMain();
  }));
  mac.later(5, {.kind = ChangeKind::unplug});
  postMainAfter(600, [] { stopMain(); });
  runMain();
  EXPECT_EQ(first, 1);
  EXPECT_EQ(second, 1);
}

TEST(PowerSourcesContract, areMissingWithoutAMachine) {
  EXPECT_FALSE(powerSources().has_value());
  EXPECT_FALSE(addPowerSourceNotification([] {}));
}

TEST(RegistryContract, showsAllPropertiesOfTheBattery) {
  const ContractMachine mac;
  const SharedDictionary properties = registryProperties("AppleSmartBattery");
  ASSERT_NE(properties, nullptr);
  const Value* cycles = find(*properties, "CycleCount");
  ASSERT_NE(cycles, nullptr);
  EXPECT_EQ(cycles->asInteger(), mac.record().battery.cycles);
}

TEST(RegistryContract, showsOneProperty) {
  const ContractMachine mac;
  const auto capabilities = registryProperty("IOPMrootDomain", "System Capabilities");
  ASSERT_TRUE(capabilities.has_value());
  ASSERT_TRUE(capabilities->asInteger().has_value());
  EXPECT_NE(*capabilities->asInteger() & 2, 0) << "on an awake Mac the display can be on";
}

TEST(RegistryContract, isEmptyForAnUnknownName) {
  const ContractMachine mac;
  EXPECT_EQ(registryProperties("NoSuchService"), nullptr);
  EXPECT_FALSE(registryProperty("NoSuchService", "CycleCount").has_value());
  EXPECT_FALSE(registryProperty("AppleSmartBattery", "No Such Property").has_value());
}

TEST(RegistryContract, isEmptyWithoutAMachine) {
  EXPECT_EQ(registryProperties("AppleSmartBattery"), nullptr);
  EXPECT_FALSE(registryProperty("IOPMrootDomain", "System Capabilities").has_value());
}

}  // namespace
}  // namespace brisko::platform::power_sources_test
