// The invariants of records, sleep, macOS's own limit and the process itself: for each rule, what it must
// accept and what it must reject, on both sides of every boundary.

#include <csignal>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "base/log.h"
#include "base/options.h"
#include "base/paths.h"
#include "base/process_flags.h"
#include "base/volume_path.h"
#include "hardware/charge_gate.h"
#include "hardware/scheduled_wake.h"
#include "native/native_limit.h"
#include "platform/clock.h"
#include "platform/system_power.h"
#include "records/statistics.h"
#include "sim/invariants/invariants_fixture.h"
#include "sim/invariants/rule.h"
#include "sim/machine/charge_limit.h"
#include "sim/machine/control_requests.h"
#include "state/calibration_state.h"
#include "state/native_limit_state.h"
#include "state/tick_state.h"
#include "support/files.h"
#include "support/on_virtual_mac.h"
#include "support/testing.h"

namespace brisko::lab::invariants_process_test {
namespace {

using namespace test;
using platform::PowerMessage;

constexpr const char* settingsPath = "/Library/Application Support/Brisko/config.json";
constexpr const char* logPath = "/Library/Logs/Brisko/daemon.log";
constexpr const char* dayPath = "/Library/Application Support/Brisko/history/2026-03-01.jsonl";

class ProcessInvariants : public InvariantsFixture {
 protected:
  using InvariantsFixture::InvariantsFixture;

  void SetUp() override {
    takeGate();
    gState = ChargeState::hold;
    gLastPlugged = true;
    gLastPct = 80;
    mac.settings(R"({"limit": 80})");
    startChecking();
  }

  void startChecking() { startRules({addRecordRules, addSleepRules, addNativeRules, addProcessRules}); }

  void tick(const TestedAction& action = {}) {
    runTick(action, [](TickRecord& tick) { tick.complete = true; });
  }
  void iteration(const std::vector<std::string>& files = {}) { endIteration(files); }

  // An iteration that leaves the file with this text.
  void writes(const char* path, const std::string& text) {
    mac.write(path, text);
    iteration({path});
  }

  void end(const ProcessEnd& how, const TestedAction& action = {}) {
    endProcess(how, action, {checkRecordsAtEnd, checkSleepAtEnd, checkNativeAtEnd, checkProcessAtEnd});
  }

  // A change of the machine in an iteration of the daemon.
  void happens(const std::function<void(virtual_mac::Machine&, virtual_mac::Journal&)>& what) {
    const auto update = mac.store().update();
    what(update.machine(), update.journal());
  }

  void receives(PowerMessage message, int answers) {
    happens([&](virtual_mac::Machine& machine, virtual_mac::Journal& journal) {
      virtual_mac::PowerNotice notice{};
      notice.type = static_cast<std::uint32_t>(message);
      notice.token = ++machine.sleep.noticesSent;
      notice.awaitsAnswer = true;
      notice.answeredAt = -1;
      machine.sleep.notices[notice.token % virtual_mac::noticePlaces] = notice;
      virtual_mac::noteReceived(machine, journal, notice);
      for (int count = 0; count < answers; ++count) {
        virtual_mac::allowPowerChange(machine, journal, notice.token);
      }
    });
  }

