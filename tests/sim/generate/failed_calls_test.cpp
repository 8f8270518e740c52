// Scenarios in which one call fails.

#include "sim/generate/failed_calls.h"

#include <algorithm>
#include <map>
#include <stdexcept>
#include <utility>

#include "sim/scenario/run_scenario.h"
#include "support/files.h"
#include "support/scratch_folder.h"
#include "support/testing.h"

namespace brisko::lab::failed_calls_test {
namespace {

using namespace test;

// The limit is reached a few minutes after the start, and the adapter is pulled out later.
constexpr const char* limitIsReached = R"({
  "description": "The limit is reached.",
  "mac": {"percent": 74},
  "settings": {"limit": 80},
  "timeline": [{"at": "+60 min", "do": "unplug"}, {"at": "+5 min", "see": {"running": true}}]
})";

class FailedCalls : public ::testing::Test {
 protected:
  Diagnostics diagnostics{"limit.json"};
  Scenario scenario = [this] {
    Scenario read = readScenario(limitIsReached, diagnostics).value();
    read.setup.keptAlive = read.setup.backsOff = true;
    return read;
  }();

  [[nodiscard]] Outcome run(CallFaults& faults) {
    return runScenario(scenario, diagnostics, {.callFaults = &faults});
  }

  [[nodiscard]] std::vector<CallPoint> points() {
    CallFaults recorded;
    static_cast<void>(run(recorded));
    return recorded.points();
  }

  // The first one of the calls with this text in this state.
  [[nodiscard]] CallPoint point(const std::string& call, const std::string& state) {
    for (CallPoint& point : points()) {
      if (point.call == call && point.state == state) return std::move(point);
    }
    throw std::logic_error("there is no " + call + " in " + state);
  }

  static bool logs(const Outcome& outcome, const std::string& text) {
    return std::any_of(outcome.wholeLog.begin(), outcome.wholeLog.end(),
                       [&](const std::string& line) { return line.find(text) != std::string::npos; });
  }
};

TEST(CallChoices, areACallAndHowItFails) {
  EXPECT_EQ(parseCallChoice("17:once")->number, 17U);
  EXPECT_EQ(parseCallChoice("17:killed")->fault, CallFault::killed);
  EXPECT_EQ(parseCallChoice("17:from-then-on")->fault, CallFault::fromThenOn);
  for (const char* bad : {"", "17", ":once", "17:", "17:twice", "a:once", "17 :once"}) {
    EXPECT_FALSE(parseCallChoice(bad)) << bad;
  }
}

TEST_F(FailedCalls, areRecordedThreeTimesInEachStateAndAtEachKeyWrite) {
  const std::vector<CallPoint> all = points();
  std::map<std::pair<std::string, std::string>, int> counts;
  std::uint64_t before = 0;
  for (const CallPoint& point : all) {
    EXPECT_GT(point.number, before);
    before = point.number;
    EXPECT_EQ(point.isKeyWrite, point.call.starts_with("write of the key "));
    if (!point.isKeyWrite) ++counts[{point.call, point.state}];
  }
  for (const auto& [kind, count] : counts) EXPECT_LE(count, 3) << kind.first << " in " << kind.second;
  for (const auto& kind : std::vector<std::pair<std::string, std::string>>{
           {"powerSources", "allow"},
           {"powerSources", "hold"},
           {"read of the key AC-W", "hold"},
           {"open for reading /Library/Application Support/Brisko/config.json", "hold"},
           {"write /Library/Application Support/Brisko/status.json", "allow"},
           {"write /Library/Application Support/Brisko/history/####-##-##.jsonl", "hold"},
       }) {
    EXPECT_EQ(counts[kind], 3) << kind.first << " in " << kind.second;
  }
  EXPECT_EQ((counts[{"openSmc", "starting"}]), 1);
  const auto isStop = [](const CallPoint& point) {
    return point.call == "write of the key CHTE" && point.state == "allow";
  };
  EXPECT_EQ(std::count_if(all.begin(), all.end(), isStop), 1);
}

TEST_F(FailedCalls, failOnce) {
  CallFaults faults(point("write of the key CHTE", "allow"), CallFault::once);
  const Outcome outcome = run(faults);
  ASSERT_TRUE(faults.failedAt());
  EXPECT_FALSE(faults.differed());
  EXPECT_TRUE(logs(outcome, "gate found open during a hold")) << "it was written again";
  EXPECT_TRUE(logs(outcome, "restored, exiting"));
  EXPECT_NEAR(outcome.begin + outcome.seconds, *faults.failedAt() + secondsAfterFailedCall, 100);
}

TEST_F(FailedCalls, failFromThenOn) {
  CallFaults faults(point("powerSources", "hold"), CallFault::fromThenOn);
  const Outcome outcome = run(faults);
  EXPECT_FALSE(outcome.violation);
  EXPECT_TRUE(logs(outcome, "restored, exiting"));
  EXPECT_FALSE(logs(outcome, "→ state: allow")) << "nobody tells it that the adapter was pulled out";
}

TEST_F(FailedCalls, mayKillTheDaemonInstead) {
  CallFaults faults(point("write of the key CHTE", "allow"), CallFault::killed);
  const Outcome outcome = run(faults);
  EXPECT_FALSE(outcome.violation);
  const auto starts = std::count_if(outcome.wholeLog.begin(), outcome.wholeLog.end(), [](const auto& line) {
    return line.find("XPC listening") != std::string::npos;
  });
  EXPECT_EQ(starts, 2);
}

TEST_F(FailedCalls, areNotMistakenForOthers) {
  CallPoint other = point("powerSources", "hold");
  other.call = "openSmc";
  CallFaults faults(other, CallFault::once);
  static_cast<void>(run(faults));
  EXPECT_TRUE(faults.differed());

  CallPoint late = point("powerSources", "hold");
  late.number = 1'000'000'000;
  CallFaults never(late, CallFault::once);
  static_cast<void>(run(never));
  EXPECT_FALSE(never.failedAt());
}

TEST_F(FailedCalls, areCountedByScenario) {
  test::ScratchFolder folder;
  test::put(folder.path("limit.json"), limitIsReached);
  std::string printed;
  const Output output{.print = [&](const std::string& text) { printed += text; },
                      .progress = [](const auto&) {}};
  const int status = runFailedCalls(
      {.scenarios = {folder.path("limit.json")}, .jobs = 2, .calls = "write of the key CHTE"}, output);
  EXPECT_EQ(status, campaignPassed);
  EXPECT_THAT(printed,
              ContainsRegex("\n +[0-9]+ +[0-9]+ +([0-9]+) +[0-9]+ +[0-9]+ +[0-9]+ +0  limit.json\n"));
  EXPECT_THAT(printed,
              ContainsRegex("\n([0-9]+) of [0-9]+ runs \\(100.0 %\\), 0 failures, [0-9]+ s of processor"));
  EXPECT_EQ(runFailedCalls({.scenarios = {folder.path("none.json")}}, output), campaignUnusable);
}

}  // namespace
}  // namespace brisko::lab::failed_calls_test
