// The lab's recording of a scenario.

#include "sim/scenario/recording.h"

#include <algorithm>

#include "sim/machine/models.h"
#include "sim/scenario/run_scenario.h"
#include "sim/scenario/timing.h"
#include "support/testing.h"

namespace brisko::lab::recording_test {
namespace {

using namespace test;

Moment held(double time) {
  Moment moment;
  moment.time = time;
  moment.level = 80;
  moment.currentMA = 0;
  moment.temperatureC = 25;
  moment.state = ChargeState::hold;
  return moment;
}

// --- The filter

class SampleFilterTest : public ::testing::Test {
 protected:
  SampleFilterTest() { EXPECT_EQ(filter.keep(held(1000)), 1); }
  SampleFilter filter;
};

TEST_F(SampleFilterTest, keepsConstantValuesOnceAQuarterOfAnHour) {
  EXPECT_EQ(filter.keep(held(1899)), 0);
  EXPECT_EQ(filter.keep(held(1900)), 1);
  EXPECT_EQ(filter.keep(held(2799)), 0);
}

TEST_F(SampleFilterTest, keepsDriftingValuesOnceAMinute) {
  const auto drifted = [](double time, auto change) {
    Moment moment = held(time);
    change(moment);
    return moment;
  };
  const auto level = [](Moment& moment) { moment.level = 80.125; };
  const auto current = [](Moment& moment) { moment.currentMA = -10; };
  const auto temperature = [](Moment& moment) { moment.temperatureC = 24.75; };
  const auto little = [](Moment& moment) { moment.level = 80.05; };
  EXPECT_EQ(filter.keep(drifted(1059, level)), 0);
  EXPECT_EQ(filter.keep(drifted(1060, little)), 0);
  EXPECT_EQ(filter.keep(drifted(1060, level)), 1);
  EXPECT_EQ(SampleFilter(filter).keep(drifted(1120, current)), 1);
  EXPECT_EQ(SampleFilter(filter).keep(drifted(1120, temperature)), 1);
}

TEST_F(SampleFilterTest, keepsEveryChangeAtOnceWithTheMomentBefore) {
  EXPECT_EQ(filter.keep(held(1005)), 0);
  Moment allowed = held(1006);
  allowed.state = ChargeState::allow;
  EXPECT_EQ(filter.keep(allowed), 2);
  EXPECT_EQ(filter.before(), held(1005));
  allowed.time = 1007;
  allowed.light = Light::green;
  EXPECT_EQ(filter.keep(allowed), 1) << "the previous moment is already kept";
}

TEST_F(SampleFilterTest, keepsAJumpOfANumber) {
  Moment jumped = held(1001);
  jumped.currentMA = 199;
  EXPECT_EQ(filter.keep(jumped), 0);
  jumped.currentMA = 200;
  EXPECT_EQ(filter.keep(jumped), 2);
  EXPECT_EQ(filter.before().currentMA, 199);
}

TEST_F(SampleFilterTest, keepsTheRemovalOfTheBattery) {
  Moment gone = held(1001);
  gone.level.reset();
  EXPECT_EQ(filter.keep(gone), 1);
}

TEST_F(SampleFilterTest, alwaysKeepsTheEnd) {
  EXPECT_EQ(filter.rest(), std::nullopt);
  EXPECT_EQ(filter.keep(held(1005)), 0);
  EXPECT_EQ(filter.rest(), held(1005));
}

// --- The machine

virtual_mac::Machine makeAir() { return virtual_mac::makeMachine(*virtual_mac::findModel("air13")); }

Moment lastOf(const virtual_mac::Machine& machine) {
  Recording recording;
  recording.note(machine, false);
  return recording.picture().moments.back();
}

TEST(RecordedMachine, showsTheStateOfTheHardware) {
  virtual_mac::Machine machine = makeAir();
  const Moment plugged = lastOf(machine);
  EXPECT_NEAR(plugged.level.value_or(0), 70, 0.01);
  EXPECT_EQ(plugged.hardware, ChargeState::allow);
  EXPECT_EQ(plugged.supply, Supply::connected);
  EXPECT_EQ(plugged.light, Light::system);
  EXPECT_EQ(plugged.wakefulness, Wakefulness::awake);
  EXPECT_EQ(plugged.state, std::nullopt) << "no daemon runs";
  EXPECT_EQ(plugged.band, std::nullopt);
}

TEST(RecordedMachine, hasNoLightWithoutAnAdapter) {
  virtual_mac::Machine machine = makeAir();
  virtual_mac::apply(machine, {.kind = virtual_mac::ChangeKind::unplug});
  EXPECT_EQ(lastOf(machine).supply, Supply::none);
  EXPECT_EQ(lastOf(machine).light, std::nullopt);
}

TEST(RecordedMachine, followsTheKeys) {
  virtual_mac::Machine machine = makeAir();
  const auto write = [&](const char* key, std::vector<std::uint8_t> bytes) {
    virtual_mac::Change change{.kind = virtual_mac::ChangeKind::keyBytes, .key = virtual_mac::keyCode(key)};
    change.byteCount = static_cast<std::uint32_t>(bytes.size());
    std::copy(bytes.begin(), bytes.end(), change.bytes.begin());
    virtual_mac::apply(machine, change);
  };
  write("CHTE", {1, 0, 0, 0});
  EXPECT_EQ(lastOf(machine).hardware, ChargeState::hold);
  write("CHIE", {8});
  EXPECT_EQ(lastOf(machine).hardware, ChargeState::discharge);
  EXPECT_EQ(lastOf(machine).supply, Supply::cut);
  for (const auto& [byte, light] :
       {std::pair{1, Light::off}, std::pair{3, Light::green}, std::pair{4, Light::orange}}) {
    write("ACLC", {static_cast<std::uint8_t>(byte)});
    EXPECT_EQ(lastOf(machine).light, light);
  }
}

TEST(RecordedMachine, hasNoNumbersWithoutABattery) {
  virtual_mac::Machine machine = makeAir();
  virtual_mac::apply(machine, {.kind = virtual_mac::ChangeKind::batteryInstalled, .number = 0});
  const Moment moment = lastOf(machine);
  EXPECT_EQ(moment.level, std::nullopt);
  EXPECT_EQ(moment.shown, std::nullopt);
  EXPECT_EQ(moment.currentMA, std::nullopt);
  EXPECT_EQ(moment.temperatureC, std::nullopt);
}

TEST(RecordedMachine, keepsTheClockOfItsStart) {
  virtual_mac::Machine machine = makeAir();
  const double begin = virtual_mac::wallClock(machine);
  Recording recording;
  recording.note(machine, false);
  EXPECT_THAT(recording.picture().notes, IsEmpty());
  virtual_mac::advance(machine, machine.now + 100);
  virtual_mac::apply(machine, {.kind = virtual_mac::ChangeKind::clockStep, .number = -3600});
  recording.noteEvent(machine, "clock-step -3600");
  recording.noteLine(machine, "2026-03-01T07:01:40Z  told in the old hour again");
  recording.note(machine, false);
  const Picture picture = recording.picture();
  EXPECT_EQ(picture.moments.back().time, begin + 100);
  EXPECT_EQ(picture.events.back().time, begin + 100);
  EXPECT_EQ(picture.log.back().time, begin + 100);
  EXPECT_THAT(picture.notes, ElementsAre(StartsWith("The clock was set meanwhile.")));
}

TEST(RecordedLines, areAtTheirTimes) {
  virtual_mac::Machine machine = makeAir();
  const double begin = machine.now;
  virtual_mac::advance(machine, begin + 600);
  Recording recording;
  recording.noteLine(machine, "2026-03-01T08:05:00Z  five minutes in");
  recording.noteLine(machine, "2026-03-01T08:04:00Z  never before the line above");
  recording.noteLine(machine, "2026-03-01T09:00:00Z  never after now");
  recording.noteLine(machine, "no time at all");
  std::vector<double> times;
  for (const LoggedLine& line : recording.picture().log) times.push_back(line.time - begin);
  EXPECT_THAT(times, ElementsAre(300, 300, 600, 600));
}

// --- A scenario

Picture pictureOf(const std::string& rest, std::vector<std::string>* log = nullptr) {
  Diagnostics diagnostics("a.json");
  const auto scenario = readScenario(R"({"description": "It is recorded.", )" + rest + "}", diagnostics);
  EXPECT_THAT(diagnostics.texts(), IsEmpty());
  if (!scenario) return {};
  Recording recording;
  const Outcome outcome = runScenario(*scenario, diagnostics, {.recording = &recording});
  EXPECT_THAT(outcome.failures, IsEmpty());
  if (log != nullptr) *log = outcome.log;
  return recording.picture();
}

// The values at a time, e.g. "2026-03-01 08:00".
Moment at(const Picture& picture, const std::string& date) {
  const double time = parseDate(date).value_or(0);
  Moment found;
  for (const Moment& moment : picture.moments) {
    if (moment.time <= time) found = moment;
  }
  return found;
}

TEST(RecordedScenario, recordsTheStateOfTheDaemon) {
  const Picture picture = pictureOf(R"("mac": {"percent": 70}, "settings": {"limit": 80},
      "timeline": [{"at": "+1 h", "do": "unplug"}, {"at": "+1 min", "see": {"state": "allow"}}])");
  const Moment first = at(picture, "2026-03-01 08:01");
  EXPECT_EQ(first.state, ChargeState::allow);
  EXPECT_EQ(first.band, (Bounds{.upper = 80, .lower = 75}));
  EXPECT_EQ(first.light, Light::blinking);
  EXPECT_EQ(first.shown, 71);
  const Moment held = at(picture, "2026-03-01 08:59");
  EXPECT_EQ(held.state, ChargeState::hold);
  EXPECT_EQ(held.hardware, ChargeState::hold);
  EXPECT_EQ(held.light, Light::green);
  EXPECT_THAT(picture.events, ElementsAre(AllOf(Field(&Event::words, "unplug"),
                                                Field(&Event::time, parseDate("2026-03-01 09:00").value()))));
  EXPECT_THAT(picture.log, Contains(Field(&LoggedLine::text,
                                          "2026-03-01T08:00:00Z  XPC listening on "
                                          "com.brisko.daemon.xpc")));
}

TEST(RecordedScenario, recordsNoDaemonStateWhileNoneRuns) {
  const Picture picture = pictureOf(R"("daemon": {"keptAlive": false}, "timeline": [
      {"at": "+10 min", "do": "kill"}, {"at": "+10 min", "see": {"running": false}}])");
  EXPECT_NE(at(picture, "2026-03-01 08:09").state, std::nullopt);
  EXPECT_EQ(at(picture, "2026-03-01 08:15").state, std::nullopt);
  EXPECT_EQ(at(picture, "2026-03-01 08:15").band, std::nullopt);
  EXPECT_NE(at(picture, "2026-03-01 08:15").hardware, std::nullopt);
}

TEST(RecordedScenario, hasNoBandWithoutALimit) {
  const Picture picture = pictureOf(R"("settings": {"limit": 80}, "timeline": [
      {"at": "+10 min", "do": {"settings": {"enabled": false}}}, {"at": "+10 min", "see": {"running": true}}])");
  EXPECT_NE(at(picture, "2026-03-01 08:09").band, std::nullopt);
  EXPECT_EQ(at(picture, "2026-03-01 08:15").band, std::nullopt);
  EXPECT_THAT(picture.events, ElementsAre(Field(&Event::words, "settings enabled false")));
}

