// The processes that play stories side by side.

#include "sim/generate/players.h"

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <stdexcept>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "sim/process/scratch.h"
#include "support/scratch_folder.h"

namespace brisko::lab {
namespace {

using std::chrono::milliseconds;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::SizeIs;

class PlayersTest : public ::testing::Test {
 protected:
  PlayersTest() { lives::setScratchRoot(folder.path()); }

  static std::vector<Players::Ended> waitForAll(Players& players) {
    std::vector<Players::Ended> all;
    while (!players.allIdle()) {
      for (Players::Ended& ended : players.wait(milliseconds(100))) all.push_back(std::move(ended));
    }
    std::sort(all.begin(), all.end(),
              [](const auto& left, const auto& right) { return left.number < right.number; });
    return all;
  }

  static Verdict verdictOf(const Players::Play& play, milliseconds patience = Players::usualPatience) {
    Players players(1, patience);
    players.begin(1, play);
    return waitForAll(players).at(0).verdict;
  }

  test::ScratchFolder folder;
};

TEST_F(PlayersTest, tellWhatTheySaw) {
  const Verdict verdict = verdictOf([](const GoesOn&) {
    return Verdict{.went = Went::wrong,
                   .begin = 1000,
                   .seconds = 60.5,
                   .invariant = 9,
                   .at = 59.25,
                   .seen = "\"82\"\n%",
                   .log = {"one", "two"},
                   .happening = 4};
  });
  EXPECT_EQ(verdict.went, Went::wrong);
  EXPECT_EQ(verdict.begin, 1000);
  EXPECT_EQ(verdict.seconds, 60.5);
  EXPECT_EQ(verdict.invariant, 9);
  EXPECT_EQ(verdict.at, 59.25);
  EXPECT_EQ(verdict.seen, "\"82\"\n%");
  EXPECT_THAT(verdict.log, ElementsAre("one", "two"));
  EXPECT_EQ(verdict.happening, 4U);
}

TEST_F(PlayersTest, areAsManyAtATimeAsIsAskedFor) {
  Players players(2);
  const Players::Play play = [](const GoesOn&) { return Verdict{.went = Went::well}; };
  players.begin(1, play);
  EXPECT_FALSE(players.allBusy());
  players.begin(2, play);
  EXPECT_TRUE(players.allBusy());
  EXPECT_THAT(waitForAll(players), SizeIs(2));
  EXPECT_TRUE(players.allIdle());
}

TEST_F(PlayersTest, areToldOfWhenTheyDie) {
  const Verdict killed = verdictOf([](const GoesOn&) -> Verdict {
    static_cast<void>(std::fputs("so it ends\n", stderr));
    std::abort();
  });
  EXPECT_EQ(killed.went, Went::nowhere);
  EXPECT_THAT(killed.seen, HasSubstr("ended by signal 6; its last words:\nso it ends\n"));

  const Verdict left = verdictOf([](const GoesOn&) -> Verdict { ::_exit(99); });
  EXPECT_EQ(left.went, Went::nowhere);
  EXPECT_EQ(left.seen, "the process that played it ended with status 99");

  const Verdict threw = verdictOf([](const GoesOn&) -> Verdict { throw std::runtime_error("no memory"); });
  EXPECT_THAT(threw.seen, HasSubstr("with status 1; its last words:\nno memory"));
}

TEST_F(PlayersTest, areEndedWhenNothingIsHeardOfThem) {
  const Verdict verdict = verdictOf(
      [](const GoesOn&) -> Verdict {
        for (;;) ::pause();
      },
      milliseconds(200));
  EXPECT_EQ(verdict.went, Went::nowhere);
  EXPECT_THAT(verdict.seen, HasSubstr("said nothing"));
}

TEST_F(PlayersTest, breakOffWhenAskedTo) {
  Players players(1);
  players.begin(1, [](const GoesOn& goesOn) {
    double seconds = 0;
    while (goesOn(seconds)) ::usleep(1000);
    return Verdict{.went = Went::brokenOff};
  });
  EXPECT_THAT(players.wait(milliseconds(20)), IsEmpty());
  players.breakOff();
  EXPECT_EQ(waitForAll(players).at(0).verdict.went, Went::brokenOff);
}

TEST_F(PlayersTest, tellHowFarTheyAre) {
  Players players(1);
  players.begin(1, [](const GoesOn& goesOn) {
    double seconds = 0;
    while (goesOn(seconds += 43200)) ::usleep(1000);
    return Verdict{.went = Went::brokenOff};
  });
  while (players.secondsUnderWay() < 3 * 86400) static_cast<void>(players.wait(milliseconds(100)));
  players.breakOff();
  waitForAll(players);
  EXPECT_EQ(players.secondsUnderWay(), 0);
}

TEST_F(PlayersTest, leaveNothingBehind) {
  {
    Players players(2);
    players.begin(1, [](const GoesOn&) -> Verdict {
      static_cast<void>(lives::makeScratchFolder("thrown-away"));
      std::abort();
    });
    waitForAll(players);
    players.begin(2, [](const GoesOn&) -> Verdict {
      for (;;) ::pause();
    });
  }
  EXPECT_TRUE(std::filesystem::is_empty(folder.path()));
}

TEST_F(PlayersTest, areOutOfReachOfTheTerminal) {
  const Verdict verdict = verdictOf([](const GoesOn&) {
    return Verdict{.went = Went::well, .seen = ::getpgrp() == ::getpid() ? "apart" : "together"};
  });
  EXPECT_EQ(verdict.seen, "apart");
}

}  // namespace
}  // namespace brisko::lab
