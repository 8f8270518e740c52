// Compares the examples in docs/files.md with what the daemon reads and writes.

#include "records/files_document.h"

#include <cstdlib>
#include <filesystem>
#include <map>
#include <nlohmann/json.hpp>

#include "base/json_file.h"
#include "base/log.h"
#include "base/options.h"
#include "base/paths.h"
#include "base/process_flags.h"
#include "base/settings.h"
#include "calibration/calibration_record.h"
#include "hardware/charge_gate.h"
#include "hardware/scheduled_wake.h"
#include "records/history.h"
#include "records/statistics.h"
#include "records/status.h"
#include "state/calibration_state.h"
#include "state/machine_abilities.h"
#include "state/native_limit_state.h"
#include "state/tick_state.h"
#include "support/on_virtual_mac.h"
#include "support/testing.h"

namespace brisko::files_document_test {
namespace {

class FilesDocument : public test::OnVirtualMac {
 protected:
  void SetUp() override {
    ASSERT_EQ(::setenv("TZ", "UTC", 1), 0);
    std::filesystem::create_directories(mac.path(historyDir));
  }

  const std::string& example(const std::string& name) { return examples_.at(name); }
  // With the keys in the order of the file.
  Json object(const std::string& name) {
    const std::string& text = example(name);
    Json value = Json::parse(text);
    EXPECT_EQ(nlohmann::ordered_json::parse(text).dump(), value.dump());
    return value;
  }

 private:
  std::map<std::string, std::string> examples_ = test::examplesOfFilesDocument();
};

TEST_F(FilesDocument, hasOneExampleOfEachFile) {
  std::vector<std::string> names;
  for (const auto& [name, text] : test::examplesOfFilesDocument()) names.push_back(name);
  EXPECT_THAT(names,
              ::testing::UnorderedElementsAre("config.json", "status.json", "stats.json", "calibration.json",
                                              "history/2026-03-01.jsonl", "daemon.log"));
}

TEST_F(FilesDocument, showsTheDefaultsOfTheSettings) {
  const Json settings = object("config.json");
  EXPECT_EQ(parseConfig(settings), Settings{});
  writeConfig(Settings{}, std::nullopt, std::nullopt, std::nullopt);
  EXPECT_EQ(mac.read(defaultConfigPath), settings.dump());
  // Each key is read: a different value results in a different record.
  for (const auto& [key, value] : settings.items()) {
    Json changed = settings;
    if (value.is_boolean()) {
      changed[key] = !value.get<bool>();
    } else {
      changed[key] = value.get<double>() + 1;
    }
    EXPECT_NE(parseConfig(changed), Settings{}) << key;
  }
}

TEST_F(FilesDocument, showsAStatusAsItIsWritten) {
  const Json status = object("status.json");
  const Json& cal = status["cal"];
  const Json& run = cal["runs"][0];
  gGate = ChargeGate{ChargeKeys::chte, AdapterCutKey::chie};
  gLedSupported = status["ledSupported"];
  dischargeSupported = status["dischargeSupported"];
  gDischargeBroken = status["dischargeFailed"];
  gProbedKeys = status["smcKeys"].get<std::vector<std::string>>();
  gDaemonPath = status["daemonPath"];
  daemonStartedAt = status["startedAt"];
  gProtectedSeconds = status["protectedSeconds"];
  gStatsSince = status["since"];
  gGateVerified = status["gateVerified"].get<bool>();
  gNativeFloor = status["nativeFloor"].get<std::int64_t>();
  gGuards = {.night = true, .menu = true, .swing = true};
  gScheduledWake = status["nextWake"].get<double>();
  gNativeFullUntil = status["fullUntil"].get<double>();
  gDischargeUnseen = status["dischargeUnseen"];
  gCal = {.phase = CalPhase::soak,
          .startedAt = cal["startedAt"],
          .phaseSince = cal["phaseSince"],
          .soakBanked = cal["soakBanked"],
          .runs = {{.at = run["at"],
                    .beforeRaw = run["beforeRaw"].get<std::int64_t>(),
                    .afterRaw = run["afterRaw"].get<std::int64_t>(),
                    .beforeNominal = run["beforeNominal"].get<std::int64_t>(),
                    .afterNominal = run["afterNominal"].get<std::int64_t>(),
                    .design = run["design"].get<std::int64_t>(),
                    .cyclesBefore = run["cyclesBefore"].get<std::int64_t>(),
                    .cyclesAfter = run["cyclesAfter"].get<std::int64_t>()}},
          .lastFailure = CalFailure{cal["lastFailure"]["reason"], CalPhase::drain}};
  ASSERT_EQ(status["ts"], mac.machine().now);
  writeStatus({.state = ChargeState::allow,
               .pct = status["pct"],
               .plugged = status["plugged"],
               .upper = status["upper"],
               .enabled = status["enabled"],
               .discharge = status["discharge"],
               .hot = status["hot"],
               .temp = status["temp"].get<double>(),
               .topUp = status["topUp"],
               .calDrainTarget = cal["drainTarget"],
               .calSoakSeconds = cal["soakSeconds"]});
  EXPECT_EQ(mac.read(statusPath), status.dump());
}

TEST_F(FilesDocument, showsStatisticsAsTheyAreReadAndWritten) {
  const Json stats = object("stats.json");
  mac.write(statsPath, example("stats.json"));
  readStats();
  EXPECT_DOUBLE_EQ(gProtectedSeconds, 86'400);
  EXPECT_DOUBLE_EQ(gStatsSince, 1769904000);
  EXPECT_DOUBLE_EQ(gTopUpSince, 0);
  EXPECT_EQ(gAtLimit, true);
  EXPECT_EQ(gNativeBefore, 85);
  writeStats();
  EXPECT_EQ(mac.read(statsPath), stats.dump());
}

TEST_F(FilesDocument, showsACalibrationAsItIsReadAndWritten) {
  const Json calibration = object("calibration.json");
  mac.write(calibrationPath, example("calibration.json"));
  readCalibration();
  EXPECT_EQ(gCal.phase, CalPhase::soak);
  EXPECT_EQ(gCal.before, (GaugeReading{.raw = 4251, .nominal = 4305, .design = 4563, .cycles = 120}));
  EXPECT_EQ(gCal.lastFailure, (CalFailure{"stalled", CalPhase::drain}));
  writeCalibration();
  EXPECT_EQ(mac.read(calibrationPath), calibration.dump());
}

TEST_F(FilesDocument, showsAHistoryLineAsItIsWritten) {
  const std::string line = example("history/2026-03-01.jsonl");
  {
    const auto update = mac.store().update();
    update.machine().gauge.currentMA = 350;
    update.machine().gauge.voltageMV = 12'300;
  }
  recordSample({.pct = 80, .state = ChargeState::hold, .plugged = true, .hot = true, .temp = 31.2},
               Settings{});
  EXPECT_EQ(mac.read(std::string(historyDir) + "/2026-03-01.jsonl"), line);
}

TEST_F(FilesDocument, showsALogLineAsItIsWritten) {
  log("→ state: hold");
  EXPECT_EQ(mac.read("/Library/Logs/Brisko/daemon.log"), example("daemon.log"));
}

}  // namespace
}  // namespace brisko::files_document_test
