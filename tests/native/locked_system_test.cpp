// A Mac whose keys are closed and that offers no limit: what was left set is handed back, and then it is only
// observed.
#include "native/locked_system.h"

#include <csignal>
#include <cstdint>
#include <filesystem>
#include <nlohmann/json.hpp>

#include "sim/seam/simulated/driver.h"
#include "state/charge_state_record.h"
#include "state/tick_state.h"
#include "support/daemon_process.h"
#include "support/on_virtual_mac.h"
#include "support/testing.h"

namespace brisko::locked_system_test {
namespace {

using namespace test;

constexpr const char* configFile = "/Library/Application Support/Brisko/config.json";
constexpr const char* statusFile = "/Library/Application Support/Brisko/status.json";
constexpr const char* historyFile = "/Library/Application Support/Brisko/history/2026-03-01.jsonl";
constexpr const char* statsFile = "/Library/Application Support/Brisko/stats.json";

void takeTheLimitAway() { virtual_mac::setEnvironment("BRISKO_PRETEND_NO_NATIVE", "1"); }

class LockedSystem : public test::OnVirtualMac {
 protected:
  LockedSystem() : OnVirtualMac({.macOS = 27}) {
    takeTheLimitAway();
    openController();
    std::filesystem::create_directories(mac.path("/Library/Application Support/Brisko"));
  }
};

// -- Keys left set by an earlier run

TEST_F(LockedSystem, handsNothingBackIfNothingIsSet) {
  EXPECT_THAT(handBackLockedSystem(), IsEmpty());
  EXPECT_THAT(mac.writes(), IsEmpty());
}

TEST_F(LockedSystem, connectsTheAdapterAndHandsTheLightBack) {
  mac.keyBytes("CHIE", {0x08}).keyBytes("ACLC", {0x03});
  mac.forgetJournal();
  EXPECT_THAT(handBackLockedSystem(),
              ElementsAre("adapter cut found set, restored", "MagSafe light handed back to macOS"));
  EXPECT_EQ(mac.writes(), (Writes{"CHIE=00", "ACLC=00"}));
}

TEST_F(LockedSystem, reportsAdapterAndLightThatStaySet) {
  mac.keyBytes("CHIE", {0x08}).keyBytes("ACLC", {0x04});
  mac.keyOnWrite("CHIE", OnWrite::refuse).keyOnWrite("ACLC", OnWrite::refuse);
  EXPECT_THAT(handBackLockedSystem(), ElementsAre("⚠️ adapter cut found set, and could not be restored",
                                                  "⚠️ MagSafe light could not be handed back to macOS"));
}

TEST_F(LockedSystem, leavesOtherValuesOfTheCutKeyAlone) {
  for (const std::uint8_t value : Bytes{0x01, 0x02, 0x09, 0xFF}) {
    mac.keyBytes("CHIE", {value});
    mac.forgetJournal();
    EXPECT_THAT(handBackLockedSystem(), IsEmpty()) << int{value};
    EXPECT_THAT(mac.writes(), IsEmpty()) << int{value};
  }
}

TEST_F(LockedSystem, handsBackEveryLightThatIsNotTheSystems) {
  for (const std::uint8_t value : Bytes{0x01, 0x03, 0x04, 0xFF}) {
    mac.keyBytes("ACLC", {value});
    EXPECT_THAT(handBackLockedSystem(), ElementsAre("MagSafe light handed back to macOS")) << int{value};
    EXPECT_EQ(mac.key("ACLC"), Bytes{0x00});
  }
}

TEST_F(LockedSystem, skipsKeysThatItCannotRead) {
  mac.removeKey("CHIE").removeKey("ACLC");
  EXPECT_THAT(handBackLockedSystem(), IsEmpty());
  EXPECT_THAT(mac.writes(), IsEmpty());
}

TEST_F(LockedSystem, clearsRequestsThatCannotBeServed) {
  mac.settings(R"({"topUp":true,"calibrate":true,"resetStats":true,"limit":85})");
  EXPECT_THAT(handBackLockedSystem(), ElementsAre("pending calibration and Top-up request cleared"));
  const auto config = nlohmann::json::parse(mac.read(configFile));
  EXPECT_EQ(config.at("topUp"), false);
  EXPECT_EQ(config.at("calibrate"), false);
  EXPECT_EQ(config.at("resetStats"), true);
  EXPECT_EQ(config.at("limit"), 85);
}

TEST_F(LockedSystem, namesTheOneRequestThatWasPending) {
  mac.settings(R"({"topUp":true})");
  EXPECT_THAT(handBackLockedSystem(), ElementsAre("pending Top-up request cleared"));
  mac.settings(R"({"calibrate":true})");
  EXPECT_THAT(handBackLockedSystem(), ElementsAre("pending calibration request cleared"));
}

TEST_F(LockedSystem, leavesSettingsWithoutRequestsUnchanged) {
  const std::string settings = R"({ "limit" : 85 })";
  mac.settings(settings);
  EXPECT_THAT(handBackLockedSystem(), IsEmpty());
  EXPECT_EQ(mac.read(configFile), settings);
}

TEST_F(LockedSystem, skipsSettingsThatItCannotRead) {
  for (const char* settings : {"", "{", "[true]", R"({"topUp":1})"}) {
    mac.settings(settings);
    EXPECT_THAT(handBackLockedSystem(), IsEmpty()) << settings;
    EXPECT_EQ(mac.read(configFile), settings);
  }
}

TEST_F(LockedSystem, leavesTheStatisticsAloneWithoutATopUp) {
  EXPECT_THAT(handBackLockedSystem(), IsEmpty());
  EXPECT_FALSE(mac.exists(statsFile));
  gTopUpSince = 5;
  EXPECT_THAT(handBackLockedSystem(), IsEmpty());
  EXPECT_EQ(gTopUpSince, 0);
  EXPECT_TRUE(mac.exists(statsFile));
}

// -- Observing

TEST_F(LockedSystem, recordsTheReadingAndThatChargingIsAllowed) {
  mac.charge(64).plugIn();
  gState = ChargeState::hold;
  observeLockedSystem();
  EXPECT_EQ(gLastPct, 64);
  EXPECT_TRUE(gLastPlugged);
  EXPECT_EQ(gState, ChargeState::allow);
  mac.unplug().pass(12);
  observeLockedSystem();
  EXPECT_FALSE(gLastPlugged);
}

TEST_F(LockedSystem, publishesWhetherTheLimitIsSwitchedOn) {
  mac.settings(R"({"enabled":false})");
  observeLockedSystem();
  EXPECT_THAT(mac.read(statusFile), HasSubstr("\"enabled\":false"));
}

TEST_F(LockedSystem, publishesTheAdapterAsTheControllerSeesIt) {
  mac.keyBytes("AC-W", {0xFF});
  observeLockedSystem();
  ASSERT_TRUE(gLastPlugged);
  EXPECT_THAT(mac.read(statusFile), HasSubstr("\"plugged\":false"));
  EXPECT_THAT(mac.read(historyFile), HasSubstr("\"g\":false"));
  mac.keyBytes("AC-W", {0x00}).unplug().pass(12);
  observeLockedSystem();
  ASSERT_FALSE(gLastPlugged);
  EXPECT_THAT(mac.read(statusFile), HasSubstr("\"plugged\":true"));
  EXPECT_THAT(mac.read(historyFile), HasSubstr("\"g\":true"));
}

TEST_F(LockedSystem, usesTheReadingOfThisTickWithoutTheAdaptersKey) {
  mac.removeKey("AC-W");
  observeLockedSystem();
  EXPECT_THAT(mac.read(statusFile), HasSubstr("\"plugged\":true"));
  mac.unplug().pass(12);
  observeLockedSystem();
  EXPECT_THAT(mac.read(statusFile), HasSubstr("\"plugged\":false"));
  EXPECT_THAT(mac.read(historyFile), HasSubstr("\"g\":false"));
}

// -- The whole daemon

class LockedDaemon : public ::testing::Test {
 protected:
  LockedDaemon() : mac({.macOS = 27, .percent = 90}) { takeTheLimitAway(); }

