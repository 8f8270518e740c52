// How a tick starts a calibration, carries it out and ends it.

#include <filesystem>
#include <nlohmann/json.hpp>

#include "base/options.h"
#include "base/paths.h"
#include "base/process_flags.h"
#include "calibration/calibration_record.h"
#include "platform/clock.h"
#include "policy/evaluation.h"
#include "state/charge_state_record.h"
#include "state/machine_abilities.h"
#include "state/tick_state.h"
#include "support/child.h"
#include "support/on_virtual_mac.h"
#include "support/testing.h"

namespace brisko::calibration_tick_test {
namespace {

using namespace test;

#define EM_DASH "\xE2\x80\x94"
#define ARROW "\xE2\x86\x92"

constexpr const char* started = "calibration started " EM_DASH " capacity before: 4427 mAh";
constexpr const char* finished =
    "calibration finished " EM_DASH " capacity ? mAh " ARROW " 4427 mAh, 37 cycles";
const Bytes cut{8};
const Bytes notCut{0};
const Bytes open{0, 0, 0, 0};
const Bytes closed{1, 0, 0, 0};

// A healthy Mac on its adapter at 70 %.
class CalibrationTick : public test::OnVirtualMac {
 protected:
  CalibrationTick() { std::filesystem::create_directories(mac.path(historyDir)); }
  void SetUp() override {
    takeGate();
    gAtLimit = false;
  }

