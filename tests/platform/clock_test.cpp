// The contract of platform/clock.h.

#include "platform/clock.h"

#include <csignal>

#include "support/contract_machine.h"
#include "support/testing.h"

namespace brisko::platform::clock_test {
namespace {

using namespace test;
using virtual_mac::ChangeKind;

// Exactly `expected` in virtual time, otherwise not earlier.
void expectTime(double time, double expected) {
  if (ContractMachine::timeIsExact()) {
    EXPECT_DOUBLE_EQ(time, expected);
  } else {
    EXPECT_GE(time, expected);
  }
}

TEST(ClockContract, beginsWithTheMachine) {
  const ContractMachine mac({.startTime = 1'772'352'000, .uptime = 250});
  expectTime(wallNow(), 1'772'352'000);
  expectTime(uptime(), 250);
}

TEST(ClockContract, advancesDuringAPauseByItsLength) {
  const ContractMachine mac;
  const double wallBefore = wallNow();
  const double uptimeBefore = uptime();
  pause(3);
  expectTime(wallNow(), wallBefore + 3);
  expectTime(uptime(), uptimeBefore + 3);
}

TEST(ClockContract, hasFractionsOfASecond) {
  const ContractMachine mac;
  const double before = uptime();
  pause(0.25);
  EXPECT_GE(uptime(), before + 0.25);
  if (ContractMachine::timeIsExact()) {
    EXPECT_LT(uptime(), before + 0.26);
  }
}

TEST(ClockContract, doesNotPauseForZeroSeconds) {
  const ContractMachine mac;
  const double before = uptime();
  pause(0);
  expectTime(uptime(), before);
}

TEST(ClockContract, uptimeNeverStepsBack) {
  const ContractMachine mac;
  double latest = uptime();
  for (int time = 0; time < 2000; ++time) {
    const double now = uptime();
    ASSERT_GE(now, latest);
    latest = now;
  }
}

TEST(ClockContract, onlyTheWallClockStepsBackWhenItIsSet) {
  ContractMachine mac;
  const double wallBefore = wallNow();
  const double uptimeBefore = uptime();
  mac.change({.kind = ChangeKind::clockStep, .number = -86'400});
  EXPECT_LT(wallNow(), wallBefore - 3600);
  expectTime(wallNow(), wallBefore - 86'400);
  expectTime(uptime(), uptimeBefore);
}

TEST(ClockContract, aClockThatIsSetDuringAPauseIsSetAfterIt) {
  ContractMachine mac;
  const double before = wallNow();
  mac.later(2, {.kind = ChangeKind::clockStep, .number = 86'400});
  pause(5);
  expectTime(wallNow(), before + 86'400 + 5);
}

TEST(ClockContractDeathTest, aSignalWithoutAHandlerEndsAPause) {
  ContractMachine mac;
  mac.later(2, {.kind = ChangeKind::signal, .number = SIGTERM});
  EXPECT_EXIT(pause(60), ::testing::KilledBySignal(SIGTERM), "");
}

}  // namespace
}  // namespace brisko::platform::clock_test