  void schedulesWakeIn(double seconds) {
    happens([&](virtual_mac::Machine& machine, virtual_mac::Journal& journal) {
      ASSERT_EQ(virtual_mac::scheduleEvent(machine, journal, virtual_mac::wallClock(machine) + seconds,
                                           wakeEventID, wakeEventType),
                platform::kernelSuccess);
    });
  }
};

// --- 14: erased data

TEST_F(ProcessInvariants, forbidFilesAfterAllDataWasErased) {
  iteration({statsPath});
  gPurged = true;
  iteration({logPath});
  EXPECT_THAT(found(), IsEmpty())
      << "in the iteration of the purge, files are written before they are removed";
  iteration({statsPath});
  EXPECT_THAT(found(), ElementsAre(14));
}

// --- 15: the log

TEST_F(ProcessInvariants, requireATimeTwoBlanksAndATextInLogLines) {
  const std::string good = "2026-03-01T08:15:30Z  veille\n";
  writes(logPath, good);
  EXPECT_THAT(found(), IsEmpty());
  for (const char* bad : {"2026-03-01T08:15:30Z veille\n", "2026-03-01T08:15:30Z  \n", "veille\n",
                          "2026-03-01 08:15:30Z  veille\n", "2026-03-01T08:15:30Z  veille"}) {
    startChecking();
    writes(logPath, test::contents(mac.path(logPath)) + bad);
    EXPECT_THAT(found(), ElementsAre(15)) << bad;
    mac.write(logPath, good);
  }
}

TEST_F(ProcessInvariants, limitTheLogToItsCapUnlessItIsOneLine) {
  const std::string stamp = "2026-03-01T08:15:30Z  ";
  const auto cap = static_cast<std::size_t>(LogFile::defaultCap);
  const auto lineOf = [&](std::size_t size) {
    return stamp + std::string(size - 1 - stamp.size(), 'x') + "\n";
  };
  writes(logPath, lineOf(100) + lineOf(cap - 100));
  EXPECT_THAT(found(), IsEmpty());
  test::put(mac.path(logPath), "");
  writes(logPath, lineOf(100) + lineOf(cap - 99));
  EXPECT_THAT(found(), ElementsAre(15));
  test::put(mac.path(logPath), "");
  iteration({logPath});
  writes(logPath, lineOf(cap + 1));
  EXPECT_THAT(found(), IsEmpty());
}

TEST_F(ProcessInvariants, allowOnePreviousLogUnlessOthersAddFiles) {
  iteration({"/Library/Logs/Brisko/daemon.log.1", "/Library/Logs/Brisko/daemon.err.log"});
  EXPECT_THAT(found(), IsEmpty());
  iteration({"/Library/Logs/Brisko/daemon.log.2"});
  EXPECT_THAT(found(), ElementsAre(15));
  observation.givenDisturbances.logsTouched = true;
  iteration({"/Library/Logs/Brisko/daemon.log.2"});
  EXPECT_THAT(found(), IsEmpty());
}

// --- 16: the status

TEST_F(ProcessInvariants, requireAnUnchangedStatusForFifteenSeconds) {
  const auto status = [](const std::string& time, int percent) {
    return R"({"cal":{"phase":"idle"},"pct":)" + std::to_string(percent) + R"(,"ts":)" + time + "}";
  };
  writes(statusPath, status("1000.0", 80));
  writes(statusPath, status("1014.9", 80));
  EXPECT_THAT(found(), ElementsAre(16));
  writes(statusPath, status("1029.9", 80));
  EXPECT_THAT(found(), IsEmpty()) << "exactly";
  writes(statusPath, status("1030.0", 81));
  EXPECT_THAT(found(), IsEmpty()) << "another";
}

// The clock is set back, and while the folder is away the status changes and changes back.
TEST_F(ProcessInvariants, compareNoStatusWithOneThatOthersRemoved) {
  const std::string before = R"({"cal":{"phase":"idle"},"pct":80,"ts":2000.0})";
  const std::string after = R"({"cal":{"phase":"idle"},"pct":80,"ts":1000.0})";
  writes(statusPath, before);
  observation.givenDisturbances.filesTouchedAt = 1;
  resume();
  writes(statusPath, after);
  EXPECT_THAT(found(), ElementsAre(16)) << "another file was touched";
  writes(statusPath, before);
  static_cast<void>(found());
  ASSERT_TRUE(std::filesystem::remove(onVolume(statusPath)));
  observation.givenDisturbances.filesTouchedAt = 2;
  resume();
  writes(statusPath, after);
  EXPECT_THAT(found(), IsEmpty());
}

TEST_F(ProcessInvariants, requireAWholeStatusUnlessTheDiskIsFull) {
  writes(statusPath, R"({"ts":1)");
  EXPECT_THAT(found(), ElementsAre(16));
  writes(statusPath, R"([{"ts":1.0}])");
  EXPECT_THAT(found(), ElementsAre(16));
  observation.givenDisturbances.diskIsFull = true;
  writes(statusPath, "");
  EXPECT_THAT(found(), IsEmpty());
}

// --- 17: the history

class HistoryLines : public ProcessInvariants {
 protected:
  void line(int time, const std::string& rest) {
    all_ += R"({"g":true,)" + rest + R"("t":)" + std::to_string(time) + "}\n";
    writes(dayPath, all_);
  }

