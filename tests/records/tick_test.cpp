// What a tick writes to each file, and in which order.

#include <cstdlib>
#include <filesystem>

#include "base/log.h"
#include "base/options.h"
#include "base/paths.h"
#include "base/process_flags.h"
#include "hardware/charge_gate.h"
#include "hardware/smc.h"
#include "platform/clock.h"
#include "policy/evaluation.h"
#include "power/orderly_exit.h"
#include "records/statistics.h"
#include "state/calibration_state.h"
#include "state/charge_state_record.h"
#include "state/tick_state.h"
#include "support/file_journal.h"
#include "support/on_virtual_mac.h"
#include "support/testing.h"

namespace brisko::tick_test {
namespace {

using namespace test;

constexpr const char* calibration = "calibration.json";
constexpr const char* config = "config.json";
constexpr const char* stats = "stats.json";
constexpr const char* status = "status.json";

class Records : public test::OnVirtualMac {
 protected:
  Records() {
    std::filesystem::create_directories(mac.path(historyDir));
    std::filesystem::create_directories(mac.path(LogFile::defaultDirectory));
  }
  void SetUp() override {
    if (!test::FileJournal::canBeKept())
      GTEST_SKIP() << "this kernel does not report which files are written";
    ASSERT_EQ(::setenv("TZ", "UTC", 1), 0);
    takeGate();
  }

