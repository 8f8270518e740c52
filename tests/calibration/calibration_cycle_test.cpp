#include "calibration/calibration_cycle.h"

#include <filesystem>
#include <nlohmann/json.hpp>

#include "base/log.h"
#include "base/paths.h"
#include "base/process_flags.h"
#include "calibration/calibration_record.h"
#include "platform/clock.h"
#include "support/on_virtual_mac.h"
#include "support/testing.h"

namespace brisko::calibration_cycle_test {
namespace {

using namespace test;

// The lines with characters beyond ASCII, byte by byte.
#define EM_DASH "\xE2\x80\x94"
#define ARROW "\xE2\x86\x92"

constexpr double threeDays = 259'200;
constexpr const char* cancelled = "calibration cancelled";
constexpr CalPhase activePhases[] = {CalPhase::fill, CalPhase::drain, CalPhase::refill, CalPhase::soak,
                                     CalPhase::restore};

std::string started(const std::string& capacity) {
  return "calibration started " EM_DASH " capacity before: " + capacity;
}
std::string entered(const std::string& phase) { return "calibration " ARROW " " + phase; }
std::string finished(const std::string& before, const std::string& after, const std::string& cycles) {
  return "calibration finished " EM_DASH " capacity " + before + " mAh " ARROW " " + after + " mAh, " +
         cycles + " cycles";
}

// A Mac whose gauge reports 4427, 4554 and 4563 mAh and 37 cycles.
class CalibrationCycle : public test::OnVirtualMac {
 protected:
  CalibrationCycle() {
    std::filesystem::create_directories(mac.path(historyDir));
    std::filesystem::create_directories(mac.path(LogFile::defaultDirectory));
  }

