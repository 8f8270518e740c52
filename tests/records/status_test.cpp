#include "records/status.h"

#include <cmath>
#include <csignal>
#include <filesystem>
#include <functional>
#include <nlohmann/json.hpp>

#include <sys/stat.h>

#include "base/json_file.h"
#include "base/options.h"
#include "base/paths.h"
#include "base/process_flags.h"
#include "hardware/charge_gate.h"
#include "hardware/scheduled_wake.h"
#include "records/statistics.h"
#include "state/calibration_state.h"
#include "state/machine_abilities.h"
#include "state/native_limit_state.h"
#include "state/tick_state.h"
#include "support/child.h"
#include "support/files.h"
#include "support/on_virtual_mac.h"
#include "support/testing.h"

namespace brisko::status_test {
namespace {

using namespace test;

constexpr double begin = 1772352000;

class Status : public test::OnVirtualMac {
 protected:
  void SetUp() override {
    std::filesystem::create_directories(folder());
    gStatsSince = begin - 1000.5;
    daemonStartedAt = begin - 60;
  }

  std::string folder() const { return mac.path("/Library/Application Support/Brisko"); }
  std::string file() const { return mac.read(statusPath); }
  Json object() const { return Json::parse(file()); }

  // Whether writeStatus() writes the file.
  bool writes() {
    std::error_code ignored;
    std::filesystem::remove(mac.path(statusPath), ignored);
    writeStatus(report);
    return mac.exists(statusPath);
  }