TEST(RecordedScenario, showsWhyTheChargeLeavesTheBand) {
  const Picture picture = pictureOf(R"("settings": {"limit": 80, "thermal": true}, "timeline": [
      {"at": "+10 min", "do": {"settings": {"topUp": true}}},
      {"at": "+10 min", "do": {"temperature": 45}},
      {"at": "+1 min", "do": {"settings": {"calibrate": true}}}, {"at": "+10 min", "see": {"running": true}}])");
  EXPECT_EQ(at(picture, "2026-03-01 08:09").occasion, Occasion::none);
  EXPECT_EQ(at(picture, "2026-03-01 08:15").occasion, Occasion::topUp);
  EXPECT_EQ(at(picture, "2026-03-01 08:15").band, (Bounds{.upper = 100, .lower = 99}));
  EXPECT_EQ(at(picture, "2026-03-01 08:20:30").occasion, Occasion::heat);
  EXPECT_EQ(at(picture, "2026-03-01 08:25").occasion, Occasion::fill);
  EXPECT_EQ(at(picture, "2026-03-01 08:25").band, std::nullopt);
}

TEST(RecordedScenario, recordsSleepAndShutdown) {
  const Picture picture = pictureOf(R"("timeline": [
      {"at": "+10 min", "do": "unplug"}, {"at": "+1 min", "do": "sleep"}, {"at": "+2 h", "do": {"dark-wake": 45}},
      {"at": "+1 h", "do": "wake"}, {"at": "+1 h", "do": "shutdown"}, {"at": "+1 h", "see": {"running": false}}])");
  EXPECT_EQ(at(picture, "2026-03-01 08:10:59").wakefulness, Wakefulness::awake);
  EXPECT_EQ(at(picture, "2026-03-01 08:11:10").wakefulness, Wakefulness::asleep);
  EXPECT_EQ(at(picture, "2026-03-01 09:00").wakefulness, Wakefulness::asleep);
  EXPECT_EQ(at(picture, "2026-03-01 10:11:30").wakefulness, Wakefulness::darkWake);
  EXPECT_EQ(at(picture, "2026-03-01 10:11:55").wakefulness, Wakefulness::asleep);
  EXPECT_EQ(at(picture, "2026-03-01 11:30").wakefulness, Wakefulness::awake);
  EXPECT_EQ(at(picture, "2026-03-01 12:30").wakefulness, Wakefulness::off);
  EXPECT_EQ(picture.moments.back().time, parseDate("2026-03-01 13:11").value());
}

