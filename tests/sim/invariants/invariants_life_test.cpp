// What always holds of records, sleep, macOS's own limit and the process itself: each rule is shown what it
// must let pass and what it must not, on both sides of every border.

#include <csignal>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "base/log.h"
#include "base/paths.h"
#include "base/process_flags.h"
#include "hardware/charge_gate.h"
#include "hardware/scheduled_wake.h"
#include "native/native_limit.h"
#include "platform/system_power.h"
#include "records/statistics.h"
#include "sim/invariants/looked_at.h"
#include "sim/invariants/rule.h"
#include "sim/machine/charge_limit.h"
#include "sim/machine/control_requests.h"
#include "state/calibration_state.h"
#include "state/native_limit_state.h"
#include "state/tick_state.h"
#include "support/files.h"
#include "support/on_virtual_mac.h"

namespace brisko::lab {
namespace {

using platform::PowerMessage;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Not;
using virtual_mac::ChangeKind;
using virtual_mac::RequestKind;

constexpr const char* settingsPath = "/Library/Application Support/Brisko/config.json";
constexpr const char* logPath = "/Library/Logs/Brisko/daemon.log";
constexpr const char* dayPath = "/Library/Application Support/Brisko/history/2026-03-01.jsonl";

// A daemon of which the tests say themselves what it did in a turn.
class LifeInvariants : public test::OnVirtualMac {
 protected:
  explicit LifeInvariants(const virtual_mac::MachineOptions& options = {}) : OnVirtualMac(options) {}

  void SetUp() override {
    takeGate();
    gState = ChargeState::hold;
    gLastPlugged = true;
    gLastPct = 80;
    mac.settings(R"({"limit": 80})");
    startLooking();
  }

  void startLooking() {
    rules_.clear();
    addRecordRules(rules_);
    addSleepRules(rules_);
    addNativeRules(rules_);
    addProcessRules(rules_);
    scene.notes.journalSeen = written();
  }

  void pass(const std::function<void()>& doing = {}) {
    Pass pass{.at = scene.machine().now, .journalFrom = written(), .before = gState};
    for (const auto& rule : rules_) rule->passBegins(scene, violated_);
    if (doing) doing();
    pass.complete = true;
    pass.journalTo = written();
    pass.settings = settings;
    for (const auto& rule : rules_) rule->passEnded(pass, scene, violated_);
    passes_.push_back(pass);
  }

  void turn(const std::vector<std::string>& files = {}) {
    Turn turn{.at = scene.machine().now,
              .journalFrom = scene.notes.journalSeen,
              .journalTo = written(),
              .lines = std::exchange(lines, {}),
              .passes = std::exchange(passes_, {})};
    for (const std::string& path : files) turn.files.push_back({.path = path});
    for (const auto& rule : rules_) rule->turnEnded(turn, scene, violated_);
    scene.notes.journalSeen = written();
  }

  // A turn in which the file is left as this text.
  void writes(const char* path, const std::string& text) {
    mac.write(path, text);
    turn({path});
  }

  void end(LifeEnd how, const std::function<void()>& doing = {}) {
    how.rest.journalFrom = written();
    if (doing) doing();
    how.rest.journalTo = written();
    judgeRecordsAtEnd(how, scene, violated_);
    judgeSleepAtEnd(how, scene, violated_);
    judgeNativeAtEnd(how, scene, violated_);
    judgeProcessAtEnd(how, scene, violated_);
  }

  // Something that passes between the machine and the daemon.
  void happens(const std::function<void(virtual_mac::Machine&, virtual_mac::Journal&)>& what) {
    const auto update = mac.store().update();
    what(update.machine(), update.journal());
  }