  // Puts a run at the beginning of this phase, with its request still set.
  void inPhase(CalPhase phase, std::string_view settings = R"({"calibrate":true})") {
    mac.settings(settings);
    const double now = platform::wallNow();
    gCal = {.phase = phase, .startedAt = now, .phaseSince = now, .lastTick = now};
  }
  // The lines of the next tick.
  std::vector<std::string> tick() {
    ticks(1);
    return newLines();
  }
  std::vector<std::string> writtenInATick() {
    mac.pass(12);
    return filesWritten(evaluate);
  }
  std::string config() const { return mac.read(defaultConfigPath); }
};

// --- request

TEST_F(CalibrationTick, startsARequestedRun) {
  mac.settings(R"({"calibrate":true})");
  const auto lines = tick();
  ASSERT_THAT(lines, SizeIs(2));
  EXPECT_EQ(lines[0], started);
  EXPECT_THAT(lines[1], StartsWith("cap 80%  cal=fill" ARROW "100%  batt 70%  "));
  EXPECT_EQ(gCal.phase, CalPhase::fill);
  EXPECT_EQ(config(), R"({"calibrate":true})") << "the request stays set until the run ends";
  EXPECT_THAT(tick(), IsEmpty());
}

TEST_F(CalibrationTick, startsAndReachesTheNextPhaseInOneTickWhenTheBatteryIsFull) {
  mac.charge(100);
  mac.settings(R"({"calibrate":true,"calDrain":100})");
  auto lines = tick();
  ASSERT_THAT(lines, SizeIs(4));
  EXPECT_EQ(lines[0], started);
  EXPECT_EQ(lines[1], "calibration " ARROW " drain");
  EXPECT_EQ(lines[2], ARROW " state: hold") << "at its target there is nothing to drain";
  EXPECT_THAT(lines[3], StartsWith("cap 80%  cal=drain" ARROW "100%"));
  // One phase per tick, even if the next is already complete.
  EXPECT_EQ(tick().at(0), "calibration " ARROW " refill");
  EXPECT_EQ(tick().at(0), "calibration " ARROW " soak");
}

TEST_F(CalibrationTick, startsNothingWithoutAPowerReading) {
  mac.number(ChangeKind::powerSources, static_cast<double>(PowerSourceFault::noSnapshot));
  mac.settings(R"({"calibrate":true})");
  EXPECT_THAT(tick(), IsEmpty());
  EXPECT_EQ(gCal.phase, CalPhase::idle);
}

TEST_F(CalibrationTick, cancelsTheRunWhoseRequestIsWithdrawn) {
  for (const CalPhase phase :
       {CalPhase::fill, CalPhase::drain, CalPhase::refill, CalPhase::soak, CalPhase::restore}) {
    mac.charge(90);
    inPhase(phase);
    ticks(1);
    ASSERT_EQ(gCal.phase, phase);
    static_cast<void>(newLines());
    mac.settings("{}");
    const auto lines = tick();
    EXPECT_EQ(lines.at(0), "calibration cancelled");
    EXPECT_THAT(lines.back(), StartsWith("cap 80%  batt 90%"));
    EXPECT_EQ(gCal.lastFailure, std::nullopt);
    EXPECT_EQ(config(), "{}") << "there is no request to clear";
    EXPECT_EQ(gState, ChargeState::hold);
    EXPECT_EQ(mac.key("CHIE"), notCut);
    EXPECT_EQ(mac.key("CHTE"), closed);
  }
}

// Without settings there is no request.
TEST_F(CalibrationTick, cancelsTheRunWhenTheSettingsCanNotBeRead) {
  inPhase(CalPhase::refill);
  EXPECT_THAT(tick(), Not(IsEmpty()));
  mac.settings("{");
  EXPECT_EQ(tick().at(0), "calibration cancelled");
}

TEST_F(CalibrationTick, clearsTheRequestWhenTheRunHasFinished) {
  mac.charge(80).temperature(33);
  inPhase(CalPhase::restore, R"({"calibrate":true,"calDrain":22,"led":false})");
  const auto lines = tick();
  ASSERT_THAT(lines, SizeIs(3));
  EXPECT_EQ(lines[0], finished);
  EXPECT_EQ(lines[1], ARROW " state: hold");
  EXPECT_THAT(lines[2], StartsWith("cap 80%  batt 80%"));
  EXPECT_THAT(config(), HasSubstr(R"("calDrain":22,"calSoakMinutes":60,"calibrate":false,)"));
  EXPECT_THAT(config(), HasSubstr(R"("led":false,)"));
  EXPECT_THAT(gCal.runs, SizeIs(1));
  EXPECT_THAT(tick(), IsEmpty());
  EXPECT_EQ(gCal.phase, CalPhase::idle);
}

TEST_F(CalibrationTick, clearsTheRequestWhenTheRunHasStalled) {
  inPhase(CalPhase::drain);
  gCal.phaseSince -= 259'200 - 12;
  EXPECT_THAT(tick(), Not(IsEmpty()));
  ASSERT_EQ(gCal.phase, CalPhase::drain);
  const auto lines = tick();
  ASSERT_THAT(lines, SizeIs(3));
  EXPECT_EQ(lines[0], "calibration stopped: stalled at the drain step");
  EXPECT_EQ(lines[1], ARROW " state: hold") << "as after any finished discharge";
  EXPECT_THAT(config(), HasSubstr("\"calibrate\":false"));
  EXPECT_EQ(mac.key("CHIE"), notCut);
  EXPECT_EQ(tick().at(0), ARROW " state: allow");
  EXPECT_THAT(tick(), IsEmpty()) << "it does not start again";
}

TEST_F(CalibrationTick, writesTheRecordBeforeTheSettings) {
  mac.charge(80);
  gAtLimit = true;
  inPhase(CalPhase::restore);
  EXPECT_THAT(writtenInATick(), ElementsAre("calibration.json", "config.json", "status.json"));
}

TEST_F(CalibrationTick, makesNoProgressWhileTheTickDoesNothing) {
  inPhase(CalPhase::fill);
  mac.charge(100);
  gReleased = true;
  EXPECT_THAT(tick(), IsEmpty());
  EXPECT_EQ(gCal.phase, CalPhase::fill);
  gReleased = false;
  EXPECT_EQ(tick().at(0), "calibration " ARROW " drain");
}

// --- one request and another

TEST_F(CalibrationTick, replacesATopUpThatIsRequestedWithIt) {
  mac.settings(R"({"topUp":true,"calibrate":true})");
  gTopUpSince = 5;
  EXPECT_THAT(writtenInATick(), ElementsAre("calibration.json", "stats.json", "config.json", "status.json"));
  EXPECT_EQ(gTopUpSince, 0);
  EXPECT_THAT(config(), HasSubstr("\"topUp\":false"));
  EXPECT_THAT(config(), HasSubstr("\"calibrate\":true"));
  EXPECT_EQ(newLines().at(0), started);
  EXPECT_THAT(mac.read(statusPath), HasSubstr("\"topUp\":false"));
}

TEST_F(CalibrationTick, delaysATopUpThatIsRequestedLater) {
  mac.charge(80);
  inPhase(CalPhase::refill, R"({"topUp":true,"calibrate":true})");
  ticks(2);
  EXPECT_EQ(gTopUpSince, 0);
  static_cast<void>(newLines());
  inPhase(CalPhase::restore, R"({"topUp":true,"calibrate":true})");
  const auto lines = tick();
  EXPECT_EQ(lines.at(0), finished);
  EXPECT_THAT(lines.back(), StartsWith("cap 100%(TopUp)  batt 80%"));
  EXPECT_EQ(gTopUpSince, platform::wallNow());
  EXPECT_THAT(config(), HasSubstr("\"calibrate\":false"));
  EXPECT_THAT(config(), HasSubstr("\"topUp\":true"));
}

// A tick writes the settings as it read them, except for the request that it clears. So a Top Up that ends
// after the calibration in the same tick restores the request for a calibration.
TEST_F(CalibrationTick, startsAgainWhenATopUpEndsInTheTickThatFinishesTheRun) {
  mac.charge(80);
  mac.unplug();
  inPhase(CalPhase::restore, R"({"topUp":true,"calibrate":true})");
  const auto lines = tick();
  EXPECT_EQ(lines.at(0), finished);
  EXPECT_EQ(lines.at(1), "Top Up finished (unplugged)");
  EXPECT_EQ(gCal.phase, CalPhase::idle);
  EXPECT_THAT(config(), HasSubstr("\"calibrate\":true"));
  EXPECT_THAT(config(), HasSubstr("\"topUp\":false"));
  EXPECT_EQ(tick().at(0), started);
  EXPECT_EQ(gCal.phase, CalPhase::fill);
}

// For the same reason the statistics are reset twice.
TEST_F(CalibrationTick, resetsTheStatisticsTwiceWhenTheRunEndsInTheTickOfTheReset) {
  mac.charge(80);
  inPhase(CalPhase::restore, R"({"resetStats":true,"calibrate":true})");
  auto lines = tick();
  EXPECT_EQ(lines.at(0), "stats reset");
  EXPECT_EQ(lines.at(1), finished);
  EXPECT_THAT(config(), HasSubstr("\"resetStats\":true"));
  lines = tick();
  EXPECT_EQ(lines.at(0), "stats reset");
  EXPECT_THAT(config(), HasSubstr("\"resetStats\":false"));
  EXPECT_THAT(config(), HasSubstr("\"calibrate\":false"));
}

// --- what the phases ask for

TEST_F(CalibrationTick, chargesBeyondTheLimitAlsoWithLimitingOff) {
  for (const CalPhase phase : {CalPhase::fill, CalPhase::refill, CalPhase::soak}) {
    for (const char* settings : {R"({"calibrate":true})", R"({"calibrate":true,"enabled":false})"}) {
      mac.charge(90);
      inPhase(phase, settings);
      ticks(1);
      EXPECT_EQ(gState, ChargeState::allow) << phaseName(phase);
      EXPECT_EQ(gCal.phase, phase);
    }
  }
}

TEST_F(CalibrationTick, drainsOnTheAdapter) {
  for (const CalPhase phase : {CalPhase::drain, CalPhase::restore}) {
    mac.charge(90);
    inPhase(phase);
    ticks(1);
    EXPECT_EQ(gState, ChargeState::discharge) << phaseName(phase);
    EXPECT_EQ(mac.key("CHIE"), cut);
  }
}

TEST_F(CalibrationTick, drainsOnlyUnpluggedWhereTheMacCannotDischarge) {
  dischargeSupported = false;
  mac.charge(90);
  inPhase(CalPhase::drain, R"({"calibrate":true,"calDrain":90})");
  mac.charge(91);
  ticks(1);
  EXPECT_EQ(gState, ChargeState::allow);
  EXPECT_EQ(gCal.phase, CalPhase::drain);
  mac.unplug();
  mac.charge(90);
  EXPECT_EQ(tick().back().find("calibration"), std::string::npos);
  EXPECT_EQ(gCal.phase, CalPhase::refill);
}

TEST_F(CalibrationTick, endsAtTheLimitAsConfigured) {
  // Not to the lowest limit of the band, which is 20.
  mac.charge(20);
  inPhase(CalPhase::restore, R"({"calibrate":true,"limit":10})");
  EXPECT_THAT(tick().back(), HasSubstr("cal=restore" ARROW "10%"));
  EXPECT_EQ(gState, ChargeState::discharge);
  mac.charge(10);
  EXPECT_EQ(tick().at(0), finished);
}

TEST_F(CalibrationTick, endsAtOnceAtALimitAbove100) {
  mac.charge(100);
  inPhase(CalPhase::restore, R"({"calibrate":true,"limit":150})");
  EXPECT_EQ(tick().at(0), finished);
}

TEST_F(CalibrationTick, countsTheSoakByTheControllersAdapterKey) {
  mac.charge(100);
  inPhase(CalPhase::soak);
  // macOS reports the missing adapter late.
  mac.number(ChangeKind::powerSourceLag, 100);
  mac.unplug();
  ticks(1);
  EXPECT_EQ(gCal.soakBanked, 0);
  EXPECT_TRUE(gLastPlugged);
  // Without the controller's key, macOS's report counts.
  mac.removeKey("AC-W");
  ticks(1);
  EXPECT_EQ(gCal.soakBanked, 12);
}

TEST_F(CalibrationTick, holdsAndWaitsWhileTheBatteryIsHot) {
  inPhase(CalPhase::fill, R"({"calibrate":true,"thermal":true})");
  mac.temperature(45);
  auto lines = tick();
  EXPECT_EQ(lines.at(0), ARROW " state: hold");
  EXPECT_THAT(lines.back(), StartsWith("cap 80%+HOT  cal=fill" ARROW "100%  batt 70%"));
  mac.temperature(36);
  EXPECT_EQ(tick().at(0), ARROW " state: allow");
  EXPECT_EQ(gCal.phase, CalPhase::fill);
  // At full charge the soak continues even if the battery is hot.
  mac.charge(100);
  inPhase(CalPhase::soak, R"({"calibrate":true,"thermal":true})");
  mac.temperature(45);
  ticks(1);
  EXPECT_EQ(gState, ChargeState::hold);
  EXPECT_EQ(gCal.soakBanked, 12);
}

TEST_F(CalibrationTick, followsEditsDuringARun) {
  mac.charge(60);
  inPhase(CalPhase::drain);
  ticks(1);
  mac.settings(R"({"calibrate":true,"calDrain":60})");
  static_cast<void>(newLines());
  EXPECT_EQ(tick().at(0), "calibration " ARROW " refill");
  mac.charge(100);
  inPhase(CalPhase::soak);
  ticks(5);
  EXPECT_EQ(gCal.soakBanked, 60);
  mac.settings(R"({"calibrate":true,"calSoakMinutes":1})");
  static_cast<void>(newLines());
  EXPECT_EQ(tick().at(0), "calibration " ARROW " restore");
}

// --- numbers beyond sense

TEST_F(CalibrationTick, soaksForAnyNumberOfMinutesThatFits) {
  mac.charge(100);
  inPhase(CalPhase::soak, R"({"calibrate":true,"calSoakMinutes":153722867280912930})");
  ticks(2);
  EXPECT_EQ(gCal.phase, CalPhase::soak);
  EXPECT_THAT(mac.read(statusPath), HasSubstr("\"soakSeconds\":9223372036854775800,"));
}

TEST_F(CalibrationTick, abortsOnMinutesBeyond64BitsOnlyAfterItActed) {
  for (const char* minutes : {"153722867280912931", "-153722867280912931"}) {
    mac.charge(100);
    inPhase(CalPhase::fill, std::string(R"({"calibrate":true,"calSoakMinutes":)") + minutes + "}");
    mac.keyBytes("CHIE", notCut);
    mac.pass(12);
    const test::Ended daemon = test::inChild(evaluate);
    EXPECT_EQ(daemon.signal, SIGABRT);
    EXPECT_EQ(daemon.errors, "brisko-daemon: a product does not fit a 64-bit integer\n");
    // The step, the hardware and the log are the same as in any other tick.
    EXPECT_EQ(Json::parse(mac.read(calibrationPath))["phase"], "drain");
    EXPECT_EQ(mac.key("CHIE"), cut);
    const auto lines = newLines();
    EXPECT_EQ(lines.at(0), "calibration " ARROW " drain");
    EXPECT_THAT(lines.back(), HasSubstr("cal=drain" ARROW "15%"));
    EXPECT_FALSE(mac.exists(statusPath));
  }
}

TEST_F(CalibrationTick, endsTheSoakOfMinutesBeyond64BitsBelow0BeforeItAborts) {
  mac.charge(100);
  inPhase(CalPhase::soak, R"({"calibrate":true,"calSoakMinutes":-153722867280912931})");
  EXPECT_EQ(test::inChild(evaluate).signal, SIGABRT);
  EXPECT_EQ(Json::parse(mac.read(calibrationPath))["phase"], "restore");
}

TEST_F(CalibrationTick, drainsToATargetThatIsNeverReachedUntilItStalls) {
  mac.charge(0);
  inPhase(CalPhase::drain, R"({"calibrate":true,"calDrain":-1})");
  ticks(2);
  EXPECT_EQ(gCal.phase, CalPhase::drain);
  EXPECT_EQ(gState, ChargeState::discharge);
}

// --- purge

TEST_F(CalibrationTick, continuesWithoutItsFilesAfterAPurge) {
  mac.charge(100);
  inPhase(CalPhase::fill);
  std::filesystem::remove(mac.path(calibrationPath));
  gPurged = true;
  EXPECT_THAT(writtenInATick(), IsEmpty());
  EXPECT_EQ(gCal.phase, CalPhase::drain);
  EXPECT_EQ(mac.key("CHIE"), cut);
  // The request can't be cleared any more, so a run that ends starts again in the next tick.
  mac.charge(80);
  inPhase(CalPhase::restore);
  EXPECT_THAT(writtenInATick(), ElementsAre());
  EXPECT_EQ(gCal.phase, CalPhase::idle);
  EXPECT_THAT(writtenInATick(), IsEmpty());
  EXPECT_EQ(gCal.phase, CalPhase::fill);
  EXPECT_FALSE(mac.exists(calibrationPath));
}

}  // namespace
}  // namespace brisko::calibration_tick_test
