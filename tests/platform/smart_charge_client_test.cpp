// The contract of platform/smart_charge_client.h.

#include "platform/smart_charge_client.h"

#include "platform/clock.h"
#include "platform/preferences.h"
#include "sim/machine/charge_limit.h"
#include "support/contract_machine.h"
#include "support/testing.h"

namespace brisko::platform::smart_charge_client_test {
namespace {

using namespace test;
using virtual_mac::ChangeKind;
using virtual_mac::LimitAnswer;
using virtual_mac::LimitCalls;
using virtual_mac::LimitClient;

class SmartChargeContract : public ::testing::Test {
 protected:
  void answers(LimitAnswer answer) {
    mac.change({.kind = ChangeKind::limitSetAnswer, .number = static_cast<double>(answer)});
  }
  [[nodiscard]] LimitCalls calls() const { return mac.record().limit.calls; }

  ContractMachine mac{{.macOS = 27}};
};

TEST_F(SmartChargeContract, isNotLoadedBeforeItIsUsed) {
  EXPECT_EQ(calls().loads, 0U);
  EXPECT_TRUE(smartChargeClassPresent());
  EXPECT_EQ(calls().loads, 1U);
  EXPECT_EQ(calls().clients, 0U);
}

TEST_F(SmartChargeContract, keepsOneClient) {
  EXPECT_TRUE(makeSmartChargeClient("somebody"));
  EXPECT_EQ(calls().loads, 1U);
  EXPECT_EQ(calls().clients, 1U);
  mac.change({.kind = ChangeKind::limitClient, .number = static_cast<double>(LimitClient::noClass)});
  EXPECT_TRUE(makeSmartChargeClient("somebody"));
  EXPECT_EQ(calls().loads, 1U);
  EXPECT_EQ(calls().clients, 1U);
}

TEST_F(SmartChargeContract, staysWithoutAClientIfThereWasNone) {
  mac.change({.kind = ChangeKind::limitClient, .number = static_cast<double>(LimitClient::noSelector)});
  EXPECT_FALSE(makeSmartChargeClient("somebody"));
  mac.change({.kind = ChangeKind::limitClient, .number = static_cast<double>(LimitClient::offered)});
  EXPECT_FALSE(makeSmartChargeClient("somebody"));
  EXPECT_EQ(calls().loads, 1U);
  EXPECT_EQ(calls().clients, 0U);
}

TEST_F(SmartChargeContract, isAbsentForThreeReasons) {
  for (const LimitClient absence :
       {LimitClient::noFramework, LimitClient::noClass, LimitClient::noSelector}) {
    mac.change({.kind = ChangeKind::limitClient, .number = static_cast<double>(absence)});
    EXPECT_FALSE(smartChargeClassPresent());
  }
  EXPECT_EQ(calls().loads, 3U);
}

TEST_F(SmartChargeContract, storesALimitAndReportsIt) {
  ASSERT_TRUE(makeSmartChargeClient("somebody"));
  EXPECT_EQ(smartChargeLimitSupported(), true);
  EXPECT_EQ(smartChargeLimitEnabled(), false);
  EXPECT_EQ(setSmartChargeLimit(85), true);
  EXPECT_EQ(smartChargeLimitEnabled(), true);
  EXPECT_EQ(smartChargeLimit(), 85);
  EXPECT_EQ(preference(virtual_mac::limitDomain, "MCLFeatureState")->asInteger(), 1);
  EXPECT_EQ(preference(virtual_mac::limitDomain, "mclLimitValue")->asInteger(), 85);
  pause(10);
  (void)smartChargeLimit();  // advances the machine to the present
  EXPECT_EQ(virtual_mac::enforcedLimit(mac.record()), 85);
}

TEST_F(SmartChargeContract, refusesWhatTheSliderDoesNotOffer) {
  ASSERT_TRUE(makeSmartChargeClient("somebody"));
  EXPECT_EQ(setSmartChargeLimit(75), false);
  EXPECT_EQ(setSmartChargeLimit(82), false);
  EXPECT_EQ(setSmartChargeLimit(105), false);
  EXPECT_EQ(calls().sets, 3U);
  EXPECT_EQ(smartChargeLimitEnabled(), false);
}

TEST_F(SmartChargeContract, reportsAnErrorWhenTheLimitIsSetAsARefusal) {
  ASSERT_TRUE(makeSmartChargeClient("somebody"));
  answers(LimitAnswer::no);
  EXPECT_EQ(setSmartChargeLimit(80), false);
  answers(LimitAnswer::error);
  EXPECT_EQ(setSmartChargeLimit(80), false);
  answers(LimitAnswer::takes);
  EXPECT_EQ(setSmartChargeLimit(80), true);
}

TEST_F(SmartChargeContract, returnsNothingWhileTheServiceDoesNotAnswer) {
  ASSERT_TRUE(makeSmartChargeClient("somebody"));
  mac.change({.kind = ChangeKind::limitEnabledFails, .number = 1});
  mac.change({.kind = ChangeKind::limitValueFails, .number = 1});
  EXPECT_EQ(smartChargeLimitEnabled(), std::nullopt);
  EXPECT_EQ(smartChargeLimit(), std::nullopt);
  mac.change({.kind = ChangeKind::limitEnabledFails, .number = 0});
  mac.change({.kind = ChangeKind::limitValueFails, .number = 0});
  EXPECT_EQ(smartChargeLimitEnabled(), false);
  EXPECT_EQ(smartChargeLimit(), 100);
}

TEST_F(SmartChargeContract, isSupportedFromAGivenUptimeOn) {
  ASSERT_TRUE(makeSmartChargeClient("somebody"));
  mac.change({.kind = ChangeKind::limitSupportedAfter, .number = uptime() + 60});
  EXPECT_EQ(smartChargeLimitSupported(), false);
  pause(61);
  EXPECT_EQ(smartChargeLimitSupported(), true);
}

TEST(SmartChargeBeforeLimit, isAbsent) {
  const ContractMachine mac({.macOS = 25});
  EXPECT_FALSE(smartChargeClassPresent());
  EXPECT_FALSE(makeSmartChargeClient("somebody"));
}

TEST(SmartChargeWithoutLimit, isAbsent) {
  const ContractMachine mac({.macOS = 27, .chargeLimit = false});
  EXPECT_FALSE(smartChargeClassPresent());
  EXPECT_FALSE(makeSmartChargeClient("somebody"));
  EXPECT_EQ(mac.record().limit.calls.loads, 2U);
}

TEST(SmartChargeWithoutAMachine, isAbsent) {
  EXPECT_FALSE(smartChargeClassPresent());
  EXPECT_FALSE(makeSmartChargeClient("somebody"));
  EXPECT_EQ(smartChargeLimitSupported(), std::nullopt);
  EXPECT_EQ(smartChargeLimitEnabled(), std::nullopt);
  EXPECT_EQ(smartChargeLimit(), std::nullopt);
  EXPECT_EQ(setSmartChargeLimit(80), std::nullopt);
}

}  // namespace
}  // namespace brisko::platform::smart_charge_client_test