  void hears(PowerMessage message, int answers) {
    happens([&](virtual_mac::Machine& machine, virtual_mac::Journal& journal) {
      virtual_mac::PowerNotice notice{};
      notice.type = static_cast<std::uint32_t>(message);
      notice.token = ++machine.sleep.noticesSent;
      notice.awaitsAnswer = true;
      notice.answeredAt = -1;
      machine.sleep.notices[notice.token % virtual_mac::noticePlaces] = notice;
      virtual_mac::noteHeard(machine, journal, notice);
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

  void says(const std::string& text) { lines.push_back("2026-03-01T08:15:30Z  " + text); }

  // The invariants that did not hold since the last question.
  std::vector<int> found() { return std::exchange(found_, {}); }

  LookedAt scene{mac.store()};
  Settings settings;
  std::vector<std::string> lines;

 private:
  [[nodiscard]] std::uint64_t written() const { return scene.journal().written; }

  Rules rules_;
  std::vector<Pass> passes_;
  std::vector<int> found_;
  Violated violated_ = [this](int number, const std::string&) { found_.push_back(number); };
};

// ---------------------------------------------------------------------------------------------------------
// 14: erased data

TEST_F(LifeInvariants, wantNothingBackAfterAllDataWasErased) {
  turn({statsPath});
  gPurged = true;
  turn({logPath});
  EXPECT_THAT(found(), IsEmpty()) << "in the turn of the erasing files are written before they go";
  turn({statsPath});
  EXPECT_THAT(found(), ElementsAre(14));
}

// ---------------------------------------------------------------------------------------------------------
// 15: the log

TEST_F(LifeInvariants, wantLogLinesOfATimeTwoBlanksAndAText) {
  const std::string good = "2026-03-01T08:15:30Z  veille\n";
  writes(logPath, good);
  EXPECT_THAT(found(), IsEmpty());
  for (const char* bad : {"2026-03-01T08:15:30Z veille\n", "2026-03-01T08:15:30Z  \n", "veille\n",
                          "2026-03-01 08:15:30Z  veille\n", "2026-03-01T08:15:30Z  veille"}) {
    startLooking();
    writes(logPath, test::contents(mac.path(logPath)) + bad);
    EXPECT_THAT(found(), ElementsAre(15)) << bad;
    mac.write(logPath, good);
  }
}

TEST_F(LifeInvariants, wantALogNoLongerThanItsCapUnlessItIsOneLine) {
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
  turn({logPath});
  writes(logPath, lineOf(cap + 1));
  EXPECT_THAT(found(), IsEmpty());
}

TEST_F(LifeInvariants, wantOneGenerationOfTheLogUnlessOthersAreAtWorkThere) {
  turn({"/Library/Logs/Brisko/daemon.log.1", "/Library/Logs/Brisko/daemon.err.log"});
  EXPECT_THAT(found(), IsEmpty());
  turn({"/Library/Logs/Brisko/daemon.log.2"});
  EXPECT_THAT(found(), ElementsAre(15));
  scene.so.logsTouched = true;
  turn({"/Library/Logs/Brisko/daemon.log.2"});
  EXPECT_THAT(found(), IsEmpty());
}

// ---------------------------------------------------------------------------------------------------------
// 16: the status

TEST_F(LifeInvariants, wantTheSameStatusFifteenSecondsLater) {
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

TEST_F(LifeInvariants, wantAWholeStatusUnlessTheDiskIsFull) {
  writes(statusPath, R"({"ts":1)");
  EXPECT_THAT(found(), ElementsAre(16));
  writes(statusPath, R"([{"ts":1.0}])");
  EXPECT_THAT(found(), ElementsAre(16));
  scene.so.diskIsFull = true;
  writes(statusPath, "");
  EXPECT_THAT(found(), IsEmpty());
}

// ---------------------------------------------------------------------------------------------------------
// 17: the history

class HistoryLines : public LifeInvariants {
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

TEST_F(HistoryLines, areAtLeast300SecondsApartWhenTheySayTheSame) {
  line(1000, R"("ct":310,"p":80,"s":"hold",)");
  line(1299, R"("ct":313,"p":80,"s":"hold",)");
  EXPECT_THAT(found(), ElementsAre(17));
  line(1599, R"("ct":313,"p":80,"s":"hold",)");
  EXPECT_THAT(found(), IsEmpty());
  line(1654, R"("ct":318,"p":80,"s":"hold",)");
  EXPECT_THAT(found(), IsEmpty()) << "half a degree";
}

TEST_F(HistoryLines, areForgottenByTheNextLife) {
  line(1000, R"("p":80,"s":"hold",)");
  startLooking();
  line(1001, R"("p":80,"s":"hold",)");
  EXPECT_THAT(found(), IsEmpty());
}

// ---------------------------------------------------------------------------------------------------------
// 28: protected time

class ProtectedSeconds : public LifeInvariants {
 protected:
  void SetUp() override {
    LifeInvariants::SetUp();
    pass();
    turn();
  }
  void ticks(double seconds) {
    mac.pass(20);
    gLastStatsTick += 20;
    gProtectedSeconds += seconds;
    turn();
  }
};

TEST_F(ProtectedSeconds, growByAMinuteAtMost) {
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

TEST_F(ProtectedSeconds, fallByAResetOrAClockThatWasSetBackOnly) {
  ticks(20);
  ticks(-5);
  EXPECT_THAT(found(), ElementsAre(28));
  gStatsSince = 1;
  ticks(-15);
  EXPECT_THAT(found(), IsEmpty());
  scene.so.clockSteppedBackAt = scene.machine().now;
  ticks(-30);
  EXPECT_THAT(found(), IsEmpty());
}

// ---------------------------------------------------------------------------------------------------------
// 29: requests

TEST_F(LifeInvariants, wantARequestWithdrawnForGoodUnlessSomebodyAsksAnew) {
  pass();
  settings.topUp = true;
  gTopUpSince = 1;
  pass();
  EXPECT_THAT(found(), ElementsAre(29));
  ++scene.so.doings;
  pass();
  EXPECT_THAT(found(), IsEmpty());
}

TEST_F(LifeInvariants, wantATopUpToEndWithTheAdapterAndWithItsHours) {
  settings.topUp = true;
  settings.topUpHours = 1;
  gTopUpSince = virtual_mac::wallClock(scene.machine()) - 3600;
  pass();
  EXPECT_THAT(found(), IsEmpty()) << "the last moment of the hour";
  gTopUpSince -= 0.1;
  pass();
  EXPECT_THAT(found(), ElementsAre(29));
  settings.topUpHours = 0;
  pass();
  EXPECT_THAT(found(), IsEmpty());
  mac.unplug();
  pass();
  EXPECT_THAT(found(), ElementsAre(29));
}

TEST_F(LifeInvariants, wantTheStatisticsToBeginAnewTwiceAtMost) {
  settings.resetStats = true;
  const auto resets = [this] { gStatsSince = virtual_mac::wallClock(scene.machine()); };
  pass(resets);
  pass(resets);
  EXPECT_THAT(found(), IsEmpty());
  pass(resets);
  EXPECT_THAT(found(), ElementsAre(29));
  startLooking();
  gStatsSince = 0;
  pass();
  EXPECT_THAT(found(), ElementsAre(29)) << "never";
}

// ---------------------------------------------------------------------------------------------------------
// 18 to 21: sleep

TEST_F(LifeInvariants, wantOneWakeAtMostAndNoneAfterAFullWakeOrAtRest) {
  schedulesWakeIn(600);
  turn();
  EXPECT_THAT(found(), IsEmpty()) << "an earlier life's";
  schedulesWakeIn(700);
  turn();
  EXPECT_THAT(found(), IsEmpty());
  gDormant = true;
  turn();
  EXPECT_THAT(found(), ElementsAre(18));
  gDormant = false;
  hears(PowerMessage::systemHasPoweredOn, 0);
  turn();
  EXPECT_THAT(found(), ElementsAre(18));
  schedulesWakeIn(800);
  turn();
  EXPECT_THAT(found(), ElementsAre(18)) << "two";
}

TEST_F(LifeInvariants, wantNoWakeLeftByAnExit) {
  turn();
  schedulesWakeIn(700);
  end({.signal = SIGKILL});
  EXPECT_THAT(found(), ElementsAre(32)) << "nobody killed it";
  end({.status = 0});
  EXPECT_THAT(found(), ElementsAre(18));
  happens([](virtual_mac::Machine& machine, virtual_mac::Journal& journal) {
    static_cast<void>(virtual_mac::cancelEvent(machine, journal, virtual_mac::wallClock(machine) + 700,
                                               wakeEventID, wakeEventType));
  });
  end({.status = 0});
  EXPECT_THAT(found(), IsEmpty());
}

TEST_F(LifeInvariants, wantTheBandFrozenBeforeASleep) {
  mac.charge(75);
  ASSERT_TRUE(gGate->setCharging(true));
  hears(PowerMessage::systemWillSleep, 1);
  turn();
  EXPECT_THAT(found(), IsEmpty()) << "exactly the floor";
  ASSERT_TRUE(gGate->setCharging(false));
  hears(PowerMessage::systemWillSleep, 1);
  turn();
  EXPECT_THAT(found(), ElementsAre(19)) << "the keys are open";
  scene.so.disturbedAt = scene.machine().now;
  hears(PowerMessage::systemWillSleep, 1);
  turn();
  EXPECT_THAT(found(), IsEmpty()) << "opened by others";
  gState = ChargeState::allow;
  hears(PowerMessage::systemWillSleep, 1);
  turn();
  EXPECT_THAT(found(), ElementsAre(19));
}

TEST_F(LifeInvariants, wantOneWakeInFiveTo45MinutesForASleepBelowTheBand) {
  mac.charge(74);
  gState = ChargeState::allow;
  pass();
  turn();
  const auto sleepsWithWakeIn = [this](double seconds) {
    schedulesWakeIn(seconds);
    hears(PowerMessage::systemWillSleep, 1);
    turn();
    happens([](virtual_mac::Machine& machine, virtual_mac::Journal&) { machine.sleep.events = {}; });
    return found();
  };
  EXPECT_THAT(sleepsWithWakeIn(300), IsEmpty());
  EXPECT_THAT(sleepsWithWakeIn(2700), IsEmpty());
  EXPECT_THAT(sleepsWithWakeIn(299), ElementsAre(19));
  EXPECT_THAT(sleepsWithWakeIn(2701), ElementsAre(19));
  hears(PowerMessage::systemWillSleep, 1);
  turn();
  EXPECT_THAT(found(), ElementsAre(19)) << "none";
  mac.unplug();
  EXPECT_THAT(sleepsWithWakeIn(300), ElementsAre(19)) << "on battery";
}

TEST_F(LifeInvariants, wantTheStateLeftAloneBeforeASleepOnBattery) {
  mac.unplug();
  gState = ChargeState::allow;
  pass();
  turn();
  hears(PowerMessage::systemWillSleep, 1);
  turn();
  EXPECT_THAT(found(), IsEmpty());
  hears(PowerMessage::systemWillSleep, 1);
  gState = ChargeState::hold;
  turn();
  EXPECT_THAT(found(), ElementsAre(19));
}

TEST_F(LifeInvariants, wantEachMessageAnsweredOnceAndAtOnce) {
  hears(PowerMessage::canSystemSleep, 1);
  turn();
  EXPECT_THAT(found(), IsEmpty());
  hears(PowerMessage::canSystemSleep, 0);
  turn();
  EXPECT_THAT(found(), ElementsAre(20));
  hears(PowerMessage::canSystemSleep, 2);
  turn();
  EXPECT_THAT(found(), ElementsAre(20));
  end({.status = 0}, [this] { hears(PowerMessage::canSystemSleep, 0); });
  EXPECT_THAT(found(), ElementsAre(20)) << "an exit before the answer";
}

TEST_F(LifeInvariants, wantTicksQuietForThirtySecondsAfterTheAnnouncement) {
  ASSERT_TRUE(gGate->setCharging(true));
  const auto ticks = [this] {
    pass([] { ASSERT_TRUE(gGate->setCharging(true)); });
    turn({statusPath});
    return found();
  };
  mac.write(statusPath, R"({"ts":1000.0})");
  ticks();
  hears(PowerMessage::systemWillSleep, 1);
  turn();
  mac.pass(29.5);
  EXPECT_THAT(ticks(), Contains(21));
  mac.pass(0.5);
  EXPECT_THAT(ticks(), Not(Contains(21)));
  hears(PowerMessage::systemWillSleep, 1);
  turn();
  hears(PowerMessage::systemHasPoweredOn, 0);
  EXPECT_THAT(ticks(), Not(Contains(21))) << "awake again";
}

// ---------------------------------------------------------------------------------------------------------
// 24 to 26: macOS's own limit

class NativeInvariants : public LifeInvariants {
 protected:
  NativeInvariants() : LifeInvariants({.macOS = 27, .percent = 80}) {}

  void SetUp() override {
    LifeInvariants::SetUp();
    gGate = ChargeGate{.charge = ChargeKeys::macOSLimit, .cut = AdapterCutKey::none};
    gNativeBefore = 100;
    happens([](virtual_mac::Machine& machine, virtual_mac::Journal&) {
      machine.limit.delay = 1e9;  // macOS takes its time
    });
  }

  void sets(std::int64_t percent) {
    happens([&](virtual_mac::Machine& machine, virtual_mac::Journal& journal) {
      static_cast<void>(virtual_mac::setByClient(machine, journal, percent));
    });
  }

  // The tick writes the target, for the first time or again.
  void writesTarget(std::int64_t target) {
    pass([&] {
      sets(target);
      gNativeWritten = target;
    });
    turn();
  }
};

TEST_F(NativeInvariants, wantNothingSetBeforeTheLimitOfBeforeIsKnown) {
  writesTarget(80);
  EXPECT_THAT(found(), IsEmpty());
  gNativeBefore.reset();
  sets(85);
  turn();
  EXPECT_THAT(found(), ElementsAre(24));
}

TEST_F(NativeInvariants, wantWhatTheSliderOffersAndPercentages) {
  for (const int percent : {79, 82, 105}) {
    sets(percent);
    turn();
    EXPECT_THAT(found(), ElementsAre(24)) << percent;
  }
  const auto prefers = [this](std::int64_t percent) {
    happens([&](virtual_mac::Machine& machine, virtual_mac::Journal& journal) {
      virtual_mac::notePreferenceWrite(
          machine, journal, virtual_mac::LimitPreference::limitValue,
          {.kind = virtual_mac::PreferenceKind::integer, .integer = percent, .real = 0, .text = {}});
    });
    turn();
    return found();
  };
  EXPECT_THAT(prefers(1), IsEmpty());
  EXPECT_THAT(prefers(100), IsEmpty());
  EXPECT_THAT(prefers(0), ElementsAre(24));
  EXPECT_THAT(prefers(101), ElementsAre(24));
}

TEST_F(NativeInvariants, wantATargetWrittenAgainAfter90SecondsAndNotAfterTenMinutes) {
  writesTarget(80);
  mac.pass(89.5);
  writesTarget(80);
  EXPECT_THAT(found(), ElementsAre(24));
  mac.pass(90);
  writesTarget(80);
  EXPECT_THAT(found(), IsEmpty());
  mac.pass(420);
  writesTarget(80);
  EXPECT_THAT(found(), IsEmpty()) << "the last moment but half a second";
  mac.pass(90);
  writesTarget(80);
  EXPECT_THAT(found(), ElementsAre(24)) << "refused by now";
  writesTarget(85);
  EXPECT_THAT(found(), IsEmpty()) << "another target";
}

TEST_F(NativeInvariants, wantWhatMacOSTookBackWrittenAgainOnce) {
  writesTarget(80);
  mac.keyBytes("bfG0", {80});
  pass();
  turn();
  mac.keyBytes("bfG0", {90});
  mac.pass(30);
  writesTarget(80);
  EXPECT_THAT(found(), IsEmpty());
  mac.pass(1000);
  writesTarget(80);
  EXPECT_THAT(found(), ElementsAre(24));
  mac.keyBytes("bfG0", {80});
  pass();
  turn();
  mac.pass(30);
  writesTarget(80);
  EXPECT_THAT(found(), IsEmpty()) << "it was held in between";
}

TEST_F(NativeInvariants, wantTheLimitOfBeforeBackAfterAnExitUnlessIdle) {
  gNativeBefore = 90;
  writesTarget(80);
  end({.status = 0}, [this] { sets(90); });
  EXPECT_THAT(found(), IsEmpty());
  end({.status = 0}, [this] { sets(100); });
  EXPECT_THAT(found(), ElementsAre(25));
  end({.status = 0});
  EXPECT_THAT(found(), ElementsAre(25));
  gNativeBefore = 75;
  turn();
  end({.status = 0}, [this] { sets(100); });
  EXPECT_THAT(found(), IsEmpty()) << "the slider cannot show 75";
  settings.enabled = false;
  pass();
  end({.status = 0});
  EXPECT_THAT(found(), IsEmpty());
  end({.status = 0}, [this] { sets(100); });
  EXPECT_THAT(found(), ElementsAre(25)) << "idle";
}

TEST_F(NativeInvariants, wantWhatWasRefusedNeverTriedAgain) {
  settings.limit = 70;
  says("⚠️ macOS won't hold 70% on this Mac (bfG0 reads 0) — holding 80% instead");
  turn();
  gNativeWritten = 71;
  pass();
  EXPECT_THAT(found(), IsEmpty()) << "not refused yet";
  gNativeWritten = 70;
  pass();
  EXPECT_THAT(found(), ElementsAre(26));
  says("⚠️ macOS won't hold 83% on this Mac (bfG0 reads 80) — holding 80% instead");
  turn();
  gNativeWritten = 87;
  pass();
  EXPECT_THAT(found(), ElementsAre(26));
  gNativeWritten = 85;
  pass();
  EXPECT_THAT(found(), IsEmpty());
}

TEST_F(NativeInvariants, wantAFloorForAsLongAsItIsNeeded) {
  gNativeWritten = 80;
  gNativeFloor = 80;
  settings.limit = 79;
  pass();
  EXPECT_THAT(found(), IsEmpty());
  settings.limit = 80;
  pass();
  EXPECT_THAT(found(), ElementsAre(26)) << "no floor is needed";
  settings.limit = 70;
  gNativeFloor.reset();
  pass();
  EXPECT_THAT(found(), ElementsAre(26)) << "it was forgotten";
}

// ---------------------------------------------------------------------------------------------------------
// 27: the calibration

TEST_F(LifeInvariants, wantTheCalibrationInItsOrder) {
  gLastPct = 99;
  const auto becomes = [this](CalPhase phase) {
    pass([&] {
      gCal.phase = phase;
      gCal.phaseSince = virtual_mac::wallClock(scene.machine());
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

TEST_F(LifeInvariants, wantTwoMinutesOfSoakAtMostOnTheAdapterAtFullCharge) {
  gCal.phase = CalPhase::soak;
  gCal.phaseSince = virtual_mac::wallClock(scene.machine());
  gLastPct = 100;
  const auto banks = [this](double seconds) {
    pass([seconds] { gCal.soakBanked += seconds; });
    return found();
  };
  EXPECT_THAT(banks(120), IsEmpty());
  EXPECT_THAT(banks(120.1), ElementsAre(27));
  EXPECT_THAT(banks(-1), ElementsAre(27));
  scene.so.clockSteppedBackAt = scene.machine().now;
  EXPECT_THAT(banks(-1), IsEmpty());
  gLastPct = 99;
  EXPECT_THAT(banks(1), ElementsAre(27));
  gLastPct = 100;
  mac.unplug();
  EXPECT_THAT(banks(1), ElementsAre(27));
}

TEST_F(LifeInvariants, wantFortyRunsAtMostAfterAFinish) {
  gCal.phase = CalPhase::restore;
  gCal.phaseSince = virtual_mac::wallClock(scene.machine());
  gCal.runs.resize(50);
  pass();
  EXPECT_THAT(found(), IsEmpty()) << "as the file had them";
  pass([] { gCal.runs.resize(41); });
  EXPECT_THAT(found(), ElementsAre(27));
  pass([] { gCal.runs.resize(40); });
  EXPECT_THAT(found(), IsEmpty());
}

// ---------------------------------------------------------------------------------------------------------
// 30: at rest

TEST_F(LifeInvariants, wantNothingDrivenAndNothingPublishedWhileDormant) {
  gDormant = true;
  ASSERT_TRUE(gGate->setCharging(false));
  turn({statusPath});
  found();
  ASSERT_TRUE(gGate->setCharging(false));
  turn();
  EXPECT_THAT(found(), ElementsAre(30));
  for (const char* path : {statusPath, dayPath, settingsPath}) {
    mac.write(path, R"({"ts":1000.0})");
    turn({path});
    EXPECT_THAT(found(), Contains(30)) << path;
  }
}

TEST_F(LifeInvariants, wantNewSettingsOfTheAppKeptAlsoWhileDormant) {
  gDormant = true;
  turn();
  const std::uint64_t number = mac.apply(R"({"limit": 70})");
  happens([&](virtual_mac::Machine& machine, virtual_mac::Journal& journal) {
    virtual_mac::noteTaken(machine, journal, number, true);
    virtual_mac::noteReply(machine, journal, number, true, std::nullopt);
  });
  turn({settingsPath});
  EXPECT_THAT(found(), IsEmpty());
}

// ---------------------------------------------------------------------------------------------------------
// 31: replies

TEST_F(LifeInvariants, wantOneReplyToEachRequestWithoutDelay) {
  const auto takes = [this](int replies) {
    const std::uint64_t number = mac.ask(RequestKind::restart);
    happens([&](virtual_mac::Machine& machine, virtual_mac::Journal& journal) {
      virtual_mac::noteTaken(machine, journal, number, true);
      for (int count = 0; count < replies; ++count) {
        virtual_mac::noteReply(machine, journal, number, true, std::nullopt);
      }
    });
    turn();
    return found();
  };
  EXPECT_THAT(takes(1), IsEmpty());
  EXPECT_THAT(takes(0), IsEmpty()) << "not yet";
  mac.pass(6);
  turn();
  EXPECT_THAT(found(), ElementsAre(31));
  EXPECT_THAT(takes(2), Contains(31));
}

// ---------------------------------------------------------------------------------------------------------
// 32: the ends of a life

TEST_F(LifeInvariants, wantStatusesOfTheBook) {
  end({.status = 0});
  end({.status = 1, .errors = "⛔️ not root\n"});
  end({.status = 2, .errors = "⛔️ no key\n"});
  EXPECT_THAT(found(), IsEmpty());
  end({.status = 1, .errors = "==1==ERROR: AddressSanitizer\n"});
  EXPECT_THAT(found(), ElementsAre(32));
  end({.status = 3, .errors = "⛔️ no key\n"});
  EXPECT_THAT(found(), ElementsAre(32));
}

TEST_F(LifeInvariants, wantSignalsThatSomebodySentAndFatalNumbersThatSomebodyWrote) {
  end({.signal = SIGTERM});
  EXPECT_THAT(found(), ElementsAre(32));
  scene.so.signalsSent = 1U << SIGTERM;
  end({.signal = SIGTERM});
  EXPECT_THAT(found(), IsEmpty());
  const std::string fatal = "brisko-daemon: a number does not fit a 64-bit integer\n";
  end({.signal = SIGABRT, .errors = fatal});
  EXPECT_THAT(found(), ElementsAre(32)) << "no such number was written";
  scene.so.unkeepableFiles = bitOf(UnkeepableIn::settings);
  end({.signal = SIGABRT, .errors = fatal});
  EXPECT_THAT(found(), IsEmpty());
  end({.signal = SIGABRT, .errors = "terminate called\n"});
  EXPECT_THAT(found(), ElementsAre(32));
  end({.signal = SIGSEGV, .errors = fatal});
  EXPECT_THAT(found(), ElementsAre(32));
}

}  // namespace
}  // namespace brisko::lab