TEST(RecordedScenario, isSmallWhenItIsQuiet) {
  const Picture picture = pictureOf(R"("mac": {"percent": 80}, "settings": {"limit": 80}, "timeline": [
      {"at": "+1 day", "see": {"state": "hold"}}])");
  EXPECT_LT(picture.moments.size(), 150U);
  EXPECT_GT(picture.moments.size(), 95U);
}

TEST(RecordedScenario, isNotAffectedByTheRecording) {
  const std::string text = R"({"description": "x", "settings": {"limit": 80}, "timeline": [
      {"at": "+10 min", "do": "sleep"}, {"at": "+9 h", "do": "wake"}, {"at": "+1 h", "do": "kill"},
      {"at": "+1 h", "do": "unplug"}, {"at": "+2 h", "see": {"running": true}}]})";
  Diagnostics diagnostics("a.json");
  const auto scenario = readScenario(text, diagnostics);
  ASSERT_TRUE(scenario);
  Recording recording;
  const Outcome recorded = runScenario(*scenario, diagnostics, {.recording = &recording});
  const Outcome plain = runScenario(*scenario, diagnostics);
  EXPECT_EQ(recorded.log, plain.log);
  EXPECT_THAT(plain.log, SizeIs(::testing::Gt(5U)));
  EXPECT_THAT(recording.picture().log, SizeIs(::testing::Gt(20U)));
}

}  // namespace
}  // namespace brisko::lab::recording_test
