#include "records/statistics.h"

#include <cmath>
#include <csignal>
#include <filesystem>

#include "base/paths.h"
#include "base/process_flags.h"
#include "platform/clock.h"
#include "state/charge_state_record.h"
#include "state/native_limit_state.h"
#include "state/tick_state.h"
#include "support/child.h"
#include "support/files.h"
#include "support/on_virtual_mac.h"
#include "support/testing.h"

namespace brisko::statistics_test {
namespace {

using namespace test;

constexpr const char* folder = "/Library/Application Support/Brisko";

class ProtectedTime : public test::OnVirtualMac {
 protected:
  void SetUp() override {
    openController();
    gLastStatsTick = platform::wallNow();
    gState = ChargeState::hold;
    std::filesystem::create_directories(mac.path(folder));
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

TEST_F(ProtectedTime, countsAtMostAMinutePerTick) {
  tickAfter(60);
  EXPECT_DOUBLE_EQ(gProtectedSeconds, 60);
  tickAfter(61);
  EXPECT_DOUBLE_EQ(gProtectedSeconds, 120);
  tickAfter(3600);  // a sleep of an hour
  EXPECT_DOUBLE_EQ(gProtectedSeconds, 180);
}

TEST_F(ProtectedTime, subtractsTimeWhenTheClockIsSetBack) {
  gProtectedSeconds = 100;
  mac.number(virtual_mac::ChangeKind::clockStep, -30);
  statisticsTick();
  EXPECT_DOUBLE_EQ(gProtectedSeconds, 70);
  tickAfter(20);
  EXPECT_DOUBLE_EQ(gProtectedSeconds, 90);
}

TEST_F(ProtectedTime, isPausedWhileChargingIsAllowed) {
  gState = ChargeState::allow;
  tickAfter(20);
  EXPECT_DOUBLE_EQ(gProtectedSeconds, 0);
  // That time is not added later.
  gState = ChargeState::hold;
  tickAfter(20);
  EXPECT_DOUBLE_EQ(gProtectedSeconds, 20);
}

TEST_F(ProtectedTime, isPausedWithoutAnAdapter) {
  mac.unplug();
  tickAfter(20);
  EXPECT_DOUBLE_EQ(gProtectedSeconds, 0);
}

TEST_F(ProtectedTime, isWrittenWithEveryTickThatAddsToIt) {
  tickAfter(20);
  EXPECT_THAT(mac.read(statsPath), ::testing::HasSubstr("\"protectedSeconds\":20,"));
  tickAfter(20);
  EXPECT_THAT(mac.read(statsPath), ::testing::HasSubstr("\"protectedSeconds\":40,"));
}

TEST_F(ProtectedTime, isNotWrittenWhileItIsPaused) {
  gState = ChargeState::allow;
  tickAfter(20);
  EXPECT_FALSE(mac.exists(statsPath));
  gState = ChargeState::hold;
  mac.unplug();
  tickAfter(20);
  EXPECT_FALSE(mac.exists(statsPath));
}

TEST_F(ProtectedTime, isNotWrittenAfterAPurge) {
  gPurged = true;
  tickAfter(20);
  EXPECT_FALSE(mac.exists(statsPath));
  EXPECT_DOUBLE_EQ(gProtectedSeconds, 20);
}

class StatisticsFile : public test::OnVirtualMac {
 protected:
  void SetUp() override {
    std::filesystem::create_directories(mac.path(folder));
    gStatsSince = 1772352000;
  }
  void reads(std::string_view text) {
    mac.write(statsPath, text);
    readStats();
  }
};

TEST_F(StatisticsFile, isOneCompactObjectWithSortedKeys) {
  writeStats();
  EXPECT_EQ(mac.read(statsPath),
            R"({"atLimit":false,"protectedSeconds":0,"since":1772352000.0,"topUpSince":0.0})");
  gProtectedSeconds = 3600.9;
  gStatsSince = 1772352000.5;
  gTopUpSince = 1772355600;
  gAtLimit = true;
  gNativeBefore = 85;
  writeStats();
  EXPECT_EQ(mac.read(statsPath), R"({"atLimit":true,"nativeBefore":85,"protectedSeconds":3600,)"
                                 R"("since":1772352000.5,"topUpSince":1772355600.0})");
}

TEST(FreshStatistics, startAtZero) {
  EXPECT_EQ(gProtectedSeconds, 0);
  EXPECT_EQ(gTopUpSince, 0);
  EXPECT_EQ(gAtLimit, std::nullopt);
  EXPECT_EQ(gNativeBefore, std::nullopt);
}

TEST_F(StatisticsFile, dropsFractionsOfASecondTowardsZero) {
  gProtectedSeconds = -30.9;
  writeStats();
  EXPECT_THAT(mac.read(statsPath), ::testing::HasSubstr("\"protectedSeconds\":-30,"));
}

TEST_F(StatisticsFile, isReadBackAsWritten) {
  gProtectedSeconds = 3600.9;
  gStatsSince = 1772351000;
  gTopUpSince = 1772355600;  // a whole second, as in every file that the daemon writes
  gAtLimit = true;
  gNativeBefore = 85;
  writeStats();
  gProtectedSeconds = gStatsSince = gTopUpSince = 1;
  gAtLimit.reset();
  gNativeBefore.reset();
  readStats();
  EXPECT_DOUBLE_EQ(gProtectedSeconds, 3600);
  EXPECT_DOUBLE_EQ(gStatsSince, 1772351000);
  EXPECT_DOUBLE_EQ(gTopUpSince, 1772355600);
  EXPECT_EQ(gAtLimit, true);
  EXPECT_EQ(gNativeBefore, 85);
}

TEST_F(StatisticsFile, readsAnUnknownLimitFlagBackAsFalse) {
  writeStats();
  readStats();
  EXPECT_EQ(gAtLimit, false);
}

TEST_F(StatisticsFile, readsSecondsFromEitherTypeOfNumber) {
  reads(R"({"protectedSeconds": 3600})");
  EXPECT_DOUBLE_EQ(gProtectedSeconds, 3600);
  reads(R"({"protectedSeconds": 3600.5})");
  EXPECT_DOUBLE_EQ(gProtectedSeconds, 3600.5);
  reads(R"({"protectedSeconds": -5})");
  EXPECT_DOUBLE_EQ(gProtectedSeconds, -5);
  for (const char* other : {"true", "\"3600\"", "null", "[3600]", "{}"}) {
    reads(std::string("{\"protectedSeconds\":") + other + "}");
    EXPECT_DOUBLE_EQ(gProtectedSeconds, 0) << other;
    gProtectedSeconds = 9;
  }
}

TEST_F(StatisticsFile, readsTimesFromFloatingPointNumbersOnly) {
  reads(R"({"since": 5.5, "topUpSince": 6.0})");
  EXPECT_DOUBLE_EQ(gStatsSince, 5.5);
  EXPECT_DOUBLE_EQ(gTopUpSince, 6);
  for (const char* other : {"7", "true", "\"7.0\"", "null", "[7.0]"}) {
    gTopUpSince = 6;
    reads(std::string("{\"since\":") + other + ",\"topUpSince\":" + other + "}");
    EXPECT_DOUBLE_EQ(gStatsSince, 5.5) << other;  // unchanged
    EXPECT_DOUBLE_EQ(gTopUpSince, 0) << other;
  }
}

TEST_F(StatisticsFile, readsTheFlagFromABooleanOnly) {
  for (const char* other : {"1", "0", "\"true\"", "null", "1.0"}) {
    gAtLimit = true;
    reads(std::string("{\"atLimit\":") + other + "}");
    EXPECT_EQ(gAtLimit, std::nullopt) << other;
  }
  reads(R"({"atLimit":true})");
  EXPECT_EQ(gAtLimit, true);
  reads(R"({"atLimit":false})");
  EXPECT_EQ(gAtLimit, false);
}

TEST_F(StatisticsFile, readsThePreviousLimitFromAnIntegerOnly) {
  for (const char* other : {"true", "85.0", "\"85\"", "null", "18446744073709551615"}) {
    gNativeBefore = 80;
    reads(std::string("{\"nativeBefore\":") + other + "}");
    EXPECT_EQ(gNativeBefore, std::nullopt) << other;
  }
  reads(R"({"nativeBefore":85})");
  EXPECT_EQ(gNativeBefore, 85);
}

TEST_F(StatisticsFile, usesZeroOrTheStartForAMissingKey) {
  gProtectedSeconds = gTopUpSince = 5;
  gAtLimit = true;
  gNativeBefore = 85;
  reads("{}");
  EXPECT_DOUBLE_EQ(gProtectedSeconds, 0);
  EXPECT_DOUBLE_EQ(gStatsSince, 1772352000);
  EXPECT_DOUBLE_EQ(gTopUpSince, 0);
  EXPECT_EQ(gAtLimit, std::nullopt);
  EXPECT_EQ(gNativeBefore, std::nullopt);
}

TEST_F(StatisticsFile, ignoresAFileThatIsNotJson) {
  gProtectedSeconds = gTopUpSince = 5;
  gAtLimit = true;
  gNativeBefore = 85;
  readStats();  // missing
  for (const char* text : {"", "[]", "7", "{\"since\":5.0", "{\"since\":5.0} x"}) {
    reads(text);
  }
  std::filesystem::remove(mac.path(statsPath));
  test::makeFolder(mac.path(statsPath));
  readStats();
  std::filesystem::remove(mac.path(statsPath));
  test::makePipe(mac.path(statsPath));
  readStats();
  EXPECT_DOUBLE_EQ(gProtectedSeconds, 5);
  EXPECT_DOUBLE_EQ(gStatsSince, 1772352000);
  EXPECT_DOUBLE_EQ(gTopUpSince, 5);
  EXPECT_EQ(gAtLimit, true);
  EXPECT_EQ(gNativeBefore, 85);
}

TEST_F(StatisticsFile, readsTheOtherKeysBesideANumberBeyondADouble) {
  reads(R"({"protectedSeconds":1e999,"since":-1e999,"topUpSince":6.0,"nativeBefore":1e999,"foo":1e999})");
  EXPECT_EQ(gProtectedSeconds, HUGE_VAL);
  EXPECT_EQ(gStatsSince, -HUGE_VAL);
  EXPECT_DOUBLE_EQ(gTopUpSince, 6);
  EXPECT_EQ(gNativeBefore, std::nullopt);
}

TEST_F(StatisticsFile, staysUnchangedIfATimeIsNotFinite) {
  const std::string before = R"({"protectedSeconds":7, "since":1e999})";
  reads(before);
  writeStats();
  EXPECT_EQ(mac.read(statsPath), before);
}

TEST_F(StatisticsFile, isNotWrittenAfterAPurge) {
  gPurged = true;
  writeStats();
  EXPECT_FALSE(mac.exists(statsPath));
}

TEST_F(StatisticsFile, createsNoFoldersAndToleratesOtherThingsInItsPlace) {
  test::makeFolder(mac.path(statsPath));
  writeStats();
  std::filesystem::remove(mac.path(statsPath));
  test::makePipe(mac.path(statsPath));
  writeStats();
  std::filesystem::remove_all(mac.path(folder));
  writeStats();
  EXPECT_FALSE(mac.exists(folder));
}

TEST_F(StatisticsFile, isOverwrittenInPlace) {
  gProtectedSeconds = 1e15;
  writeStats();
  test::setMode(mac.path(statsPath), 0600);
  const ino_t inode = test::inodeOf(mac.path(statsPath));
  gProtectedSeconds = 1;
  writeStats();
  EXPECT_EQ(test::inodeOf(mac.path(statsPath)), inode);
  EXPECT_EQ(test::modeOf(mac.path(statsPath)), 0600U);
  EXPECT_EQ(mac.read(statsPath),
            R"({"atLimit":false,"protectedSeconds":1,"since":1772352000.0,"topUpSince":0.0})");
}

TEST_F(StatisticsFile, abortsOnSecondsBeyond64Bits) {
  for (const double seconds : {1e300, -1e19, std::nan(""), HUGE_VAL}) {
    EXPECT_EQ(inChild([seconds] {
                gProtectedSeconds = seconds;
                writeStats();
              }).signal,
              SIGABRT);
  }
}

}  // namespace
}  // namespace brisko::statistics_test
