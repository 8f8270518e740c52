#include "policy/maintenance_wake.h"

#include "support/testing.h"

namespace brisko::maintenance_wake_test {
namespace {

constexpr WakeDecision nothing{};
constexpr WakeDecision discharges{.dischargeNow = true};
constexpr WakeDecision waitsAndLogsIt{.logWait = true, .waitLogged = true};
constexpr WakeDecision waits{.waitLogged = true};

constexpr WakeInputs at(std::int64_t pct, bool full) {
  return {.full = full, .dischargeOn = true, .pct = pct, .target = 80};
}

TEST(FullWake, allowsARequestedDischargeAndEndsTheWait) {
  for (const bool logged : {false, true}) {
    WakeInputs inputs = at(90, true);
    inputs.waitLogged = logged;
    EXPECT_EQ(decideWake(inputs), discharges);
    inputs.dischargeOn = false;
    EXPECT_EQ(decideWake(inputs), nothing);
  }
}

TEST(MaintenanceWake, delaysARequestedDischargeAndLogsItOnce) {
  WakeInputs inputs = at(90, false);
  EXPECT_EQ(decideWake(inputs), waitsAndLogsIt);
  inputs.waitLogged = true;
  EXPECT_EQ(decideWake(inputs), waits);
}

TEST(MaintenanceWake, delaysNothingAtTheTargetOrWithoutARequest) {
  EXPECT_EQ(decideWake(at(81, false)), waitsAndLogsIt);
  EXPECT_EQ(decideWake(at(80, false)), nothing);
  WakeInputs unwanted = at(90, false);
  unwanted.dischargeOn = false;
  EXPECT_EQ(decideWake(unwanted), nothing);
}

TEST(MaintenanceWake, logsNoSecondLineAfterATickWithNothingToDelay) {
  WakeInputs inputs = at(80, false);
  inputs.waitLogged = true;
  EXPECT_EQ(decideWake(inputs), waits);
}

}  // namespace
}  // namespace brisko::maintenance_wake_test