  StatusReport report{.state = ChargeState::hold, .pct = 80, .plugged = true};
};

TEST_F(Status, isOneCompactObjectWithSortedKeys) {
  writeStatus(report);
  EXPECT_EQ(file(),
            R"({"cal":{"phase":"idle","runs":[]},"chargeMode":"none","daemonPath":"",)"
            R"("daemonVersion":"0.9.9","discharge":false,"dischargeFailed":false,"dischargeSupported":false,)"
            R"("enabled":true,"hot":false,"ledSupported":false,"pct":80,"plugged":true,)"
            R"("protectedSeconds":0,"since":1772350999.5,"smcKeys":[],"startedAt":1772351940.0,)"
            R"("state":"hold","topUp":false,"ts":1772352000.0,"upper":80})");
}

TEST_F(Status, containsEveryKnownField) {
  gGate = ChargeGate{ChargeKeys::ch0b0c, AdapterCutKey::ch0i};
  gLedSupported = dischargeSupported = gDischargeBroken = true;
  gProbedKeys = {"CH0B", "CH0C", "CH0I", "ACLC", "AC-W", "TB0T"};
  gDaemonPath = "/Applications/Brisko.app/Contents/MacOS/brisko-daemon";
  gProtectedSeconds = 3600.9;
  gGateVerified = true;
  gNativeFloor = 80;
  gCal = {.phase = CalPhase::soak,
          .startedAt = begin - 7200,
          .phaseSince = begin - 600.5,
          .soakBanked = 599.9,
          .lastTick = begin,
          .before = GaugeReading{.raw = 4000},
          .runs = {{.at = begin - 1e6,
                    .beforeRaw = 4000,
                    .afterRaw = 4100,
                    .beforeNominal = 4200,
                    .afterNominal = 4300,
                    .design = 4400,
                    .cyclesBefore = 10,
                    .cyclesAfter = 11},
                   {.at = begin - 5e5, .afterRaw = 4050}},
          .lastFailure = CalFailure{"stalled", CalPhase::drain}};
  mac.pass(0.5);
  writeStatus({.state = ChargeState::discharge,
               .pct = 91,
               .plugged = true,
               .upper = 85,
               .enabled = false,
               .discharge = true,
               .hot = true,
               .temp = 31.25,
               .topUp = true,
               .calDrainTarget = 15,
               .calSoakSeconds = 3600});
  EXPECT_EQ(file(),
            R"({"cal":{"drainTarget":15,"lastFailure":{"phase":"drain","reason":"stalled"},"phase":"soak",)"
            R"("phaseSince":1772351399.5,"runs":[{"afterNominal":4300,"afterRaw":4100,"at":1771352000.0,)"
            R"("beforeNominal":4200,"beforeRaw":4000,"cyclesAfter":11,"cyclesBefore":10,"design":4400},)"
            R"({"afterRaw":4050,"at":1771852000.0}],"soakBanked":599,"soakSeconds":3600,)"
            R"("startedAt":1772344800.0},"chargeMode":"CH0B+CH0C",)"
            R"("daemonPath":"/Applications/Brisko.app/Contents/MacOS/brisko-daemon","daemonVersion":"0.9.9",)"
            R"("discharge":true,"dischargeFailed":true,"dischargeSupported":true,"enabled":false,)"
            R"("gateVerified":true,"hot":true,"ledSupported":true,"nativeFloor":80,"pct":91,"plugged":true,)"
            R"("protectedSeconds":3600,"since":1772350999.5,)"
            R"("smcKeys":["CH0B","CH0C","CH0I","ACLC","AC-W","TB0T"],"startedAt":1772351940.0,)"
            R"("state":"discharge","temp":31.3,"topUp":true,"ts":1772352000.5,"upper":85})");
}

TEST_F(Status, namesTheGate) {
  const std::vector<std::pair<ChargeKeys, const char*>> cases = {{ChargeKeys::chte, "CHTE"},
                                                                 {ChargeKeys::ch0b0c, "CH0B+CH0C"},
                                                                 {ChargeKeys::firmwareBand, "bfD0/bfE0/bfF0"},
                                                                 {ChargeKeys::macOSLimit, "macOS"}};
  for (const auto& [keys, name] : cases) {
    gGate = ChargeGate{keys, AdapterCutKey::none};
    mac.pass(15);
    writeStatus(report);
    EXPECT_EQ(object()["chargeMode"], name);
  }
}

TEST_F(Status, namesEveryStateAndPhase) {
  for (const auto& [state, name] :
       std::vector<std::pair<ChargeState, const char*>>{{ChargeState::allow, "allow"},
                                                        {ChargeState::hold, "hold"},
                                                        {ChargeState::discharge, "discharge"}}) {
    report.state = state;
    writeStatus(report);
    EXPECT_EQ(object()["state"], name);
  }
  for (const auto& [phase, name] :
       std::vector<std::pair<CalPhase, const char*>>{{CalPhase::fill, "fill"},
                                                     {CalPhase::drain, "drain"},
                                                     {CalPhase::refill, "refill"},
                                                     {CalPhase::soak, "soak"},
                                                     {CalPhase::restore, "restore"},
                                                     {CalPhase::idle, "idle"}}) {
    gCal.phase = phase;
    writeStatus(report);
    EXPECT_EQ(object()["cal"]["phase"], name);
  }
}

TEST_F(Status, roundsTheTemperatureToOneDigit) {
  struct Case {
    double temp;
    const char* written;
  };
  for (const Case& reading :
       {Case{31.25, "31.3"}, Case{31.249, "31.2"}, Case{30.0, "30.0"}, Case{0.04, "0.0"},
        Case{99.96, "100.0"}, Case{31.3, "31.3"}, Case{29.1, "29.1"}}) {
    report.temp = reading.temp;
    mac.pass(15);
    writeStatus(report);
    EXPECT_THAT(file(), HasSubstr(std::string("\"temp\":") + reading.written + ",")) << reading.temp;
  }
}

TEST_F(Status, omitsUnknownValues) {
  writeStatus(report);
  for (const char* key : {"gateVerified", "nativeFloor", "temp"}) EXPECT_FALSE(object().contains(key)) << key;
  for (const char* key :
       {"startedAt", "phaseSince", "soakBanked", "soakSeconds", "drainTarget", "lastFailure"}) {
    EXPECT_FALSE(object()["cal"].contains(key)) << key;
  }
  EXPECT_THAT(file(), Not(HasSubstr("null")));
}

TEST_F(Status, keepsTheLastFailureAndTheRunsWhileIdle) {
  gCal.lastFailure = CalFailure{"stopped", CalPhase::fill};
  gCal.runs = {{.at = 5}};
  gCal.soakBanked = 10;
  writeStatus(report);
  EXPECT_EQ(object()["cal"].dump(),
            R"({"lastFailure":{"phase":"fill","reason":"stopped"},"phase":"idle","runs":[{"at":5.0}]})");
}

TEST_F(Status, dropsFractionsOfASecondTowardsZero) {
  gProtectedSeconds = -0.9;
  writeStatus(report);
  EXPECT_EQ(object()["protectedSeconds"], 0);
  mac.pass(15);
  gProtectedSeconds = -30.5;
  writeStatus(report);
  EXPECT_EQ(object()["protectedSeconds"], -30);
}

// --- when it is written

TEST_F(Status, isNotRewrittenWithin15Seconds) {
  EXPECT_TRUE(writes());
  mac.pass(14.9);
  EXPECT_FALSE(writes());
  mac.pass(0.125);
  EXPECT_TRUE(writes());
  mac.pass(15);  // exactly
  EXPECT_TRUE(writes());
  mac.pass(14.875);
  EXPECT_FALSE(writes());
}

TEST_F(Status, isRewrittenAtOnceWhenTheAppMustSeeAChange) {
  EXPECT_TRUE(writes());
  EXPECT_FALSE(writes());
  const std::vector<std::pair<const char*, std::function<void()>>> changes = {
      {"state", [this] { report.state = ChargeState::allow; }},
      {"pct", [this] { report.pct = 79; }},
      {"plugged", [this] { report.plugged = false; }},
      {"upper", [this] { report.upper = 90; }},
      {"enabled", [this] { report.enabled = false; }},
      {"discharge", [this] { report.discharge = true; }},
      {"hot", [this] { report.hot = true; }},
      {"topUp", [this] { report.topUp = true; }},
      {"phase", [] { gCal.phase = CalPhase::fill; }},
      {"unknown gate to false", [] { gGateVerified = false; }},
      {"gate to true", [] { gGateVerified = true; }},
      {"gate to unknown", [] { gGateVerified.reset(); }},
      {"native floor", [] { gNativeFloor = 80; }},
  };
  for (const auto& [name, change] : changes) {
    change();
    EXPECT_TRUE(writes()) << name;
    EXPECT_FALSE(writes()) << name;
  }
}

TEST_F(Status, treatsANativeFloorOf0AsNone) {
  EXPECT_TRUE(writes());
  gNativeFloor = 0;
  EXPECT_FALSE(writes());
}

TEST_F(Status, isNotRewrittenForOtherChanges) {
  EXPECT_TRUE(writes());
  report.temp = 40;
  report.calDrainTarget = 20;
  report.calSoakSeconds = 60;
  gProtectedSeconds = 100;
  gStatsSince = 1;
  gDischargeBroken = dischargeSupported = gLedSupported = true;
  gProbedKeys = {"CHTE"};
  gGate = ChargeGate{};
  gCal.runs = {{.at = 1}};
  gCal.lastFailure = CalFailure{"stalled", CalPhase::idle};
  gCal.startedAt = gCal.soakBanked = 7;
  EXPECT_FALSE(writes());
  mac.pass(15);
  EXPECT_TRUE(writes());
  EXPECT_EQ(object()["temp"], 40.0);
  EXPECT_EQ(object()["protectedSeconds"], 100);
}

TEST_F(Status, isRewrittenAtOnceForAReturnToAnEarlierState) {
  EXPECT_TRUE(writes());
  report.hot = true;
  EXPECT_TRUE(writes());
  report.hot = false;
  EXPECT_TRUE(writes());
}

TEST_F(Status, isNotRewrittenUntilAClockThatWasSetBackCatchesUp) {
  EXPECT_TRUE(writes());
  mac.number(ChangeKind::clockStep, -3600);
  EXPECT_FALSE(writes());
  mac.pass(3600 + 14);
  EXPECT_FALSE(writes());
  mac.pass(1);
  EXPECT_TRUE(writes());
}

TEST_F(Status, isWrittenAtOnceByAClockThatWasSetForward) {
  EXPECT_TRUE(writes());
  mac.number(ChangeKind::clockStep, 15);
  EXPECT_TRUE(writes());
}

// --- obstacles

TEST_F(Status, isNotRetriedSoonerIfItCannotBeWritten) {
  test::makeFolder(mac.path(statusPath));
  writeStatus(report);
  std::filesystem::remove(mac.path(statusPath));
  EXPECT_FALSE(writes());
  mac.pass(14.9);
  EXPECT_FALSE(writes());
  mac.pass(0.125);
  EXPECT_TRUE(writes());
}

TEST_F(Status, namesTheNextWakeUntilItsDate) {
  gGuards.night = true;
  gScheduledWake = begin + 60;
  writeStatus(report);
  EXPECT_EQ(object()["nextWake"], begin + 60);
  mac.pass(60);
  ASSERT_TRUE(writes());
  EXPECT_FALSE(object().contains("nextWake"));
}

TEST_F(Status, isNotWrittenAfterAPurge) {
  gPurged = true;
  EXPECT_FALSE(writes());
  report.hot = true;
  mac.pass(60);
  EXPECT_FALSE(writes());
}

TEST_F(Status, createsNoFolders) {
  std::filesystem::remove_all(folder());
  writeStatus(report);
  EXPECT_FALSE(mac.exists("/Library/Application Support/Brisko"));
}

TEST_F(Status, doesNotBlockOnAPipeInItsPlace) {
  test::makePipe(mac.path(statusPath));
  writeStatus(report);
  struct stat found {};
  ASSERT_EQ(::lstat(mac.path(statusPath).c_str(), &found), 0);
  EXPECT_TRUE(S_ISFIFO(found.st_mode));
}

TEST_F(Status, isOverwrittenInPlace) {
  writeStatus(report);
  const ino_t inode = test::inodeOf(mac.path(statusPath));
  test::setMode(mac.path(statusPath), 0600);
  gProbedKeys.clear();
  report.pct = 8;  // shorter than before
  writeStatus(report);
  EXPECT_EQ(object()["pct"], 8);
  EXPECT_EQ(test::inodeOf(mac.path(statusPath)), inode);
  EXPECT_EQ(test::modeOf(mac.path(statusPath)), 0600U);
}

TEST_F(Status, isNotWrittenIfThePathIsInvalidUtf8) {
  gDaemonPath = "/\xff/brisko-daemon";
  EXPECT_FALSE(writes());
}

TEST_F(Status, abortsOnSecondsBeyond64Bits) {
  for (const double seconds : {1e300, std::nan(""), -1e19}) {
    EXPECT_EQ(inChild([&] {
                gProtectedSeconds = seconds;
                writeStatus(report);
              }).signal,
              SIGABRT);
    EXPECT_EQ(inChild([&] {
                gCal.phase = CalPhase::soak;
                gCal.soakBanked = seconds;
                writeStatus(report);
              }).signal,
              SIGABRT);
    // Not computed without a soak to report.
    EXPECT_EQ(inChild([&] {
                gCal.soakBanked = seconds;
                writeStatus(report);
              }).status,
              0);
  }
}

}  // namespace
}  // namespace brisko::status_test
