// The contract of platform/run_loop.h for timers and posted work.

#include "platform/run_loop.h"

#include <string>
#include <thread>
#include <vector>

#include "platform/clock.h"
#include "support/contract_machine.h"
#include "support/testing.h"

namespace brisko::platform::run_loop_test {
namespace {

using namespace test;

class RunLoopContract : public ::testing::Test {
 protected:
  // Work that appends a text to the trace.
  Work saying(const std::string& word) {
    return [this, word] { words.push_back(word); };
  }

  // Seconds since the start of the test.
  [[nodiscard]] double elapsed() const { return uptime() - begin_; }

  // Not earlier than `expected`, and exactly then in virtual time.
  static void expectAt(double time, double expected) {
    EXPECT_GE(time, expected);
    if (ContractMachine::timeIsExact()) {
      EXPECT_EQ(time, expected);
    }
  }

  ContractMachine mac;
  std::vector<std::string> words;

 private:
  double begin_ = uptime();
};

TEST_F(RunLoopContract, aTimerFiresFirstAfterOneInterval) {
  std::vector<double> times;
  (void)addRepeatingTimer(12, [&] {
    times.push_back(elapsed());
    stopMain();
  });
  runMain();
  ASSERT_EQ(times.size(), 1U);
  expectAt(times[0], 12);
}

TEST_F(RunLoopContract, aTimerContinuesFiringOnItsGrid) {
  std::vector<double> times;
  (void)addRepeatingTimer(20, [&] {
    times.push_back(elapsed());
    if (times.size() == 4) stopMain();
  });
  runMain();
  ASSERT_EQ(times.size(), 4U);
  for (std::size_t index = 0; index < times.size(); ++index) {
    expectAt(times[index], 20 * (static_cast<double>(index) + 1));
  }
}

TEST_F(RunLoopContract, aLateTimerFiresOnceAndKeepsItsGrid) {
  std::vector<double> times;
  (void)addRepeatingTimer(10, [&] {
    times.push_back(elapsed());
    if (times.size() == 2) stopMain();
  });
  pause(35);
  runMain();
  ASSERT_EQ(times.size(), 2U);
  expectAt(times[0], 35);
  expectAt(times[1], 40);
}

TEST_F(RunLoopContract, aTimerThatIsLateByAHundredIntervalsFiresOnce) {
  std::vector<double> times;
  (void)addRepeatingTimer(12, [&] {
    times.push_back(elapsed());
    if (times.size() == 2) stopMain();
  });
  pause(1200);
  runMain();
  ASSERT_EQ(times.size(), 2U);
  expectAt(times[0], 1200);
  expectAt(times[1], 1212);
}

TEST_F(RunLoopContract, timersDueAtTheSameInstantRunInTheOrderAdded) {
  (void)addRepeatingTimer(12, saying("heartbeat"));
  (void)addRepeatingTimer(20, saying("statistics"));
  pause(60);
  postMain([] { stopMain(); });
  runMain();
  EXPECT_THAT(words, ElementsAre("heartbeat", "statistics"));
}

// At 60 s both are due. The second has waited for longer, but the first was added first.
TEST_F(RunLoopContract, timersKeepTheOrderInWhichTheyWereAdded) {
  int statistics = 0;
  (void)addRepeatingTimer(12, saying("heartbeat"));
  (void)addRepeatingTimer(20, [&] {
    words.push_back("statistics");
    if (++statistics == 3) stopMain();
  });
  runMain();
  ASSERT_GE(words.size(), 2U);
  EXPECT_EQ(words[words.size() - 2], "heartbeat");
  if (ContractMachine::timeIsExact()) {
    EXPECT_THAT(words, ElementsAre("heartbeat", "statistics", "heartbeat", "heartbeat", "statistics",
                                   "heartbeat", "heartbeat", "statistics"));
  }
}

TEST_F(RunLoopContract, aTimerInvalidatedInItsOwnWorkNeverFiresAgain) {
  TimerToken token = 0;
  token = addRepeatingTimer(2, [&] {
    words.push_back("once");
    invalidateTimer(token);
  });
  postMainAfter(21, [] { stopMain(); });
  runMain();
  EXPECT_THAT(words, ElementsAre("once"));
}

TEST_F(RunLoopContract, aTimerThatIsDueButInvalidatedDoesNotFire) {
  TimerToken second = 0;
  (void)addRepeatingTimer(5, [&] {
    words.push_back("first");
    invalidateTimer(second);
    stopMain();
  });
  second = addRepeatingTimer(5, saying("second"));
  pause(6);
  runMain();
  postMainAfter(20, [] { stopMain(); });
  runMain();
  EXPECT_THAT(words, ::testing::Each("first"));
}

TEST_F(RunLoopContract, aTimerMayAddAnotherInItsWork) {
  bool added = false;
  (void)addRepeatingTimer(5, [&] {
    if (added) return;
    added = true;
    (void)addRepeatingTimer(3, [&] {
      words.push_back("added");
      stopMain();
    });
  });
  runMain();
  EXPECT_THAT(words, ElementsAre("added"));
  expectAt(elapsed(), 8);
}

TEST_F(RunLoopContract, tokensAreNeverZeroAndUnknownOnesAreIgnored) {
  const TimerToken first = addRepeatingTimer(5, [] { stopMain(); });
  const TimerToken second = addRepeatingTimer(5, [] {});
  EXPECT_NE(first, 0U);
  EXPECT_NE(second, 0U);
  EXPECT_NE(first, second);
  invalidateTimer(0);
  invalidateTimer(second);
  invalidateTimer(second);
  invalidateTimer(second + 1000);
  runMain();
}

TEST_F(RunLoopContract, postedWorkRunsInTheOrderPosted) {
  for (const char* word : {"one", "two", "three"}) postMain(saying(word));
  postMain([] { stopMain(); });
  postMain(saying("too late"));
  runMain();
  EXPECT_THAT(words, ElementsAre("one", "two", "three"));
}

TEST_F(RunLoopContract, postingRunsNothingAtOnce) {
  postMain(saying("later"));
  EXPECT_THAT(words, IsEmpty());
  postMain([] { stopMain(); });
  runMain();
  EXPECT_THAT(words, ElementsAre("later"));
}

TEST_F(RunLoopContract, workPostedByWorkRunsAfterIt) {
  postMain([&] {
    postMain(saying("posted"));
    postMain([] { stopMain(); });
    words.push_back("poster");
  });
  runMain();
  EXPECT_THAT(words, ElementsAre("poster", "posted"));
}

TEST_F(RunLoopContract, workCanBePostedByOtherThreads) {
  std::thread::id ranOn;
  postMain([&] {
    std::thread other([&] {
      postMain([&] {
        ranOn = std::this_thread::get_id();
        stopMain();
      });
    });
    other.join();
  });
  runMain();
  EXPECT_EQ(ranOn, std::this_thread::get_id());
}

TEST_F(RunLoopContract, delayedWorkRunsOnceAndNotBeforeItsTime) {
  postMainAfter(30, [&] {
    words.push_back("delayed");
    expectAt(elapsed(), 30);
  });
  postMainAfter(65, [] { stopMain(); });
  runMain();
  EXPECT_THAT(words, ElementsAre("delayed"));
}

TEST_F(RunLoopContract, delayedWorkRunsInTheOrderOfItsTimes) {
  postMainAfter(30, [&] {
    words.push_back("thirty");
    stopMain();
  });
  postMainAfter(0.3, saying("a moment"));
  postMainAfter(10, saying("ten"));
  postMainAfter(0, saying("nothing"));
  runMain();
  EXPECT_THAT(words, ElementsAre("nothing", "a moment", "ten", "thirty"));
}

TEST_F(RunLoopContract, stoppingFinishesTheCurrentPieceOfWork) {
  postMain([&] {
    stopMain();
    words.push_back("finished");
  });
  postMain(saying("not begun"));
  runMain();
  EXPECT_THAT(words, ElementsAre("finished"));
}

TEST_F(RunLoopContract, canBeRunAgainAndContinuesWhereItStopped) {
  postMain([] { stopMain(); });
  postMain(saying("left over"));
  runMain();
  postMain([] { stopMain(); });
  runMain();
  EXPECT_THAT(words, ElementsAre("left over"));
}

TEST(RunLoopWithoutAMachine, stillKeepsTimeAndOrder) {
  std::vector<std::string> words;
  const double before = uptime();
  (void)addRepeatingTimer(0.01, [&] {
    words.emplace_back("timer");
    stopMain();
  });
  postMain([&] { words.emplace_back("posted"); });
  runMain();
  EXPECT_THAT(words, ElementsAre("posted", "timer"));
  constexpr double rounding = 1e-6;  // larger than the rounding error of a clock in doubles
  EXPECT_GE(uptime(), before + 0.01 - rounding);
}

}  // namespace
}  // namespace brisko::platform::run_loop_test
