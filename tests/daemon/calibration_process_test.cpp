// Calibrations from beginning to end, over whole processes of the daemon.

#include <algorithm>
#include <cmath>
#include <csignal>
#include <cstdlib>
#include <ctime>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>

#include "base/json_file.h"
#include "base/options.h"
#include "base/paths.h"
#include "support/daemon_process.h"
#include "support/testing.h"
#include "support/virtual_mac.h"

namespace brisko::calibration_process_test {
namespace {

using namespace test;
using Bytes = std::vector<std::uint8_t>;

#define EM_DASH "\xE2\x80\x94"
#define ARROW "\xE2\x86\x92"

constexpr double minute = 60;
constexpr double hour = 3600;
constexpr double day = 24 * hour;
constexpr double longestPhase = 3 * day;

constexpr const char* asked = R"({"calibrate":true})";
constexpr const char* started = "calibration started " EM_DASH " capacity before: 4427 mAh";
constexpr const char* drain = "calibration " ARROW " drain";
constexpr const char* refill = "calibration " ARROW " refill";
constexpr const char* soak = "calibration " ARROW " soak";
constexpr const char* restore = "calibration " ARROW " restore";
constexpr const char* finished =
    "calibration finished " EM_DASH " capacity 4427 mAh " ARROW " 4427 mAh, 37 cycles";

// "2026-03-01T08:15:30Z" at the beginning of a line, as seconds since 1970.
double stampOf(const std::string& line) {
  std::tm parts{};
  if (::strptime(line.c_str(), "%Y-%m-%dT%H:%M:%SZ", &parts) == nullptr) return -1;
  return static_cast<double>(::timegm(&parts));
}

class CalibrationDaemon : public ::testing::Test {
 protected:
  void make(double percent, const std::string& settings = asked, MachineOptions options = {},
            std::string_view model = "air13") {
    options.percent = percent;
    daemon.reset();
    mac.reset();  // only one machine can be attached at a time
    mac = std::make_unique<VirtualMac>(options, model);
    mac->settings(settings);
  }
  // A run that an earlier process left in this phase, which began `age` seconds ago.
  void leave(const std::string& phase, double age = 0) {
    const double since = mac->machine().now - age;
    mac->write(calibrationPath, Json{{"phase", phase},
                                     {"startedAt", since},
                                     {"phaseSince", since},
                                     {"soakBanked", 0.0},
                                     {"runs", Json::array()}}
                                    .dump());
  }
  void startDaemon() {
    daemon = std::make_unique<DaemonProcess>(*mac);
    daemon->run(0);
  }
  // On a Mac at this charge, with a run that an earlier process has just left in this phase.
  void startIn(const std::string& phase, double percent) {
    make(percent);
    leave(phase);
    startDaemon();
  }
  void end() {
    daemon->signal(SIGTERM).run(1);
    ASSERT_EQ(daemon->status(), 0);
  }
  // Runs until the line was logged, to the minute. False if that takes longer than `hours`.
  bool runUntil(const std::string& line, double hours) {
    for (double passed = 0; passed <= hours * hour; passed += minute) {
      if (logged(line)) return true;
      daemon->run(minute);
    }
    return logged(line);
  }
  [[nodiscard]] bool logged(const std::string& line) const {
    const auto lines = mac->logLines();
    return std::find(lines.begin(), lines.end(), line) != lines.end();
  }
  // When the line was last logged; -1 for never.
  [[nodiscard]] double timeOf(const std::string& line) const {
    double time = -1;
    for (const std::string& stamped : mac->stampedLogLines()) {
      if (stamped.ends_with("  " + line)) time = stampOf(stamped);
    }
    return time;
  }
  [[nodiscard]] std::vector<std::string> calibrationLines() const {
    std::vector<std::string> lines = mac->logLines();
    std::erase_if(lines, [](const std::string& line) { return !line.starts_with("calibration "); });
    return lines;
  }
  [[nodiscard]] Json record() const { return Json::parse(mac->read(calibrationPath)); }
  [[nodiscard]] Json status() const { return Json::parse(mac->read(statusPath)); }
  [[nodiscard]] std::string config() const { return mac->read(defaultConfigPath); }
  [[nodiscard]] double level() const { return virtual_mac::level(mac->machine()); }
  [[nodiscard]] double now() const { return mac->machine().now; }
  [[nodiscard]] bool adapterIsCut() const { return mac->key("CHIE") == Bytes{8}; }