  std::vector<std::string> tick() {
    mac.pass(12);
    return filesWritten(evaluate);
  }
  std::string history() const { return mac.read(std::string(historyDir) + "/2026-03-01.jsonl"); }
  std::string statusText() const { return mac.read(statusPath); }
  std::string statsText() const { return mac.read(statsPath); }
};

TEST_F(Records, areTheStatusAndASampleOfEveryTick) {
  mac.settings(R"({"limit":85,"hysteresis":10,"discharge":true,"calDrain":20,"calSoakMinutes":30})");
  mac.charge(90);
  mac.temperature(31);
  evaluate();
  EXPECT_THAT(statusText(), HasSubstr(R"("discharge":true,"dischargeFailed":false)"));
  EXPECT_THAT(statusText(), HasSubstr(R"("enabled":true,"hot":false,)"));
  EXPECT_THAT(statusText(), HasSubstr(R"("pct":90,"plugged":true,)"));
  EXPECT_THAT(statusText(), HasSubstr(R"("state":"discharge","temp":31.0,"topUp":false,)"));
  EXPECT_THAT(statusText(), EndsWith(R"("upper":85})"));
  EXPECT_THAT(history(), StartsWith(R"({"ct":310,"g":true,"p":90,"s":"discharge","t":1772352000,"wt":)"));
}

TEST_F(Records, recordTheHeatInTheSampleToo) {
  mac.settings(R"({"thermal":true,"thermalLimit":30})");
  mac.temperature(31);
  evaluate();
  EXPECT_THAT(statusText(), HasSubstr("\"hot\":true"));
  EXPECT_THAT(history(), HasSubstr("\"hot\":true"));
}

TEST_F(Records, recordTheAdapterAsTheControllerSeesIt) {
  // A cut adapter is plugged in, whatever power source macOS reports.
  mac.settings(R"({"discharge":true})");
  mac.charge(90);
  evaluate();
  mac.pass(60);
  evaluate();
  EXPECT_FALSE(gLastPlugged);
  EXPECT_THAT(statusText(), HasSubstr("\"plugged\":true"));
  EXPECT_THAT(history(), Not(HasSubstr("\"g\":false")));
  mac.removeKey("AC-W");
  evaluate();
  EXPECT_THAT(statusText(), HasSubstr("\"plugged\":false"));
  EXPECT_THAT(history(), HasSubstr("\"g\":false"));
}

TEST_F(Records, containTheSettingsUpperBoundDuringATopUp) {
  mac.settings(R"({"limit":10,"topUp":true})");
  evaluate();
  EXPECT_THAT(statusText(), HasSubstr("\"topUp\":true"));
  EXPECT_THAT(statusText(), EndsWith("\"upper\":20}"));
}

TEST_F(Records, containTheCalibrationsTerms) {
  mac.settings(R"({"calibrate":true,"calDrain":20,"calSoakMinutes":30})");
  gCal = {.phase = CalPhase::soak, .phaseSince = platform::wallNow()};
  evaluate();
  EXPECT_THAT(statusText(), StartsWith(R"({"cal":{"drainTarget":20,"phase":"soak",)"));
  EXPECT_THAT(statusText(), HasSubstr(R"("soakSeconds":1800,)"));
}

TEST_F(Records, areWrittenAtMostEvery24SecondsByTheHeartbeat) {
  mac.charge(80);
  evaluate();
  EXPECT_THAT(tick(), IsEmpty());  // 12 s are not enough
  EXPECT_THAT(tick(), ElementsAre(status));
  EXPECT_THAT(tick(), IsEmpty());
}

TEST_F(Records, areNotWrittenWithoutAPowerReading) {
  mac.number(ChangeKind::powerSources, static_cast<double>(PowerSourceFault::noSnapshot));
  EXPECT_THAT(tick(), IsEmpty());
  EXPECT_EQ(history(), "");
}

TEST_F(Records, keepNoHistoryWhenSwitchedOff) {
  mac.settings("{\"history\":false}");
  evaluate();
  EXPECT_EQ(history(), "");
  EXPECT_NE(statusText(), "");
}

TEST_F(Records, endWithAPurge) {
  mac.settings(R"({"topUp":true,"resetStats":true})");
  gPurged = true;
  EXPECT_THAT(tick(), IsEmpty());
  EXPECT_EQ(history(), "");
}

TEST_F(Records, surviveUnwritablePaths) {
  std::filesystem::remove_all(mac.path("/Library/Application Support/Brisko"));
  mac.write("/Library/Application Support/Brisko", "a file");
  mac.charge(90);
  evaluate();
  EXPECT_EQ(gState, ChargeState::hold);
  EXPECT_EQ(mac.read("/Library/Application Support/Brisko"), "a file");
}

// --- statistics

TEST_F(Records, storeTheLimitFlagWhenItBecomesKnownAndWhenItChanges) {
  mac.charge(80);
  EXPECT_THAT(tick(), ElementsAre(stats, status));
  EXPECT_THAT(statsText(), HasSubstr("\"atLimit\":true"));
  mac.charge(78);
  EXPECT_THAT(tick(), ElementsAre(status));
  mac.charge(75);
  EXPECT_THAT(tick(), ElementsAre(stats, status));
  EXPECT_THAT(statsText(), HasSubstr("\"atLimit\":false"));
}

TEST_F(Records, storeALimitFlagThatBecomesKnownAsFalse) {
  mac.charge(50);
  EXPECT_THAT(tick(), ElementsAre(stats, status));
  EXPECT_THAT(tick(), IsEmpty());
}

TEST_F(Records, restoreTheLimitFlagOfTheLastRun) {
  gAtLimit = true;
  mac.charge(80);
  EXPECT_THAT(tick(), ElementsAre(status));
}

TEST_F(Records, resetTheStatisticsBeforeTheRequestIsCleared) {
  gAtLimit = false;
  gProtectedSeconds = 500;
  mac.settings("{\"resetStats\":true}");
  EXPECT_THAT(tick(), ElementsAre(stats, config, status));
  EXPECT_EQ(statsText(), R"({"atLimit":false,"protectedSeconds":0,"since":1772352012.0,"topUpSince":0.0})");
}

TEST_F(Records, logTheResetAfterTheFilesAreWritten) {
  gAtLimit = false;
  mac.settings("{\"resetStats\":true}");
  mac.number(ChangeKind::powerSources, static_cast<double>(PowerSourceFault::noSnapshot));
  EXPECT_THAT(filesWrittenAndLogged(evaluate), ElementsAre(stats, config, "daemon.log"));
}

TEST_F(Records, storeATopUpWhenItStarts) {
  gAtLimit = false;
  mac.settings("{\"topUp\":true}");
  EXPECT_THAT(tick(), ElementsAre(stats, status));
  EXPECT_THAT(statsText(), HasSubstr("\"topUpSince\":1772352012.0"));
  EXPECT_THAT(tick(), IsEmpty());
}

TEST_F(Records, storeATopUpWhenItEnds) {
  gAtLimit = false;
  mac.settings("{\"topUp\":true}");
  evaluate();
  mac.unplug();
  // The request is cleared before the time is, and the limit flag stays.
  EXPECT_THAT(tick(), ElementsAre(config, stats, status));
  EXPECT_THAT(statsText(), HasSubstr("\"topUpSince\":0.0"));
}

TEST_F(Records, storeTheStartAndTheEndOfATopUpRequestedOnBattery) {
  gAtLimit = false;
  mac.unplug();
  mac.settings("{\"topUp\":true}");
  EXPECT_THAT(tick(), ElementsAre(stats, config, stats, status));
  EXPECT_THAT(statsText(), HasSubstr("\"topUpSince\":0.0"));
  EXPECT_THAT(mac.read(defaultConfigPath), HasSubstr("\"topUp\":false"));
}

TEST_F(Records, storeTheEndOfATopUpThatIsNoLongerRequested) {
  gAtLimit = false;
  gTopUpSince = 5;
  EXPECT_THAT(tick(), ElementsAre(stats, status));
  EXPECT_THAT(statsText(), HasSubstr("\"topUpSince\":0.0"));
}

TEST_F(Records, storeTheEndOfATopUpThatACalibrationReplaces) {
  gAtLimit = false;
  gTopUpSince = 5;
  mac.charge(85);
  mac.settings(R"({"topUp":true,"calibrate":true,"limit":85})");
  EXPECT_THAT(tick(), ElementsAre(calibration, stats, config, stats, status));
  EXPECT_THAT(statsText(), HasSubstr("\"topUpSince\":0.0"));
  EXPECT_THAT(mac.read(defaultConfigPath), HasSubstr("\"topUp\":false"));
  EXPECT_THAT(mac.read(defaultConfigPath), HasSubstr("\"calibrate\":true"));
  EXPECT_EQ(gTopUpSince, 0);
  EXPECT_THAT(newLines().back(), StartsWith("cap 85%  cal=fill→100%  batt"));
}

TEST_F(Records, keepARequestForATopUpDuringACalibration) {
  gAtLimit = false;
  gTopUpSince = 5;
  gCal = {.phase = CalPhase::fill, .phaseSince = platform::wallNow()};
  mac.settings(R"({"topUp":true,"calibrate":true})");
  EXPECT_THAT(tick(), ElementsAre(stats, status));
  EXPECT_THAT(mac.read(defaultConfigPath), HasSubstr("\"topUp\":true"));
}

TEST_F(Records, storeTheStatisticsAtAnOrderlyExit) {
  gProtectedSeconds = 77;
  EXPECT_THAT(filesWritten(restoreOnExit), ElementsAre(stats));
  EXPECT_THAT(statsText(), HasSubstr("\"protectedSeconds\":77"));
  gPurged = true;
  EXPECT_THAT(filesWritten(restoreOnExit), IsEmpty());
}

TEST_F(Records, storeNoStatisticsAtAnExitWithoutAGateOrAController) {
  const auto gate = gGate;
  gGate.reset();
  EXPECT_THAT(filesWritten(restoreOnExit), IsEmpty());
  gGate = gate;
  gConn = 0;
  EXPECT_THAT(filesWritten(restoreOnExit), IsEmpty());
}

}  // namespace
}  // namespace brisko::tick_test
