#include "records/statistics.h"

#include <gtest/gtest.h>

#include "platform/clock.h"
#include "policy/charge_state_record.h"
#include "support/on_virtual_mac.h"

namespace brisko {
namespace {

class ProtectedTime : public test::OnVirtualMac {
 protected:
  void SetUp() override {
    openController();
    gLastStatsTick = platform::wallNow();
    gState = ChargeState::hold;
  }
  void tickAfter(double seconds) {
    mac.pass(seconds);
    statisticsTick();
  }
};

TEST_F(ProtectedTime, addsUpWhileHolding) {
  tickAfter(20);
  tickAfter(20);
  EXPECT_DOUBLE_EQ(gProtectedSeconds, 40);
}

TEST_F(ProtectedTime, countsADischargeToo) {
  gState = ChargeState::discharge;
  tickAfter(20);
  EXPECT_DOUBLE_EQ(gProtectedSeconds, 20);
}

TEST_F(ProtectedTime, countsAtMostAMinuteATick) {
  tickAfter(60);
  EXPECT_DOUBLE_EQ(gProtectedSeconds, 60);
  tickAfter(61);
  EXPECT_DOUBLE_EQ(gProtectedSeconds, 120);
  tickAfter(600);
  EXPECT_DOUBLE_EQ(gProtectedSeconds, 180);
}

TEST_F(ProtectedTime, takesTimeAwayWhenTheClockIsSetBack) {
  gProtectedSeconds = 100;
  mac.number(virtual_mac::ChangeKind::clockStep, -30);
  statisticsTick();
  EXPECT_DOUBLE_EQ(gProtectedSeconds, 70);
}

TEST_F(ProtectedTime, standsStillWhileChargingIsAllowed) {
  gState = ChargeState::allow;
  tickAfter(20);
  EXPECT_DOUBLE_EQ(gProtectedSeconds, 0);
  // The time goes by all the same: it is not added later.
  gState = ChargeState::hold;
  tickAfter(20);
  EXPECT_DOUBLE_EQ(gProtectedSeconds, 20);
}

TEST_F(ProtectedTime, standsStillWithoutAnAdapter) {
  mac.unplug();
  tickAfter(20);
  EXPECT_DOUBLE_EQ(gProtectedSeconds, 0);
}

}  // namespace
}  // namespace brisko