  std::unique_ptr<VirtualMac> mac;
  std::unique_ptr<DaemonProcess> daemon;
};

// --- one run

TEST_F(CalibrationDaemon, runsFromTheRequestToTheRecordedRun) {
  make(90);
  startDaemon();
  const double begun = now();
  EXPECT_EQ(timeOf(started), begun);
  EXPECT_EQ(status()["cal"], (Json{{"phase", "fill"},
                                   {"runs", Json::array()},
                                   {"startedAt", begun},
                                   {"phaseSince", begun},
                                   {"soakBanked", 0},
                                   {"soakSeconds", 3600},
                                   {"drainTarget", 15}}));

  ASSERT_TRUE(runUntil(drain, 2));
  EXPECT_TRUE(adapterIsCut());
  EXPECT_GE(level(), 99.0);
  ASSERT_TRUE(runUntil(refill, 24));
  EXPECT_FALSE(adapterIsCut());
  EXPECT_NEAR(level(), 15, 0.6);
  ASSERT_TRUE(runUntil(soak, 6));
  daemon->run(30 * minute);
  EXPECT_EQ(record()["soakBanked"], 0.0) << "kept only at the beginning of a phase";
  EXPECT_NEAR(status()["cal"]["soakBanked"].get<double>(), 30 * minute, minute);
  EXPECT_EQ(status()["state"], "allow");
  ASSERT_TRUE(runUntil(restore, 2));
  EXPECT_TRUE(adapterIsCut());
  ASSERT_TRUE(runUntil(finished, 12));
  EXPECT_NEAR(level(), 80, 0.6);
  EXPECT_FALSE(adapterIsCut());
  EXPECT_EQ(calibrationLines(), (std::vector<std::string>{started, drain, refill, soak, restore, finished}));

  // The gauge publishes every minute, with a tick at once, so a soak of an hour takes an hour.
  for (const char* line : {drain, refill, soak, restore, finished})
    EXPECT_EQ(std::fmod(timeOf(line) - begun, minute), 0) << line;
  EXPECT_EQ(timeOf(restore) - timeOf(soak), hour);

  // The limit is in force again, and the request is cleared.
  EXPECT_THAT(config(), HasSubstr("\"calibrate\":false"));
  EXPECT_EQ(status()["state"], "hold");
  EXPECT_EQ(record()["phase"], "idle");
  EXPECT_EQ(record()["startedAt"], begun);
  EXPECT_EQ(record()["phaseSince"], timeOf(restore));
  EXPECT_EQ(record()["runs"], (Json::array({{{"at", timeOf(finished)},
                                             {"beforeRaw", 4427},
                                             {"afterRaw", 4427},
                                             {"beforeNominal", 4554},
                                             {"afterNominal", 4554},
                                             {"design", 4563},
                                             {"cyclesBefore", 37},
                                             {"cyclesAfter", 37}}})));
  EXPECT_EQ(status()["cal"], (Json{{"phase", "idle"}, {"runs", record()["runs"]}}));
  daemon->run(3 * hour);
  EXPECT_NEAR(level(), 80, 1);
  EXPECT_THAT(calibrationLines(), SizeIs(6));
  EXPECT_THAT(mac->logLines(), Not(Contains(HasSubstr("\xE2\x9A\xA0\xEF\xB8\x8F"))));
}

TEST_F(CalibrationDaemon, runsOnEveryFamilyOfKeys) {
  for (const char* model : {"pro14", "pro16"}) {
    make(97, R"({"calibrate":true,"calDrain":60,"calSoakMinutes":10})", {}, model);
    startDaemon();
    const std::string end = "calibration finished";
    for (int hours = 0; hours < 48 && calibrationLines().size() < 6; ++hours) daemon->run(hour);
    ASSERT_THAT(calibrationLines(), SizeIs(6)) << model;
    EXPECT_THAT(calibrationLines().back(), StartsWith(end));
    EXPECT_EQ(timeOf(restore) - timeOf(soak), 10 * minute);
    EXPECT_NEAR(level(), 80, 2) << model;
  }
}

TEST_F(CalibrationDaemon, startsWithinTheSecondOfTheRequest) {
  make(70, "{}");
  startDaemon();
  daemon->run(30);
  EXPECT_THAT(calibrationLines(), IsEmpty());
  mac->settings(asked);
  daemon->run(1);
  EXPECT_THAT(calibrationLines(), ElementsAre(started));
}

TEST_F(CalibrationDaemon, reportsNoCapacityWithoutAGauge) {
  make(97, R"({"calibrate":true,"calDrain":95,"calSoakMinutes":1,"limit":98})");
  mac->property("AppleSmartBattery", virtual_mac::PropertyFault::missing);
  startDaemon();
  ASSERT_TRUE(runUntil("calibration finished " EM_DASH " capacity ? mAh " ARROW " ? mAh, ? cycles", 12));
  EXPECT_EQ(calibrationLines().front(), "calibration started " EM_DASH " capacity before: unknown");
  EXPECT_EQ(record()["runs"], (Json::array({{{"at", record()["runs"][0]["at"]}}})));
}

TEST_F(CalibrationDaemon, keepsTheNewest40RunsOfAFileWithMore) {
  for (const int count : {39, 40, 41, 50}) {
    make(80);
    Json runs = Json::array();
    for (int run = 1; run <= count; ++run) runs.push_back({{"at", run}});
    mac->write(calibrationPath, Json{{"phase", "restore"}, {"phaseSince", now()}, {"runs", runs}}.dump());
    startDaemon();
    EXPECT_THAT(status()["cal"]["runs"], SizeIs(40));
    EXPECT_THAT(record()["runs"], SizeIs(40));
    EXPECT_EQ(record()["runs"][0]["at"], count - 38.0);
    EXPECT_EQ(record()["runs"][39]["at"], now());
  }
}

// --- cancelled and stalled

struct Step {
  const char* phase;
  double percent;
};
constexpr Step steps[] = {{"fill", 90}, {"drain", 60}, {"refill", 60}, {"soak", 100}, {"restore", 90}};

TEST_F(CalibrationDaemon, canBeCancelledInEachPhase) {
  for (const Step& step : steps) {
    startIn(step.phase, step.percent);
    daemon->run(minute);
    EXPECT_EQ(status()["cal"]["phase"], step.phase);
    const bool draining = adapterIsCut();
    EXPECT_EQ(draining, step.phase == std::string("drain") || step.phase == std::string("restore"));
    mac->settings("{}");
    daemon->run(0.5);
    EXPECT_THAT(calibrationLines(), ElementsAre("calibration cancelled")) << step.phase;
    EXPECT_FALSE(adapterIsCut());
    EXPECT_EQ(status()["state"], step.percent < 80 ? "allow" : "hold") << step.phase;
    EXPECT_EQ(record()["phase"], "idle");
    EXPECT_FALSE(record().contains("lastFailure"));
    EXPECT_FALSE(status()["cal"].contains("lastFailure"));
    daemon->run(hour);
    EXPECT_THAT(calibrationLines(), SizeIs(1));
  }
}

TEST_F(CalibrationDaemon, stallsInEachPhaseAfterMoreThan3Days) {
  for (const Step& step : steps) {
    make(step.percent, R"({"calibrate":true,"calSoakMinutes":10000})");
    leave(step.phase, longestPhase - 12);
    const double begun = now();
    startDaemon();
    daemon->run(13);
    EXPECT_THAT(calibrationLines(), IsEmpty()) << step.phase;
    daemon->run(12);
    const std::string line = std::string("calibration stopped: stalled at the ") + step.phase + " step";
    EXPECT_THAT(calibrationLines(), ElementsAre(line));
    EXPECT_EQ(timeOf(line), begun + 24) << "12 s earlier it was exactly three days";
    EXPECT_THAT(config(), HasSubstr("\"calibrate\":false"));
    EXPECT_EQ(status()["cal"]["lastFailure"], (Json{{"reason", "stalled"}, {"phase", step.phase}}));
    EXPECT_FALSE(adapterIsCut());
    // The failure is remembered, and forgotten by the next run.
    daemon->kill();
    startDaemon();
    EXPECT_EQ(status()["cal"]["lastFailure"]["phase"], step.phase);
    mac->settings(asked);
    daemon->run(1);
    EXPECT_FALSE(status()["cal"].contains("lastFailure"));
  }
}

TEST_F(CalibrationDaemon, stallsOnTheAdapterWhereTheMacCannotDischarge) {
  make(100, asked, {.cut = CutKind::none});
  leave("drain", longestPhase - 2 * hour);
  const double begun = now();
  startDaemon();
  daemon->run(3 * hour);
  const char* stalled = "calibration stopped: stalled at the drain step";
  EXPECT_THAT(calibrationLines(), ElementsAre(stalled));
  EXPECT_EQ(timeOf(stalled), begun + 2 * hour + 12);
  EXPECT_THAT(config(), HasSubstr("\"calibrate\":false"));
}

TEST_F(CalibrationDaemon, drainsUnpluggedWhereTheMacCannotDischargeOnTheAdapter) {
  make(99, R"({"calibrate":true,"calDrain":90,"calSoakMinutes":1})", {.cut = CutKind::none});
  startDaemon();
  ASSERT_TRUE(runUntil(drain, 2));
  daemon->run(hour);
  EXPECT_EQ(status()["state"], "allow");
  mac->unplug();
  ASSERT_TRUE(runUntil(refill, 12));
  mac->plugIn();
  ASSERT_TRUE(runUntil(restore, 6));
  mac->unplug();
  EXPECT_TRUE(runUntil(finished, 12));
}

TEST_F(CalibrationDaemon, waitsForTheUserToUnplugWhenTheCutHasNoEffect) {
  make(60);
  leave("drain");
  mac->keyOnWrite("CHIE", OnWrite::storeWithoutEffect);
  startDaemon();
  daemon->run(5 * minute);
  EXPECT_THAT(mac->logLines(), Contains(HasSubstr("forced discharge has no effect")));
  EXPECT_FALSE(adapterIsCut());
  EXPECT_EQ(status()["state"], "allow");
  EXPECT_EQ(status()["cal"]["phase"], "drain");
  mac->unplug();
  ASSERT_TRUE(runUntil(refill, 12));
  EXPECT_THAT(mac->logLines(), Contains("forced discharge re-armed (adapter unplugged)"));
}

// --- restarts

TEST_F(CalibrationDaemon, continuesInEachPhaseAfterARestart) {
  for (const bool orderly : {true, false}) {
    for (const Step& step : steps) {
      startIn(step.phase, step.percent);
      daemon->run(minute);
      const Json before = record();
      const bool draining = adapterIsCut();
      if (orderly) {
        end();
        EXPECT_FALSE(adapterIsCut());
      } else {
        daemon->kill();
        EXPECT_EQ(adapterIsCut(), draining);
      }
      mac->pass(10);
      startDaemon();
      EXPECT_EQ(status()["cal"]["phase"], step.phase);
      EXPECT_EQ(adapterIsCut(), draining) << step.phase;
      EXPECT_EQ(record(), before);
      EXPECT_THAT(calibrationLines(), IsEmpty()) << "it only continues";
    }
  }
}

TEST_F(CalibrationDaemon, startsTheSoakAgainAfterARestart) {
  for (const bool orderly : {true, false}) {
    startIn("soak", 100);
    daemon->run(40 * minute);
    if (orderly) {
      end();
    } else {
      daemon->kill();
    }
    mac->pass(3 * minute);
    startDaemon();
    const double again = now();
    EXPECT_EQ(status()["cal"]["soakBanked"], 0);
    ASSERT_TRUE(runUntil(restore, 2));
    // The first tick counts nothing; those after it count an hour.
    EXPECT_EQ(timeOf(restore), again + hour);
  }
}

TEST_F(CalibrationDaemon, continuesWhenTheMacWasSwitchedOff) {
  startIn("drain", 25);
  daemon->run(10 * minute);
  ASSERT_TRUE(adapterIsCut());
  end();
  virtual_mac::shutDown(mac->store().update().machine());
  mac->pass(9 * hour);
  EXPECT_EQ(record()["phase"], "drain");
  virtual_mac::boot(mac->store().update().machine());
  startDaemon();
  EXPECT_EQ(status()["cal"]["phase"], "drain");
  ASSERT_TRUE(runUntil(refill, 24));
  EXPECT_NEAR(level(), 15, 0.6);
}

TEST_F(CalibrationDaemon, stallsWhenTheMacWasSwitchedOffForMoreThan3Days) {
  struct Case {
    double seconds;
    const char* line;
  };
  // The Mac also charges while it is off, so after exactly three days the refill is complete.
  for (const Case& off : {Case{longestPhase, soak},
                          Case{longestPhase + 1, "calibration stopped: stalled at the refill step"}}) {
    startIn("refill", 60);
    end();
    virtual_mac::shutDown(mac->store().update().machine());
    mac->pass(off.seconds);
    virtual_mac::boot(mac->store().update().machine());
    startDaemon();
    EXPECT_THAT(calibrationLines(), ElementsAre(off.line));
  }
}

TEST_F(CalibrationDaemon, endsWithItsFileAndStartsAgainByItsRequest) {
  for (const char* text : {"", "{", "[]", R"({"phase":"nonsense"})", "\xFF"}) {
    make(60);
    mac->write(calibrationPath, text);
    startDaemon();
    EXPECT_THAT(calibrationLines(), ElementsAre(started)) << text;
  }
}

TEST_F(CalibrationDaemon, endsEveryProcessOnASoakBeyond64BitsWhileItIsPublished) {
  make(70);
  mac->write(calibrationPath, Json{{"phase", "fill"}, {"phaseSince", now()}, {"soakBanked", 1e300}}.dump());
  for (int time = 0; time < 3; ++time) {
    startDaemon();
    EXPECT_EQ(daemon->endSignal(), SIGABRT);
    EXPECT_EQ(daemon->errors(), "brisko-daemon: a number does not fit a 64-bit integer\n");
  }
  // The next phase resets it before it is published.
  mac->charge(100);
  startDaemon();
  EXPECT_TRUE(daemon->alive());
  EXPECT_THAT(calibrationLines(), ElementsAre(drain));
}

TEST_F(CalibrationDaemon, toleratesASoakBeyond64BitsWhileIdle) {
  make(70, "{}");
  mac->write(calibrationPath, R"({"phase":"idle","soakBanked":1e300})");
  startDaemon();
  EXPECT_TRUE(daemon->alive());
  mac->settings(asked);
  daemon->run(minute);
  EXPECT_TRUE(daemon->alive());
  EXPECT_EQ(status()["cal"]["soakBanked"], 0);
}

// --- sleep

TEST_F(CalibrationDaemon, sleepsThroughTheDrainWithTheAdapterCut) {
  startIn("drain", 30);
  daemon->run(10 * minute);
  mac->sleep();
  daemon->run(8 * hour);
  EXPECT_TRUE(mac->machine().system.asleep);
  EXPECT_TRUE(adapterIsCut());
  EXPECT_THAT(mac->pendingWakes(), IsEmpty());
  mac->wake();
  ASSERT_TRUE(runUntil(refill, 12));
}

TEST_F(CalibrationDaemon, drainsInDarkWakesToo) {
  startIn("drain", 60);
  daemon->run(minute);
  mac->sleep();
  daemon->run(hour);
  mac->keyBytes("CHIE", {0});  // reset by the system
  mac->wakeDark(10 * minute);
  daemon->run(minute);
  EXPECT_TRUE(adapterIsCut());
  EXPECT_THAT(mac->logLines(), Not(Contains(StartsWith("r\xC3\xA9veil de maintenance"))));
}

TEST_F(CalibrationDaemon, countsTwoMinutesOfASleepInTheSoak) {
  startIn("soak", 100);
  const double begun = now();
  daemon->run(30 * minute);
  // Each dark wake would count too.
  mac->number(ChangeKind::nights, static_cast<double>(virtual_mac::Nights::quiet)).sleep();
  daemon->run(8 * hour);
  ASSERT_TRUE(mac->machine().system.asleep);
  const double woken = now();
  mac->wake();
  ASSERT_TRUE(runUntil(restore, 2));
  // The half hour up to the last tick before the sleep counts, then 2 min of the sleep, then the rest.
  const double missing = timeOf(restore) - woken;
  EXPECT_GE(missing, 28 * minute - 12);
  EXPECT_LE(missing, 28 * minute + 24);
  EXPECT_GT(timeOf(restore) - begun, 8 * hour);
}

// --- unplugged, hot, edited

TEST_F(CalibrationDaemon, waitsInTheSoakWhileUnplugged) {
  startIn("soak", 100);
  const double begun = now();
  daemon->run(10 * minute);
  mac->unplug();
  daemon->run(10 * minute);
  mac->plugIn(30);
  ASSERT_TRUE(runUntil(restore, 3));
  EXPECT_EQ(timeOf(restore), begun + hour + 10 * minute);
}

TEST_F(CalibrationDaemon, chargesToFullAgainBeforeTheSoakContinues) {
  startIn("soak", 100);
  const double begun = now();
  daemon->run(30 * minute);
  mac->unplug();
  daemon->run(2 * hour);
  EXPECT_LT(level(), 90);
  EXPECT_EQ(status()["cal"]["phase"], "soak");
  mac->plugIn(30);
  ASSERT_TRUE(runUntil(restore, 6));
  EXPECT_GT(timeOf(restore), begun + 3 * hour);
  EXPECT_GE(level(), 99);
}

TEST_F(CalibrationDaemon, pausesWhileTheBatteryIsHotAndContinues) {
  make(97, R"({"calibrate":true,"calDrain":95,"calSoakMinutes":1,"limit":98,"thermal":true})");
  mac->number(ChangeKind::ambient, 45).temperature(45);
  startDaemon();
  daemon->run(2 * hour);
  EXPECT_EQ(status()["cal"]["phase"], "fill");
  EXPECT_EQ(status()["hot"], true);
  EXPECT_EQ(status()["state"], "hold");
  mac->number(ChangeKind::ambient, 20).temperature(25);
  EXPECT_TRUE(runUntil(finished, 12));
}

TEST_F(CalibrationDaemon, followsEditsAtOnce) {
  startIn("drain", 60);
  daemon->run(minute);
  mac->settings(R"({"calibrate":true,"calDrain":70})");
  daemon->run(0.5);
  EXPECT_THAT(calibrationLines(), ElementsAre(refill));

  startIn("soak", 100);
  const double begun = now();
  daemon->run(50 * minute);
  mac->settings(R"({"calibrate":true,"calSoakMinutes":90})");
  daemon->run(30 * minute);
  EXPECT_THAT(calibrationLines(), IsEmpty());
  mac->settings(R"({"calibrate":true,"calSoakMinutes":30})");
  daemon->run(0.5);
  EXPECT_EQ(timeOf(restore), begun + 80 * minute);
}

TEST_F(CalibrationDaemon, replacesATopUp) {
  make(97, R"({"calibrate":true,"topUp":true,"calDrain":95,"calSoakMinutes":1,"limit":98})");
  startDaemon();
  EXPECT_THAT(config(), HasSubstr("\"topUp\":false"));
  EXPECT_EQ(status()["topUp"], false);
  ASSERT_TRUE(runUntil(finished, 12));
  daemon->run(hour);
  EXPECT_THAT(mac->logLines(), Not(Contains(HasSubstr("TopUp"))));
  EXPECT_THAT(mac->logLines(), Not(Contains(HasSubstr("Top Up"))));
}

TEST_F(CalibrationDaemon, isFollowedByATopUpThatWasRequestedMeanwhile) {
  make(97, R"({"calibrate":true,"calDrain":95,"calSoakMinutes":1,"limit":98})");
  startDaemon();
  daemon->run(minute);
  mac->settings(R"({"calibrate":true,"topUp":true,"calDrain":95,"calSoakMinutes":1,"limit":98})");
  ASSERT_TRUE(runUntil(finished, 12));
  daemon->run(minute);
  EXPECT_EQ(status()["topUp"], true);
  EXPECT_THAT(config(), HasSubstr("\"calibrate\":false"));
  EXPECT_THAT(config(), HasSubstr("\"topUp\":true"));
}

// --- the clock

TEST_F(CalibrationDaemon, stallsOnAClockThatIsSetFarAhead) {
  startIn("refill", 60);
  mac->number(ChangeKind::clockStep, 4 * day);
  daemon->run(12);
  EXPECT_THAT(calibrationLines(), ElementsAre("calibration stopped: stalled at the refill step"));
}

TEST_F(CalibrationDaemon, soaksForLongerWhenTheClockIsSetBack) {
  startIn("soak", 100);
  const double begun = now();
  daemon->run(10 * minute);
  mac->number(ChangeKind::clockStep, -30 * minute);
  ASSERT_TRUE(runUntil(restore, 3));
  EXPECT_EQ(now(), begun + 90 * minute);
}

}  // namespace
}  // namespace brisko::calibration_process_test