 private:
  std::string all_;
};

TEST_F(HistoryLines, areAtLeast55SecondsApart) {
  line(1000, R"("p":80,"s":"hold",)");
  line(1054, R"("p":81,"s":"hold",)");
  EXPECT_THAT(found(), ElementsAre(17));
  line(1109, R"("p":82,"s":"hold",)");
  EXPECT_THAT(found(), IsEmpty());
  line(1110, R"("p":82,"s":"allow",)");
  EXPECT_THAT(found(), IsEmpty()) << "another state";
}

TEST_F(HistoryLines, areAtLeast300SecondsApartIfNothingChanged) {
  line(1000, R"("ct":310,"p":80,"s":"hold",)");
  line(1299, R"("ct":313,"p":80,"s":"hold",)");
  EXPECT_THAT(found(), ElementsAre(17));
  line(1599, R"("ct":313,"p":80,"s":"hold",)");
  EXPECT_THAT(found(), IsEmpty());
  line(1654, R"("ct":318,"p":80,"s":"hold",)");
  EXPECT_THAT(found(), IsEmpty()) << "half a degree";
}

TEST_F(HistoryLines, areComparedWithinAProcessOnly) {
  line(1000, R"("p":80,"s":"hold",)");
  startChecking();
  line(1001, R"("p":80,"s":"hold",)");
  EXPECT_THAT(found(), IsEmpty());
}

TEST_F(HistoryLines, areNotComparedWithThoseThatOthersRemoved) {
  line(2000, R"("p":80,"s":"hold",)");
  ASSERT_TRUE(std::filesystem::remove(onVolume(dayPath)));
  observation.givenDisturbances.filesTouchedAt = 1;
  resume();
  line(1000, R"("p":80,"s":"hold",)");
  EXPECT_THAT(found(), IsEmpty());
  observation.givenDisturbances.filesTouchedAt = 2;
  resume();
  line(1001, R"("p":80,"s":"hold",)");
  EXPECT_THAT(found(), ElementsAre(17)) << "another file was touched";
}

// --- 28: protected time

class ProtectedSeconds : public ProcessInvariants {
 protected:
  void SetUp() override {
    ProcessInvariants::SetUp();
    tick();
    iteration();
  }
  void ticks(double seconds) {
    mac.pass(20);
    gLastStatsTick += 20;
    gProtectedSeconds += seconds;
    iteration();
  }
};

TEST_F(ProtectedSeconds, growByAtMostAMinute) {
  ticks(60);
  EXPECT_THAT(found(), IsEmpty());
  ticks(60.1);
  EXPECT_THAT(found(), ElementsAre(28));
}

TEST_F(ProtectedSeconds, growWhileHeldOrDischargedOnTheAdapterOnly) {
  gState = ChargeState::discharge;
  ticks(20);
  EXPECT_THAT(found(), IsEmpty());
  gState = ChargeState::allow;
  ticks(20);
  EXPECT_THAT(found(), ElementsAre(28));
  gState = ChargeState::hold;
  mac.unplug();
  ticks(20);
  EXPECT_THAT(found(), ElementsAre(28));
}

TEST_F(ProtectedSeconds, fallOnlyByAResetOrAClockThatWasSetBack) {
  ticks(20);
  ticks(-5);
  EXPECT_THAT(found(), ElementsAre(28));
  gStatsSince = 1;
  ticks(-15);
  EXPECT_THAT(found(), IsEmpty());
  observation.givenDisturbances.clockSteppedBackAt = observation.machine().now;
  ticks(-30);
  EXPECT_THAT(found(), IsEmpty());
}

TEST_F(ProtectedSeconds, fallByAResetAtTheMomentOfTheLastOne) {
  ticks(20);
  logs("stats reset");
  ticks(-20);
  EXPECT_THAT(found(), IsEmpty());
}

// --- 29: requests

TEST_F(ProcessInvariants, forbidAClearedRequestToReturnUnlessItIsMadeAgain) {
  tick();
  settings.topUp = true;
  gTopUpSince = 1;
  tick();
  EXPECT_THAT(found(), ElementsAre(29));
  ++observation.givenDisturbances.actionCount;
  tick();
  EXPECT_THAT(found(), IsEmpty());
}

TEST_F(ProcessInvariants, requireATopUpToEndWithTheAdapterAndAfterItsHours) {
  settings.topUp = true;
  settings.topUpHours = 1;
  gTopUpSince = virtual_mac::wallClock(observation.machine()) - 3600;
  tick();
  EXPECT_THAT(found(), IsEmpty()) << "the last moment of the hour";
  gTopUpSince -= 0.1;
  tick();
  EXPECT_THAT(found(), ElementsAre(29));
  settings.topUpHours = 0;
  tick();
  EXPECT_THAT(found(), IsEmpty());
  mac.unplug();
  tick();
  EXPECT_THAT(found(), ElementsAre(29));
}

TEST_F(ProcessInvariants, allowTheStatisticsToBeResetTwice) {
  settings.resetStats = true;
  const auto resets = [this] { gStatsSince = virtual_mac::wallClock(observation.machine()); };
  tick(resets);
  tick(resets);
  EXPECT_THAT(found(), IsEmpty());
  tick(resets);
  EXPECT_THAT(found(), ElementsAre(29));
  startChecking();
  gStatsSince = 0;
  tick();
  EXPECT_THAT(found(), ElementsAre(29)) << "never";
}

// --- 18 to 21: sleep

TEST_F(ProcessInvariants, allowOneWakeAndNoneAfterAFullWakeOrWhileDormant) {
  schedulesWakeIn(600);
  iteration();
  EXPECT_THAT(found(), IsEmpty()) << "an earlier process's";
  schedulesWakeIn(700);
  iteration();
  EXPECT_THAT(found(), IsEmpty());
  gDormant = true;
  iteration();
  EXPECT_THAT(found(), ElementsAre(18));
  gDormant = false;
  receives(PowerMessage::systemHasPoweredOn, 0);
  iteration();
  EXPECT_THAT(found(), ElementsAre(18));
  schedulesWakeIn(800);
  iteration();
  EXPECT_THAT(found(), ElementsAre(18)) << "two";
}

TEST_F(ProcessInvariants, forbidAScheduledWakeAfterAnExit) {
  iteration();
  schedulesWakeIn(700);
  end({.signal = SIGKILL});
  EXPECT_THAT(found(), ElementsAre(32)) << "no kill was sent";
  end({.status = 0});
  EXPECT_THAT(found(), ElementsAre(18));
  happens([](virtual_mac::Machine& machine, virtual_mac::Journal& journal) {
    static_cast<void>(virtual_mac::cancelEvent(machine, journal, virtual_mac::wallClock(machine) + 700,
                                               wakeEventID, wakeEventType));
  });
  end({.status = 0});
  EXPECT_THAT(found(), IsEmpty());
}

TEST_F(ProcessInvariants, requireAClosedGateBeforeASleepInsideTheBand) {
  mac.charge(75);
  ASSERT_TRUE(gGate->setCharging(true));
  receives(PowerMessage::systemWillSleep, 1);
  iteration();
  EXPECT_THAT(found(), IsEmpty()) << "exactly the floor";
  ASSERT_TRUE(gGate->setCharging(false));
  receives(PowerMessage::systemWillSleep, 1);
  iteration();
  EXPECT_THAT(found(), ElementsAre(19)) << "the keys are open";
  observation.givenDisturbances.disturbedAt = observation.machine().now;
  receives(PowerMessage::systemWillSleep, 1);
  iteration();
  EXPECT_THAT(found(), IsEmpty()) << "opened by others";
  gState = ChargeState::allow;
  receives(PowerMessage::systemWillSleep, 1);
  iteration();
  EXPECT_THAT(found(), ElementsAre(19));
}

TEST_F(ProcessInvariants, requireOneWakeIn5To45MinutesForASleepBelowTheBand) {
  mac.charge(74);
  gState = ChargeState::allow;
  tick();
  iteration();
  const auto sleepsWithWakeIn = [this](double seconds) {
    schedulesWakeIn(seconds);
    receives(PowerMessage::systemWillSleep, 1);
    iteration();
    happens([](virtual_mac::Machine& machine, virtual_mac::Journal&) { machine.sleep.events = {}; });
    return found();
  };
  EXPECT_THAT(sleepsWithWakeIn(300), IsEmpty());
  EXPECT_THAT(sleepsWithWakeIn(2700), IsEmpty());
  EXPECT_THAT(sleepsWithWakeIn(299), ElementsAre(19));
  EXPECT_THAT(sleepsWithWakeIn(2701), ElementsAre(19));
  receives(PowerMessage::systemWillSleep, 1);
  iteration();
  EXPECT_THAT(found(), ElementsAre(19)) << "none";
  mac.unplug();
  EXPECT_THAT(sleepsWithWakeIn(300), ElementsAre(19)) << "on battery";
}

TEST_F(ProcessInvariants, forbidAChangeOfStateBeforeASleepOnBattery) {
  mac.unplug();
  gState = ChargeState::allow;
  tick();
  iteration();
  receives(PowerMessage::systemWillSleep, 1);
  iteration();
  EXPECT_THAT(found(), IsEmpty());
  receives(PowerMessage::systemWillSleep, 1);
  gState = ChargeState::hold;
  iteration();
  EXPECT_THAT(found(), ElementsAre(19));
}

TEST_F(ProcessInvariants, requireOneAnswerToEachMessageAtOnce) {
  receives(PowerMessage::canSystemSleep, 1);
  iteration();
  EXPECT_THAT(found(), IsEmpty());
  receives(PowerMessage::canSystemSleep, 0);
  iteration();
  EXPECT_THAT(found(), ElementsAre(20));
  receives(PowerMessage::canSystemSleep, 2);
  iteration();
  EXPECT_THAT(found(), ElementsAre(20));
  end({.status = 0}, [this] { receives(PowerMessage::canSystemSleep, 0); });
  EXPECT_THAT(found(), ElementsAre(20)) << "the process exits before the answer";
}

TEST_F(ProcessInvariants, forbidTicksForThirtySecondsAfterTheAnnouncement) {
  ASSERT_TRUE(gGate->setCharging(true));
  const auto ticks = [this] {
    tick([] { ASSERT_TRUE(gGate->setCharging(true)); });
    iteration({statusPath});
    return found();
  };
  mac.write(statusPath, R"({"ts":1000.0})");
  ticks();
  receives(PowerMessage::systemWillSleep, 1);
  iteration();
  mac.pass(29.5);
  EXPECT_THAT(ticks(), Contains(21));
  mac.pass(0.5);
  EXPECT_THAT(ticks(), Not(Contains(21)));
  receives(PowerMessage::systemWillSleep, 1);
  iteration();
  receives(PowerMessage::systemHasPoweredOn, 0);
  EXPECT_THAT(ticks(), Not(Contains(21))) << "awake again";
}

// --- 24 to 26: macOS's own limit

class NativeInvariants : public ProcessInvariants {
 protected:
  NativeInvariants() : ProcessInvariants({.macOS = 27, .percent = 80}) {}