  [[nodiscard]] nlohmann::json status() const { return nlohmann::json::parse(mac.read(statusFile)); }

  VirtualMac mac;
};

TEST_F(LockedDaemon, logsWhatWasHandedBackAfterItsBanner) {
  mac.keyBytes("CHIE", {0x08}).keyBytes("ACLC", {0x03});
  mac.settings(R"({"topUp":true,"calibrate":true})");
  mac.write(statsFile, R"({"topUpSince":1772351000.0,"protectedSeconds":40})");
  DaemonProcess(mac).run(0);
  EXPECT_THAT(
      mac.logLines(),
      ElementsAre(HasSubstr("charging via nothing: macOS 27 closed the keys Brisko writes, observing "
                            "only, discharge off, LED off"),
                  "macOS 27: adapter cut found set, restored", "macOS 27: MagSafe light handed back to macOS",
                  "macOS 27: pending calibration and Top-up request cleared",
                  "XPC listening on com.brisko.daemon.xpc"));
  const auto stats = nlohmann::json::parse(mac.read(statsFile));
  EXPECT_EQ(stats.at("topUpSince"), 0.0);
  EXPECT_EQ(stats.at("protectedSeconds"), 40);
}

TEST_F(LockedDaemon, cancelsACalibrationInProgress) {
  constexpr const char* record = "/Library/Application Support/Brisko/calibration.json";
  mac.keyBytes("ACLC", {0x03});
  mac.settings(R"({"calibrate":true})");
  mac.write(record,
            R"({"phase":"soak","phaseSince":1772350000.0,"runs":[],"soakBanked":0.0,"startedAt":1.0})");
  DaemonProcess(mac).run(0);
  EXPECT_THAT(mac.logLines(),
              ElementsAre("calibration cancelled", StartsWith("brisko-daemon started"),
                          "macOS 27: MagSafe light handed back to macOS",
                          "macOS 27: calibration in progress cancelled",
                          "macOS 27: pending calibration request cleared", StartsWith("XPC listening")));
  const auto kept = nlohmann::json::parse(mac.read(record));
  EXPECT_EQ(kept.at("phase"), "idle");
  EXPECT_FALSE(kept.contains("lastFailure"));
  EXPECT_EQ(status().at("cal").at("phase"), "idle");
}

TEST_F(LockedDaemon, publishesWhatItReads) {
  mac.settings(R"({"limit":85,"discharge":true,"thermal":true,"thermalLimit":10,"calDrain":12})");
  DaemonProcess daemon(mac);
  daemon.run(0);
  auto seen = status();
  EXPECT_EQ(seen.at("state"), "allow");
  EXPECT_EQ(seen.at("pct"), 90);
  EXPECT_EQ(seen.at("plugged"), true);
  EXPECT_EQ(seen.at("upper"), 85);
  EXPECT_EQ(seen.at("enabled"), true);
  EXPECT_EQ(seen.at("discharge"), false);
  EXPECT_EQ(seen.at("hot"), false);
  EXPECT_EQ(seen.at("topUp"), false);
  EXPECT_EQ(seen.at("chargeMode"), "none");
  EXPECT_EQ(seen.at("dischargeSupported"), false);
  EXPECT_EQ(seen.at("ledSupported"), false);
  EXPECT_TRUE(seen.contains("temp"));
  EXPECT_THAT(mac.read("/Library/Application Support/Brisko/history/2026-03-01.jsonl"),
              HasSubstr("\"s\":\"allow\""));

  mac.unplug();
  daemon.run(30);
  EXPECT_EQ(status().at("plugged"), false);
  EXPECT_THAT(mac.writes(), IsEmpty());
}

TEST_F(LockedDaemon, showsTheLimitOfTheSettingsBetween20And100) {
  struct Case {
    const char* settings;
    int upper;
  };
  DaemonProcess daemon(mac);
  for (const Case& example : {Case{R"({"limit":19})", 20}, Case{R"({"limit":101})", 100},
                              Case{R"({"limit":20})", 20}, Case{"{", 80}}) {
    mac.settings(example.settings);
    daemon.run(30);
    EXPECT_EQ(status().at("upper"), example.upper) << example.settings;
  }
}

TEST_F(LockedDaemon, usesTheDefaultLimitNotThatOfTheCommandLineWithoutSettings) {
  DaemonProcess(mac, {"--limit", "60"}).run(0);
  EXPECT_EQ(status().at("upper"), 80);
}

TEST_F(LockedDaemon, publishesNothingWithoutAPowerSource) {
  mac.number(ChangeKind::powerSources, static_cast<double>(virtual_mac::PowerSourceFault::emptyList));
  DaemonProcess daemon(mac);
  daemon.run(60);
  EXPECT_FALSE(mac.exists(statusFile));
  mac.number(ChangeKind::powerSources, static_cast<double>(virtual_mac::PowerSourceFault::none));
  daemon.run(12);
  EXPECT_TRUE(mac.exists(statusFile));
}

TEST_F(LockedDaemon, writesNoKeyAndServesNoRequestUntilItEnds) {
  DaemonProcess daemon(mac);
  daemon.run(60);
  mac.settings(R"({"topUp":true,"calibrate":true,"resetStats":true})");
  mac.temperature(60);
  daemon.run(3600);
  mac.sleep();
  daemon.run(3600);
  mac.wake();
  daemon.run(60);
  daemon.signal(SIGTERM).run(1);
  EXPECT_EQ(daemon.status(), 0);
  EXPECT_EQ(mac.read(configFile), R"({"topUp":true,"calibrate":true,"resetStats":true})");
  for (const auto& entry : mac.writes()) EXPECT_THAT(entry, ::testing::Not(HasSubstr("="))) << entry;
  EXPECT_EQ(mac.logLines().back(), "Signal 15: charging, adapter and LED restored, exiting.");
  EXPECT_THAT(mac.logLines(), ::testing::SizeIs(3));
}

TEST_F(LockedDaemon, abortsOnASoakTimeThatOverflowsOnlyAtTheStatus) {
  mac.settings(R"({"calSoakMinutes":153722867280912930})");
  DaemonProcess survives(mac);
  survives.run(0);
  EXPECT_TRUE(survives.alive());
  survives.kill();
  mac.settings(R"({"calSoakMinutes":153722867280912931})");
  DaemonProcess dies(mac);
  dies.run(0);
  EXPECT_EQ(dies.endSignal(), SIGABRT);
}

}  // namespace
}  // namespace brisko::locked_system_test
