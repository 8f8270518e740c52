// The processes that run scenarios in parallel.

#include "sim/generate/worker_pool.h"

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <stdexcept>

#include <unistd.h>

#include "sim/process/scratch.h"
#include "support/scratch_folder.h"
#include "support/testing.h"

namespace brisko::lab::worker_pool_test {
namespace {

using namespace test;
using std::chrono::milliseconds;

class WorkerPoolTest : public ::testing::Test {
 protected:
  WorkerPoolTest() { sim::setScratchRoot(folder.path()); }

  static std::vector<WorkerPool::Ended> waitForAll(WorkerPool& pool) {
    std::vector<WorkerPool::Ended> all;
    while (!pool.allIdle()) {
      for (WorkerPool::Ended& ended : pool.wait(milliseconds(100))) all.push_back(std::move(ended));
    }
    std::sort(all.begin(), all.end(),
              [](const auto& left, const auto& right) { return left.number < right.number; });
    return all;
  }

  static Verdict verdictOf(const WorkerPool::Task& play, milliseconds timeout = WorkerPool::usualTimeout) {
    WorkerPool pool(1, timeout);
    pool.begin(1, play);
    return waitForAll(pool).at(0).verdict;
  }

  test::ScratchFolder folder;
};

TEST_F(WorkerPoolTest, reportsTheirResults) {
  const Verdict verdict = verdictOf([](const ShouldContinue&) {
    return Verdict{.result = Result::failed,
                   .begin = 1000,
                   .seconds = 60.5,
                   .invariant = 9,
                   .invariantText = "9. It holds.",
                   .at = 59.25,
                   .seen = "\"82\"\n%",
                   .log = {"one", "two"},
                   .timedAction = 4};
  });
  EXPECT_EQ(verdict.result, Result::failed);
  EXPECT_EQ(verdict.begin, 1000);
  EXPECT_EQ(verdict.seconds, 60.5);
  EXPECT_EQ(verdict.invariant, 9);
  EXPECT_EQ(verdict.invariantText, "9. It holds.");
  EXPECT_EQ(verdict.at, 59.25);
  EXPECT_EQ(verdict.seen, "\"82\"\n%");
  EXPECT_THAT(verdict.log, ElementsAre("one", "two"));
  EXPECT_EQ(verdict.timedAction, 4U);
}

TEST_F(WorkerPoolTest, runsTheRequestedNumberAtATime) {
  WorkerPool pool(2);
  const WorkerPool::Task play = [](const ShouldContinue&) { return Verdict{.result = Result::passed}; };
  pool.begin(1, play);
  EXPECT_FALSE(pool.allBusy());
  pool.begin(2, play);
  EXPECT_TRUE(pool.allBusy());
  EXPECT_THAT(waitForAll(pool), SizeIs(2));
  EXPECT_TRUE(pool.allIdle());
}

TEST_F(WorkerPoolTest, reportsCrashedWorkers) {
  const Verdict killed = verdictOf([](const ShouldContinue&) -> Verdict {
    static_cast<void>(std::fputs("so it ends\n", stderr));
    std::abort();
  });
  EXPECT_EQ(killed.result, Result::crashed);
  EXPECT_THAT(killed.seen, HasSubstr("ended by signal 6; its standard error ended:\nso it ends\n"));

  const Verdict left = verdictOf([](const ShouldContinue&) -> Verdict { ::_exit(99); });
  EXPECT_EQ(left.result, Result::crashed);
  EXPECT_EQ(left.seen, "the worker process ended with status 99");

  const Verdict threw =
      verdictOf([](const ShouldContinue&) -> Verdict { throw std::runtime_error("no memory"); });
  EXPECT_THAT(threw.seen, HasSubstr("with status 1; its standard error ended:\nno memory"));
}

TEST_F(WorkerPoolTest, killsWorkersAfterTheTimeout) {
  const Verdict verdict = verdictOf(
      [](const ShouldContinue&) -> Verdict {
        for (;;) ::pause();
      },
      milliseconds(200));
  EXPECT_EQ(verdict.result, Result::crashed);
  EXPECT_THAT(verdict.seen, HasSubstr("reported nothing"));
}

TEST_F(WorkerPoolTest, cancelsWorkersOnRequest) {
  WorkerPool pool(1);
  pool.begin(1, [](const ShouldContinue& shouldContinue) {
    double seconds = 0;
    while (shouldContinue(seconds)) ::usleep(1000);
    return Verdict{.result = Result::cancelled};
  });
  EXPECT_THAT(pool.wait(milliseconds(20)), IsEmpty());
  pool.cancel();
  EXPECT_EQ(waitForAll(pool).at(0).verdict.result, Result::cancelled);
}

TEST_F(WorkerPoolTest, reportsTheirProgress) {
  WorkerPool pool(1);
  pool.begin(1, [](const ShouldContinue& shouldContinue) {
    double seconds = 0;
    while (shouldContinue(seconds += 43200)) ::usleep(1000);
    return Verdict{.result = Result::cancelled};
  });
  while (pool.secondsUnderWay() < 3 * 86400) static_cast<void>(pool.wait(milliseconds(100)));
  pool.cancel();
  waitForAll(pool);
  EXPECT_EQ(pool.secondsUnderWay(), 0);
}

TEST_F(WorkerPoolTest, leavesNothingBehind) {
  {
    WorkerPool pool(2);
    pool.begin(1, [](const ShouldContinue&) -> Verdict {
      const sim::ScratchFolder thrownAway("thrown-away");
      std::abort();
    });
    waitForAll(pool);
    pool.begin(2, [](const ShouldContinue&) -> Verdict {
      for (;;) ::pause();
    });
  }
  EXPECT_TRUE(std::filesystem::is_empty(folder.path()));
}

TEST_F(WorkerPoolTest, isNotInterruptedByTheTerminal) {
  const Verdict verdict = verdictOf([](const ShouldContinue&) {
    return Verdict{.result = Result::passed, .seen = ::getpgrp() == ::getpid() ? "apart" : "together"};
  });
  EXPECT_EQ(verdict.seen, "apart");
}

}  // namespace
}  // namespace brisko::lab::worker_pool_test