  static double now() { return platform::wallNow(); }
  // Puts a run into this phase, which begins now; everything else about the run is unset.
  static void inPhase(CalPhase phase) {
    gCal = {.phase = phase, .startedAt = now(), .phaseSince = now(), .lastTick = now()};
  }
  static bool advance(const CalibrationInputs& inputs) { return advanceCalibration(inputs); }
  // One call after 12 s, in the soak, on the adapter at full charge.
  bool soak(double seconds = 12, bool plugged = true, std::int64_t pct = 100) {
    mac.pass(seconds);
    return advance({.pct = pct, .plugged = plugged});
  }
  Json file() { return Json::parse(mac.read(calibrationPath)); }
};

// --- start

TEST_F(CalibrationCycle, beginsByChargingToFull) {
  gCal.runs = {{.at = 5}};
  gCal.soakBanked = 9;
  gCal.lastFailure = CalFailure{"stalled", CalPhase::drain};
  startCalibration();
  EXPECT_EQ(gCal.phase, CalPhase::fill);
  EXPECT_EQ(gCal.startedAt, now());
  EXPECT_EQ(gCal.phaseSince, now());
  EXPECT_EQ(gCal.soakBanked, 0);
  EXPECT_EQ(gCal.lastTick, now());
  EXPECT_EQ(gCal.before, (GaugeReading{.raw = 4427, .nominal = 4554, .design = 4563, .cycles = 37}));
  EXPECT_EQ(gCal.lastFailure, std::nullopt);
  EXPECT_THAT(gCal.runs, ElementsAre(CalRun{.at = 5}));
  EXPECT_THAT(newLines(), ElementsAre(started("4427 mAh")));
  EXPECT_EQ(mac.read(calibrationPath),
            R"({"before":{"cycles":37,"design":4563,"nominal":4554,"raw":4427},"phase":"fill",)"
            R"("phaseSince":1772352000.0,"runs":[{"at":5.0}],"soakBanked":0.0,"startedAt":1772352000.0})");
}

TEST_F(CalibrationCycle, beginsWithoutACapacityToo) {
  mac.property("AppleRawMaxCapacity", PropertyFault::missing);
  startCalibration();
  EXPECT_EQ(gCal.before, (GaugeReading{.nominal = 4554, .design = 4563, .cycles = 37}));
  EXPECT_THAT(newLines(), ElementsAre(started("unknown")));
}

TEST_F(CalibrationCycle, beginsWithoutAGaugeToo) {
  gCal.before = GaugeReading{.raw = 1};
  mac.property("AppleSmartBattery", PropertyFault::missing);
  startCalibration();
  EXPECT_EQ(gCal.phase, CalPhase::fill);
  EXPECT_EQ(gCal.before, std::nullopt);
  EXPECT_FALSE(file().contains("before"));
  EXPECT_THAT(newLines(), ElementsAre(started("unknown")));
}

TEST_F(CalibrationCycle, beginsOnlyOnce) {
  for (const CalPhase phase : activePhases) {
    gCal = {.phase = phase, .startedAt = 1, .lastFailure = CalFailure{"x", CalPhase::fill}};
    EXPECT_THAT(filesWritten(startCalibration), IsEmpty());
    EXPECT_EQ(gCal.phase, phase);
    EXPECT_EQ(gCal.startedAt, 1);
    EXPECT_TRUE(gCal.lastFailure.has_value());
  }
  EXPECT_THAT(newLines(), IsEmpty());
}

// --- phase by phase

TEST_F(CalibrationCycle, doesNothingWhileIdle) {
  gCal.phaseSince = 1;  // long ago
  gCal.lastTick = 2;
  EXPECT_THAT(filesWritten([] { EXPECT_FALSE(advance({.pct = 100, .plugged = true, .soakSeconds = 0})); }),
              IsEmpty());
  EXPECT_EQ(gCal.phase, CalPhase::idle);
  EXPECT_EQ(gCal.lastTick, 2);
  EXPECT_THAT(newLines(), IsEmpty());
}

TEST_F(CalibrationCycle, fillsUntilTheBatteryIsFull) {
  inPhase(CalPhase::fill);
  EXPECT_FALSE(advance({.pct = 99, .drainTarget = 100}));
  EXPECT_EQ(gCal.phase, CalPhase::fill);
  EXPECT_FALSE(advance({.pct = 100, .drainTarget = 100}));
  EXPECT_EQ(gCal.phase, CalPhase::drain) << "the drain is for the next tick";
  EXPECT_FALSE(advance({.pct = 101, .drainTarget = 100}));
  EXPECT_EQ(gCal.phase, CalPhase::drain);
}

TEST_F(CalibrationCycle, countsMoreThanFullAsFull) {
  for (const CalPhase phase : {CalPhase::fill, CalPhase::refill}) {
    inPhase(phase);
    EXPECT_FALSE(advance({.pct = 102}));
    EXPECT_NE(gCal.phase, phase);
  }
}

TEST_F(CalibrationCycle, drainsDownToTheTarget) {
  inPhase(CalPhase::drain);
  EXPECT_FALSE(advance({.pct = 16, .drainTarget = 15}));
  EXPECT_EQ(gCal.phase, CalPhase::drain);
  EXPECT_FALSE(advance({.pct = 15, .drainTarget = 15}));
  EXPECT_EQ(gCal.phase, CalPhase::refill);
  // A raised target is reached at once, however far the charge is below it.
  inPhase(CalPhase::drain);
  EXPECT_FALSE(advance({.pct = 60, .drainTarget = 80}));
  EXPECT_EQ(gCal.phase, CalPhase::refill);
}

TEST_F(CalibrationCycle, refillsUntilTheBatteryIsFull) {
  inPhase(CalPhase::refill);
  EXPECT_FALSE(advance({.pct = 99, .soakSeconds = 0}));
  EXPECT_EQ(gCal.phase, CalPhase::refill);
  EXPECT_FALSE(advance({.pct = 100, .soakSeconds = 0}));
  EXPECT_EQ(gCal.phase, CalPhase::soak);
}

TEST_F(CalibrationCycle, dischargesToTheLimitAtTheEnd) {
  inPhase(CalPhase::restore);
  EXPECT_FALSE(advance({.pct = 81, .limit = 80}));
  EXPECT_EQ(gCal.phase, CalPhase::restore);
  EXPECT_TRUE(advance({.pct = 80, .limit = 80}));
  EXPECT_EQ(gCal.phase, CalPhase::idle);
}

TEST_F(CalibrationCycle, recordsEachPhaseInTheFileAndTheLog) {
  inPhase(CalPhase::fill);
  gCal.soakBanked = 7;
  mac.pass(100);
  EXPECT_THAT(filesWritten([] { EXPECT_FALSE(advance({.pct = 100})); }), ElementsAre("calibration.json"));
  EXPECT_EQ(gCal.phaseSince, now());
  EXPECT_EQ(gCal.startedAt, now() - 100);
  EXPECT_EQ(gCal.soakBanked, 0);
  EXPECT_EQ(mac.read(calibrationPath),
            R"({"phase":"drain","phaseSince":1772352100.0,"runs":[],"soakBanked":0.0,)"
            R"("startedAt":1772352000.0})");
  EXPECT_FALSE(advance({.pct = 15}));
  EXPECT_EQ(file()["phase"], "refill");
  EXPECT_FALSE(advance({.pct = 100}));
  EXPECT_EQ(file()["phase"], "soak");
  EXPECT_FALSE(advance({.pct = 100, .soakSeconds = 0}));
  EXPECT_EQ(file()["phase"], "restore");
  EXPECT_THAT(newLines(),
              ElementsAre(entered("drain"), entered("refill"), entered("soak"), entered("restore")));
}

TEST_F(CalibrationCycle, isWrittenToTheFileBeforeTheLog) {
  const std::vector<std::string> fileThenLog = {"calibration.json", "daemon.log"};
  EXPECT_EQ(filesWrittenAndLogged(startCalibration), fileThenLog);
  EXPECT_EQ(filesWrittenAndLogged([] { advance({.pct = 100}); }), fileThenLog);
  EXPECT_EQ(filesWrittenAndLogged([] { stopCalibration("cold", std::nullopt); }), fileThenLog);
  inPhase(CalPhase::fill);
  EXPECT_EQ(filesWrittenAndLogged([] { stopCalibration(std::nullopt, std::nullopt); }), fileThenLog);
  inPhase(CalPhase::restore);
  EXPECT_EQ(filesWrittenAndLogged([] { advance({.pct = 80}); }), fileThenLog);
}

TEST_F(CalibrationCycle, writesNothingWhileAPhaseLasts) {
  for (const CalPhase phase : activePhases) {
    inPhase(phase);
    EXPECT_THAT(filesWritten([this] { EXPECT_FALSE(soak(12, true, 90)); }), IsEmpty()) << phaseName(phase);
    EXPECT_EQ(gCal.phase, phase);
    EXPECT_EQ(gCal.lastTick, now());
  }
  EXPECT_THAT(newLines(), IsEmpty());
}

// --- soak

TEST_F(CalibrationCycle, soaksForTheConfiguredTimeInTotal) {
  inPhase(CalPhase::soak);
  for (int call = 1; call < 300; ++call) ASSERT_FALSE(soak());
  EXPECT_EQ(gCal.phase, CalPhase::soak);
  EXPECT_EQ(gCal.soakBanked, 3588);
  EXPECT_FALSE(soak());  // the time is added before it is compared
  EXPECT_EQ(gCal.phase, CalPhase::restore);
  EXPECT_EQ(now() - gCal.startedAt, 3600);
  EXPECT_EQ(gCal.soakBanked, 0);
}

TEST_F(CalibrationCycle, countsSoakOnlyOnTheAdapterAtFullCharge) {
  inPhase(CalPhase::soak);
  EXPECT_FALSE(soak());
  EXPECT_EQ(gCal.soakBanked, 12);
  for (int call = 0; call < 10; ++call) EXPECT_FALSE(soak(12, false));
  for (int call = 0; call < 10; ++call) EXPECT_FALSE(soak(12, true, 99));
  EXPECT_EQ(gCal.soakBanked, 12);
  // Then only the time since the last call counts, not the whole time off the adapter.
  EXPECT_FALSE(soak());
  EXPECT_EQ(gCal.soakBanked, 24);
}

TEST_F(CalibrationCycle, countsAtMost2MinutesOfAGap) {
  inPhase(CalPhase::soak);
  EXPECT_FALSE(soak(600));
  EXPECT_EQ(gCal.soakBanked, 120);
  EXPECT_FALSE(soak(120));
  EXPECT_EQ(gCal.soakBanked, 240);
  EXPECT_FALSE(soak(119.5));
  EXPECT_EQ(gCal.soakBanked, 359.5);
}

TEST_F(CalibrationCycle, subtractsSoakWhenTheClockIsSetBack) {
  inPhase(CalPhase::soak);
  EXPECT_FALSE(soak(100));
  mac.number(ChangeKind::clockStep, -1000);
  EXPECT_FALSE(soak(30));
  EXPECT_EQ(gCal.soakBanked, 100 - 970);
  EXPECT_FALSE(soak(30));
  EXPECT_EQ(gCal.soakBanked, 100 - 970 + 30);
}

TEST_F(CalibrationCycle, countsNoSoakInTheFirstCallAfterARestart) {
  inPhase(CalPhase::soak);
  gCal.lastTick = 0;
  EXPECT_FALSE(soak());
  EXPECT_EQ(gCal.soakBanked, 0);
  EXPECT_FALSE(soak());
  EXPECT_EQ(gCal.soakBanked, 12);
  // The same after a last call before 1970.
  gCal.lastTick = -5;
  EXPECT_FALSE(soak());
  EXPECT_EQ(gCal.soakBanked, 12);
}

TEST_F(CalibrationCycle, endsASoakOfNoTimeAtOnce) {
  for (const double seconds : {0.0, -60.0}) {
    inPhase(CalPhase::soak);
    EXPECT_FALSE(advance({.pct = 50, .plugged = false, .soakSeconds = seconds}));
    EXPECT_EQ(gCal.phase, CalPhase::restore);
  }
  inPhase(CalPhase::soak);
  EXPECT_FALSE(advance({.pct = 50, .plugged = false, .soakSeconds = 0.5}));
  EXPECT_EQ(gCal.phase, CalPhase::soak);
}

TEST_F(CalibrationCycle, neverEndsASoakThatIsPracticallyEndless) {
  inPhase(CalPhase::soak);
  mac.pass(12);
  EXPECT_FALSE(advance({.pct = 100, .plugged = true, .soakSeconds = 9.3e18 * 60}));
  EXPECT_EQ(gCal.phase, CalPhase::soak);
}

// --- stall

TEST_F(CalibrationCycle, isStoppedWhenAPhaseLastsMoreThan3Days) {
  for (const CalPhase phase : activePhases) {
    inPhase(phase);
    gCal.before = GaugeReading{.raw = 1};
    gCal.runs = {{.at = 5}};
    const double begun = gCal.startedAt;
    mac.pass(threeDays);
    // Neither full nor at any target, so that only the time limit applies.
    const CalibrationInputs inputs{.pct = 90, .plugged = true, .soakSeconds = 1e9};
    EXPECT_FALSE(advance(inputs)) << phaseName(phase);
    EXPECT_EQ(gCal.phase, phase);
    mac.pass(0.25);
    EXPECT_THAT(filesWritten([&inputs] { EXPECT_TRUE(advance(inputs)); }), ElementsAre("calibration.json"));
    EXPECT_EQ(gCal.phase, CalPhase::idle);
    EXPECT_EQ(gCal.lastFailure, (CalFailure{"stalled", phase}));
    EXPECT_EQ(gCal.before, std::nullopt);
    EXPECT_EQ(gCal.soakBanked, 0);
    EXPECT_EQ(gCal.startedAt, begun);
    EXPECT_EQ(gCal.phaseSince, begun);
    EXPECT_EQ(gCal.lastTick, now());
    EXPECT_THAT(gCal.runs, SizeIs(1));
    EXPECT_EQ(file()["lastFailure"], (Json{{"reason", "stalled"}, {"phase", phaseName(phase)}}));
    EXPECT_THAT(newLines(), ElementsAre(std::string("calibration stopped: stalled at the ") +
                                        phaseName(phase) + " step"));
  }
}

TEST_F(CalibrationCycle, followsNoOtherRuleInTheCallThatStopsIt) {
  inPhase(CalPhase::restore);
  mac.pass(threeDays + 1);
  EXPECT_TRUE(advance({.pct = 10, .limit = 80}));
  EXPECT_THAT(gCal.runs, IsEmpty()) << "stalled, although the limit is reached";
  EXPECT_TRUE(gCal.lastFailure.has_value());
}

TEST_F(CalibrationCycle, allows3DaysForEachPhase) {
  inPhase(CalPhase::fill);
  mac.pass(threeDays - 1);
  EXPECT_FALSE(advance({.pct = 100}));
  mac.pass(threeDays - 1);
  EXPECT_FALSE(advance({.pct = 50}));
  EXPECT_EQ(gCal.phase, CalPhase::drain);
}

// --- finish

TEST_F(CalibrationCycle, recordsWhatTheGaugeHasLearned) {
  startCalibration();
  static_cast<void>(newLines());
  mac.number(ChangeKind::health, 4401).number(ChangeKind::cycles, 38);
  gCal.phase = CalPhase::restore;
  gCal.soakBanked = 5;
  gCal.lastFailure = CalFailure{"x", CalPhase::fill};
  mac.pass(1000);
  EXPECT_THAT(filesWritten([] { EXPECT_TRUE(advance({.pct = 80})); }), ElementsAre("calibration.json"));
  EXPECT_THAT(gCal.runs, ElementsAre(CalRun{.at = now(),
                                            .beforeRaw = 4427,
                                            .afterRaw = 4401,
                                            .beforeNominal = 4554,
                                            .afterNominal = 4528,
                                            .design = 4563,
                                            .cyclesBefore = 37,
                                            .cyclesAfter = 38}));
  EXPECT_EQ(gCal.soakBanked, 0);
  EXPECT_EQ(gCal.before, std::nullopt);
  EXPECT_EQ(gCal.lastFailure, std::nullopt);
  EXPECT_EQ(gCal.startedAt, now() - 1000);
  EXPECT_EQ(gCal.phaseSince, now() - 1000);
  EXPECT_EQ(gCal.lastTick, now());
  EXPECT_EQ(mac.read(calibrationPath),
            R"({"phase":"idle","phaseSince":1772352000.0,"runs":[{"afterNominal":4528,"afterRaw":4401,)"
            R"("at":1772353000.0,"beforeNominal":4554,"beforeRaw":4427,"cyclesAfter":38,"cyclesBefore":37,)"
            R"("design":4563}],"soakBanked":0.0,"startedAt":1772352000.0})");
  EXPECT_THAT(newLines(), ElementsAre(finished("4427", "4401", "38")));
}

TEST_F(CalibrationCycle, finishesWithoutAnyReading) {
  inPhase(CalPhase::restore);
  mac.property("AppleSmartBattery", PropertyFault::missing);
  EXPECT_TRUE(advance({.pct = 80}));
  EXPECT_THAT(gCal.runs, ElementsAre(CalRun{.at = now()}));
  EXPECT_THAT(newLines(), ElementsAre(finished("?", "?", "?")));
}

TEST_F(CalibrationCycle, finishesWithoutTheReadingBefore) {
  inPhase(CalPhase::restore);
  EXPECT_TRUE(advance({.pct = 80}));
  EXPECT_THAT(gCal.runs,
              ElementsAre(CalRun{
                  .at = now(), .afterRaw = 4427, .afterNominal = 4554, .design = 4563, .cyclesAfter = 37}));
  EXPECT_THAT(newLines(), ElementsAre(finished("?", "4427", "37")));
}

TEST_F(CalibrationCycle, finishesWithoutTheReadingAfter) {
  inPhase(CalPhase::restore);
  gCal.before = GaugeReading{.raw = 1, .nominal = 2, .design = 3, .cycles = 4};
  mac.property("AppleSmartBattery", PropertyFault::missing);
  EXPECT_TRUE(advance({.pct = 80}));
  EXPECT_THAT(
      gCal.runs,
      ElementsAre(CalRun{.at = now(), .beforeRaw = 1, .beforeNominal = 2, .design = 3, .cyclesBefore = 4}));
  EXPECT_THAT(newLines(), ElementsAre(finished("1", "?", "?")));
}

TEST_F(CalibrationCycle, prefersTheDesignCapacityOfTheReadingAfter) {
  inPhase(CalPhase::restore);
  gCal.before = GaugeReading{.design = 3};
  EXPECT_TRUE(advance({.pct = 80}));
  EXPECT_EQ(gCal.runs.back().design, 4563);
}

TEST_F(CalibrationCycle, keepsTheNewest40Runs) {
  struct Case {
    int before;
    std::size_t after;
    double oldest;
  };
  for (const Case& list :
       {Case{0, 1, now()}, Case{39, 40, 1}, Case{40, 40, 2}, Case{41, 40, 3}, Case{50, 40, 12}}) {
    inPhase(CalPhase::restore);
    for (int run = 1; run <= list.before; ++run) gCal.runs.push_back({.at = static_cast<double>(run)});
    EXPECT_TRUE(advance({.pct = 80}));
    ASSERT_THAT(gCal.runs, SizeIs(list.after)) << list.before;
    EXPECT_EQ(gCal.runs.back().at, now());
    EXPECT_EQ(gCal.runs.front().at, list.oldest) << list.before;
    EXPECT_THAT(file()["runs"], SizeIs(list.after));
  }
}

// --- stop

TEST_F(CalibrationCycle, isCancelledWithoutAFailure) {
  for (const CalPhase phase : activePhases) {
    gCal = {.phase = phase,
            .startedAt = 1,
            .phaseSince = 2,
            .soakBanked = 3,
            .lastTick = 4,
            .before = GaugeReading{},
            .runs = {{.at = 5}},
            .lastFailure = CalFailure{"x", CalPhase::fill}};
    // The phase is that of a failure; without a reason there is no failure.
    EXPECT_THAT(filesWritten([] { stopCalibration(std::nullopt, CalPhase::soak); }),
                ElementsAre("calibration.json"));
    EXPECT_EQ(gCal.phase, CalPhase::idle);
    EXPECT_EQ(gCal.soakBanked, 0);
    EXPECT_EQ(gCal.before, std::nullopt);
    EXPECT_EQ(gCal.lastFailure, std::nullopt);
    EXPECT_EQ(gCal.startedAt, 1);
    EXPECT_EQ(gCal.phaseSince, 2);
    EXPECT_EQ(gCal.lastTick, 4);
    EXPECT_THAT(gCal.runs, ElementsAre(CalRun{.at = 5}));
    EXPECT_EQ(mac.read(calibrationPath),
              R"({"phase":"idle","phaseSince":2.0,"runs":[{"at":5.0}],"soakBanked":0.0,"startedAt":1.0})");
    EXPECT_THAT(newLines(), ElementsAre(cancelled));
  }
}

TEST_F(CalibrationCycle, recordsTheReasonAndThePhaseWhenItIsStopped) {
  inPhase(CalPhase::soak);
  stopCalibration("cold", std::nullopt);
  EXPECT_EQ(gCal.lastFailure, (CalFailure{"cold", CalPhase::soak}));
  inPhase(CalPhase::soak);
  stopCalibration("", CalPhase::drain);
  EXPECT_EQ(gCal.lastFailure, (CalFailure{"", CalPhase::drain}));
  EXPECT_THAT(newLines(), ElementsAre("calibration stopped: cold at the soak step",
                                      "calibration stopped:  at the drain step"));
}

TEST_F(CalibrationCycle, isNotStoppedWhileIdle) {
  gCal.lastFailure = CalFailure{"stalled", CalPhase::fill};
  EXPECT_THAT(filesWritten([] {
                stopCalibration(std::nullopt, std::nullopt);
                stopCalibration("cold", CalPhase::soak);
              }),
              IsEmpty());
  EXPECT_EQ(gCal.lastFailure, (CalFailure{"stalled", CalPhase::fill}));
  EXPECT_THAT(newLines(), IsEmpty());
}

// --- after a purge

TEST_F(CalibrationCycle, continuesWithoutAFileAfterAPurge) {
  gPurged = true;
  startCalibration();
  EXPECT_FALSE(advance({.pct = 100}));
  EXPECT_EQ(gCal.phase, CalPhase::drain);
  gCal.phase = CalPhase::restore;
  EXPECT_TRUE(advance({.pct = 80}));
  startCalibration();
  stopCalibration(std::nullopt, std::nullopt);
  EXPECT_FALSE(mac.exists(calibrationPath));
}

}  // namespace
}  // namespace brisko::calibration_cycle_test
