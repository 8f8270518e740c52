// What the daemon does if the private class of macOS's own limit has changed.

#include "platform/smart_charge_client.h"

#include <csignal>
#include <string>

#include "fakes/smart_charge.h"
#include "hardware/smart_charge_bridge.h"
#include "platform/macos/smart_charge_calls.h"
#include "support/testing.h"
#include "support/virtual_mac.h"

namespace brisko::platform::smart_charge_client_test {
namespace {

using namespace test;
using fakes::missingSelectors;
using fakes::raisingSelectors;

class MacSmartCharge : public ::testing::Test {
 protected:
  [[nodiscard]] virtual_mac::LimitCalls calls() const { return mac.machine().limit.calls; }

  test::VirtualMac mac{{.macOS = 27}};
};

// The results of the four calls to a working client: supported, not enabled, no limit, set.
struct Answers {
  std::int32_t supported = 1;
  std::int32_t enabled = 0;
  std::int32_t limit = 100;
  std::int32_t set = 1;
  bool operator==(const Answers&) const = default;
};

std::ostream& operator<<(std::ostream& stream, const Answers& answers) {
  return stream << answers.supported << ' ' << answers.enabled << ' ' << answers.limit << ' ' << answers.set;
}

Answers answers() {
  Answers given;
  given.supported = CKMCLSupported();
  given.enabled = CKMCLEnabled();
  given.limit = CKMCLLimit();
  given.set = CKMCLSetLimit(85);
  return given;
}

constexpr Answers noClient{-1, -1, -1, -1};

struct Trouble {
  const char* selector;
  Answers missing;
  Answers raising;
};

class MacSmartChargeTrouble : public MacSmartCharge, public ::testing::WithParamInterface<Trouble> {};

TEST_P(MacSmartChargeTrouble, affectsOneFunctionIfAMessageIsMissing) {
  missingSelectors() = {GetParam().selector};
  EXPECT_EQ(answers(), GetParam().missing);
}

TEST_P(MacSmartChargeTrouble, affectsOneFunctionIfAMessageRaises) {
  raisingSelectors() = {GetParam().selector};
  EXPECT_EQ(answers(), GetParam().raising);
}

INSTANTIATE_TEST_SUITE_P(Messages, MacSmartChargeTrouble,
                         ::testing::Values(Trouble{"initWithClientName:", noClient, noClient},
                                           Trouble{"isMCLSupported", {.supported = -1}, {.supported = -1}},
                                           Trouble{
                                               "isMCLCurrentlyEnabled:", {.enabled = -1}, {.enabled = -1}},
                                           Trouble{"getMCLLimitWithError:", {.limit = -1}, {.limit = -1}},
                                           Trouble{"setMCLLimit:error:", noClient, {.set = -1}}),
                         [](const auto& trouble) {
                           const std::string selector = trouble.param.selector;
                           return selector.substr(0, selector.find(':'));
                         });

TEST_F(MacSmartCharge, worksIfNothingIsMissing) { EXPECT_EQ(answers(), Answers{}); }

TEST_F(MacSmartCharge, needsOnlyTheMessageThatSetsALimit) {
  missingSelectors() = {"initWithClientName:", "isMCLSupported",
                        "isMCLCurrentlyEnabled:", "getMCLLimitWithError:"};
  EXPECT_TRUE(smartChargeClassPresent());
  missingSelectors() = {"setMCLLimit:error:"};
  EXPECT_FALSE(smartChargeClassPresent());
}

TEST_F(MacSmartCharge, isCreatedOnceAlsoIfThatRaises) {
  raisingSelectors() = {"initWithClientName:"};
  EXPECT_EQ(answers(), noClient);
  raisingSelectors() = {};
  EXPECT_EQ(answers(), noClient);
  EXPECT_EQ(calls().loads, 1U);
  EXPECT_EQ(calls().clients, 0U);
}

TEST_F(MacSmartCharge, answersAgainOnceItNoLongerRaises) {
  raisingSelectors() = {"getMCLLimitWithError:"};
  EXPECT_EQ(CKMCLLimit(), -1);
  raisingSelectors() = {};
  EXPECT_EQ(CKMCLLimit(), 100);
}

// The fake ends a process that does not check first.
TEST(MacSmartChargeDeathTest, getsNoMessageThatItDoesNotUnderstand) {
  const test::VirtualMac mac({.macOS = 27});
  ASSERT_TRUE(makeSmartChargeClient("somebody"));
  missingSelectors() = {"isMCLSupported"};
  EXPECT_EXIT((void)smart_charge::isMCLSupported(), KilledBySignal(SIGABRT),
              "isMCLSupported is not understood");
}

}  // namespace
}  // namespace brisko::platform::smart_charge_client_test