  void SetUp() override {
    ProcessInvariants::SetUp();
    gGate = ChargeGate{.charge = ChargeKeys::macOSLimit, .cut = AdapterCutKey::none};
    gNativeBefore = 100;
    happens([](virtual_mac::Machine& machine, virtual_mac::Journal&) {
      machine.limit.delay = 1e9;  // macOS applies it late
    });
  }

  void sets(std::int64_t percent) {
    happens([&](virtual_mac::Machine& machine, virtual_mac::Journal& journal) {
      static_cast<void>(virtual_mac::setByClient(machine, journal, percent));
    });
  }

  // A tick that writes the target, for the first time or again.
  void writesTarget(std::int64_t target) {
    tick([&] {
      sets(target);
      gNativeWritten = target;
    });
    iteration();
  }
};

TEST_F(NativeInvariants, forbidSettingALimitBeforeThePreviousOneIsKnown) {
  writesTarget(80);
  EXPECT_THAT(found(), IsEmpty());
  gNativeBefore.reset();
  sets(85);
  iteration();
  EXPECT_THAT(found(), ElementsAre(24));
}

TEST_F(NativeInvariants, requireStepsThroughTheClientAndPercentagesInThePreferences) {
  for (const int percent : {79, 82, 105}) {
    sets(percent);
    iteration();
    EXPECT_THAT(found(), ElementsAre(24)) << percent;
  }
  const auto prefers = [this](std::int64_t percent) {
    happens([&](virtual_mac::Machine& machine, virtual_mac::Journal& journal) {
      virtual_mac::notePreferenceWrite(
          machine, journal, virtual_mac::LimitPreference::limitValue,
          {.kind = virtual_mac::PreferenceKind::integer, .integer = percent, .real = 0, .text = {}});
    });
    iteration();
    return found();
  };
  EXPECT_THAT(prefers(1), IsEmpty());
  EXPECT_THAT(prefers(100), IsEmpty());
  EXPECT_THAT(prefers(0), ElementsAre(24));
  EXPECT_THAT(prefers(101), ElementsAre(24));
}

TEST_F(NativeInvariants, requireARewriteEvery90SecondsForTenMinutes) {
  writesTarget(80);
  mac.pass(89.5);
  writesTarget(80);
  EXPECT_THAT(found(), ElementsAre(24));
  mac.pass(90);
  writesTarget(80);
  EXPECT_THAT(found(), IsEmpty());
  mac.pass(420);
  writesTarget(80);
  EXPECT_THAT(found(), IsEmpty()) << "half a second before the end";
  mac.pass(90);
  writesTarget(80);
  EXPECT_THAT(found(), ElementsAre(24)) << "refused by now";
  writesTarget(85);
  EXPECT_THAT(found(), IsEmpty()) << "another target";
}

TEST_F(NativeInvariants, requireTheTenMinutesAnewAfterAFullChargeThatIsWaitedFor) {
  const auto writesAfterAFullCharge = [this](bool guarded, bool asked, bool waits) {
    gGuards.menu = guarded;
    writesTarget(85);
    writesTarget(80);
    happens([&](virtual_mac::Machine& machine, virtual_mac::Journal&) {
      machine.limit.held.fullUntil = asked ? virtual_mac::wallClock(machine) + 1000 : 0;
    });
    gNativeFullUntil = waits ? std::optional(platform::wallNow() + 1000) : std::nullopt;
    mac.pass(900);
    tick();
    iteration();
    gNativeFullUntil.reset();
    happens([](virtual_mac::Machine& machine, virtual_mac::Journal&) { machine.limit.held.fullUntil = 0; });
    mac.pass(599);
    writesTarget(80);
    return found();
  };
  EXPECT_THAT(writesAfterAFullCharge(true, true, true), IsEmpty());
  mac.pass(90);
  writesTarget(80);
  EXPECT_THAT(found(), ElementsAre(24)) << "refused again";
  EXPECT_THAT(writesAfterAFullCharge(false, true, true), ElementsAre(24));
  EXPECT_THAT(writesAfterAFullCharge(true, false, true), ElementsAre(24)) << "nobody asked";
  EXPECT_THAT(writesAfterAFullCharge(true, true, false), ElementsAre(24)) << "the daemon does not wait";
}

TEST_F(NativeInvariants, requireOneRewriteAfterMacOSChangedTheLimit) {
  writesTarget(80);
  mac.keyBytes("bfG0", {80});
  tick();
  iteration();
  mac.keyBytes("bfG0", {90});
  mac.pass(30);
  writesTarget(80);
  EXPECT_THAT(found(), IsEmpty());
  mac.pass(1000);
  writesTarget(80);
  EXPECT_THAT(found(), ElementsAre(24));
  mac.keyBytes("bfG0", {80});
  tick();
  iteration();
  mac.pass(30);
  writesTarget(80);
  EXPECT_THAT(found(), IsEmpty()) << "it was held in between";
}

TEST_F(NativeInvariants, requireThePreviousLimitAfterAnExitUnlessIdle) {
  gNativeBefore = 90;
  writesTarget(80);
  end({.status = 0}, [this] { sets(90); });
  EXPECT_THAT(found(), IsEmpty());
  end({.status = 0}, [this] { sets(100); });
  EXPECT_THAT(found(), ElementsAre(25));
  end({.status = 0});
  EXPECT_THAT(found(), ElementsAre(25));
  gNativeBefore = 75;
  iteration();
  end({.status = 0}, [this] { sets(100); });
  EXPECT_THAT(found(), IsEmpty()) << "the slider cannot show 75";
  settings.enabled = false;
  tick();
  end({.status = 0});
  EXPECT_THAT(found(), IsEmpty());
  end({.status = 0}, [this] { sets(100); });
  EXPECT_THAT(found(), ElementsAre(25)) << "idle";
}

TEST_F(NativeInvariants, forbidARefusedLimit) {
  settings.limit = 70;
  logs("⚠️ macOS won't hold 70% on this Mac (bfG0 reads 0) — holding 80% instead");
  iteration();
  gNativeWritten = 71;
  tick();
  EXPECT_THAT(found(), IsEmpty()) << "not refused yet";
  gNativeWritten = 70;
  tick();
  EXPECT_THAT(found(), ElementsAre(26));
  logs("⚠️ macOS won't hold 83% on this Mac (bfG0 reads 80) — holding 80% instead");
  iteration();
  gNativeWritten = 87;
  tick();
  EXPECT_THAT(found(), ElementsAre(26));
  gNativeWritten = 85;
  tick();
  EXPECT_THAT(found(), IsEmpty());
}

TEST_F(NativeInvariants, requireAFloorForAsLongAsItIsNeeded) {
  gNativeWritten = 80;
  gNativeFloor = 80;
  settings.limit = 79;
  tick();
  EXPECT_THAT(found(), IsEmpty());
  settings.limit = 80;
  tick();
  EXPECT_THAT(found(), ElementsAre(26)) << "no floor is needed";
  settings.limit = 70;
  gNativeFloor.reset();
  tick();
  EXPECT_THAT(found(), ElementsAre(26)) << "it was forgotten";
}

// --- 27: the calibration

TEST_F(ProcessInvariants, requireTheOrderOfTheCalibration) {
  gLastPct = 99;
  const auto becomes = [this](CalPhase phase) {
    tick([&] {
      gCal.phase = phase;
      gCal.phaseSince = virtual_mac::wallClock(observation.machine());
    });
    return found();
  };
  for (const CalPhase phase : {CalPhase::fill, CalPhase::drain, CalPhase::refill, CalPhase::soak,
                               CalPhase::restore, CalPhase::idle}) {
    EXPECT_THAT(becomes(phase), IsEmpty()) << phaseName(phase);
  }
  EXPECT_THAT(becomes(CalPhase::drain), ElementsAre(27));
  EXPECT_THAT(becomes(CalPhase::idle), IsEmpty()) << "called off";
  gLastPct = 100;
  EXPECT_THAT(becomes(CalPhase::drain), IsEmpty()) << "it began full";
  EXPECT_THAT(becomes(CalPhase::soak), ElementsAre(27));
}

TEST_F(ProcessInvariants, allowTwoMinutesOfSoakPerTickOnTheAdapterAtFullCharge) {
  gCal.phase = CalPhase::soak;
  gCal.phaseSince = virtual_mac::wallClock(observation.machine());
  gLastPct = 100;
  const auto banks = [this](double seconds) {
    tick([seconds] { gCal.soakBanked += seconds; });
    return found();
  };
  EXPECT_THAT(banks(120), IsEmpty());
  EXPECT_THAT(banks(120.1), ElementsAre(27));
  EXPECT_THAT(banks(-1), ElementsAre(27));
  observation.givenDisturbances.clockSteppedBackAt = observation.machine().now;
  EXPECT_THAT(banks(-1), IsEmpty());
  gLastPct = 99;
  EXPECT_THAT(banks(1), ElementsAre(27));
  gLastPct = 100;
  mac.unplug();
  EXPECT_THAT(banks(1), ElementsAre(27));
}

TEST_F(ProcessInvariants, allowFortyRunsAfterAFinish) {
  gCal.phase = CalPhase::restore;
  gCal.phaseSince = virtual_mac::wallClock(observation.machine());
  gCal.runs.resize(50);
  tick();
  EXPECT_THAT(found(), IsEmpty()) << "as the file had them";
  tick([] { gCal.runs.resize(41); });
  EXPECT_THAT(found(), ElementsAre(27));
  tick([] { gCal.runs.resize(40); });
  EXPECT_THAT(found(), IsEmpty());
}

// --- 30: dormant

TEST_F(ProcessInvariants, forbidWritesAndUpdatesWhileDormant) {
  gDormant = true;
  ASSERT_TRUE(gGate->setCharging(false));
  iteration({statusPath});
  found();
  ASSERT_TRUE(gGate->setCharging(false));
  iteration();
  EXPECT_THAT(found(), ElementsAre(30));
  for (const char* path : {statusPath, dayPath, settingsPath}) {
    mac.write(path, R"({"ts":1000.0})");
    iteration({path});
    EXPECT_THAT(found(), Contains(30)) << path;
  }
}

TEST_F(ProcessInvariants, requireNewSettingsToBeStoredAlsoWhileDormant) {
  gDormant = true;
  iteration();
  const std::uint64_t number = mac.apply(R"({"limit": 70})");
  happens([&](virtual_mac::Machine& machine, virtual_mac::Journal& journal) {
    virtual_mac::noteTaken(machine, journal, number, true);
    virtual_mac::noteReply(machine, journal, number, true, std::nullopt);
  });
  iteration({settingsPath});
  EXPECT_THAT(found(), IsEmpty());
}

// --- 31: replies

TEST_F(ProcessInvariants, requireOneReplyToEachRequestWithoutDelay) {
  const auto takes = [this](int replies) {
    const std::uint64_t number = mac.ask(RequestKind::restart);
    happens([&](virtual_mac::Machine& machine, virtual_mac::Journal& journal) {
      virtual_mac::noteTaken(machine, journal, number, true);
      for (int count = 0; count < replies; ++count) {
        virtual_mac::noteReply(machine, journal, number, true, std::nullopt);
      }
    });
    iteration();
    return found();
  };
  EXPECT_THAT(takes(1), IsEmpty());
  EXPECT_THAT(takes(0), IsEmpty()) << "not yet";
  mac.pass(6);
  iteration();
  EXPECT_THAT(found(), ElementsAre(31));
  EXPECT_THAT(takes(2), Contains(31));
}

// --- 32: the ends of a process

TEST_F(ProcessInvariants, requireADocumentedExitStatus) {
  end({.status = 0});
  end({.status = 1, .errors = "⛔️ not root\n"});
  end({.status = 2, .errors = "⛔️ no key\n"});
  EXPECT_THAT(found(), IsEmpty());
  end({.status = 1, .errors = "==1==ERROR: AddressSanitizer\n"});
  EXPECT_THAT(found(), ElementsAre(32));
  end({.status = 3, .errors = "⛔️ no key\n"});
  EXPECT_THAT(found(), ElementsAre(32));
}

TEST_F(ProcessInvariants, requireACauseForEachSignalAndAbort) {
  end({.signal = SIGTERM});
  EXPECT_THAT(found(), ElementsAre(32));
  observation.givenDisturbances.signalsSent = 1U << SIGTERM;
  end({.signal = SIGTERM});
  EXPECT_THAT(found(), IsEmpty());
  const std::string fatal = "brisko-daemon: a number does not fit a 64-bit integer\n";
  end({.signal = SIGABRT, .errors = fatal});
  EXPECT_THAT(found(), ElementsAre(32)) << "no such number was written";
  observation.givenDisturbances.unstorableFiles = bitOf(UnstorableIn::settings);
  end({.signal = SIGABRT, .errors = fatal});
  EXPECT_THAT(found(), IsEmpty());
  end({.signal = SIGABRT, .errors = "terminate called\n"});
  EXPECT_THAT(found(), ElementsAre(32));
  end({.signal = SIGSEGV, .errors = fatal});
  EXPECT_THAT(found(), ElementsAre(32));
}

}  // namespace
}  // namespace brisko::lab::invariants_process_test
