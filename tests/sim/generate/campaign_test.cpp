// The campaign: its words and its end, over stories that are not really played.

#include "sim/generate/campaign.h"

#include <csignal>
#include <cstdlib>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "sim/generate/commit.h"
#include "sim/invariants/watch.h"

namespace brisko::lab {
namespace {

using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::MatchesRegex;
using ::testing::Not;
using ::testing::StartsWith;

struct Heard {
  int status = -1;
  std::string told = {};
  std::string whispered = {};
};

Heard campaignOf(const CampaignOrder& order, const PlaySeed& play, bool onTerminal = false) {
  Heard heard;
  const Voices voices{.tell = [&](const std::string& text) { heard.told += text; },
                      .whisper = [&](const std::string& text) { heard.whispered += text; },
                      .onTerminal = onTerminal};
  heard.status = runCampaign(order, voices, play);
  return heard;
}

Verdict well(double seconds = 86400) { return {.went = Went::well, .seconds = seconds}; }

Verdict wrong(int invariant) {
  return {.went = Went::wrong,
          .begin = 1772352000,
          .seconds = 3600,
          .invariant = invariant,
          .at = 3600,
          .seen = "82 %",
          .log = {"the last line"}};
}

TEST(Seeds, areOneOrARange) {
  EXPECT_EQ(parseSeeds("17")->first, 17U);
  EXPECT_EQ(parseSeeds("17")->last, 17U);
  EXPECT_EQ(parseSeeds("0..18446744073709551614")->last, 18446744073709551614U);
  EXPECT_EQ(parseSeeds("3..4")->first, 3U);
  for (const char* bad :
       {"", "a", "1..", "..2", "4..3", "1...3", "1..3 ", "-1", "1.5", "18446744073709551615"}) {
    EXPECT_FALSE(parseSeeds(bad)) << bad;
  }
}

TEST(Campaign, holdsWhenAllOfItsStoriesDo) {
  const Heard heard = campaignOf({.seeds = {1, 5}, .days = 7, .faults = Faults::some, .jobs = 2},
                                 [](std::uint64_t, const GoesOn&) { return well(); });
  EXPECT_EQ(heard.status, campaignHolds);
  EXPECT_EQ(heard.told, "seeds 1..5, 7 days each, faults some: everything holds\n");
}

TEST(Campaign, tellsAFailureWithAllThatIsNeededToSeeItAgain) {
  const Heard heard =
      campaignOf({.seeds = {17, 17}, .days = 30, .jobs = 1}, [](std::uint64_t, const GoesOn&) {
        Verdict verdict = wrong(9);
        verdict.happening = 0;
        return verdict;
      });
  EXPECT_EQ(heard.status, campaignFails);
  const Story story = randomStory(17, 30, Faults::all);
  EXPECT_THAT(heard.told,
              StartsWith("seed 17 (commit " + std::string(commitOfBuild()) +
                         ")\n  when:      2026-03-01 09:00:00 of machine time, after 1 h\n  event:     " +
                         story.happenings.at(0).action.dump() + ", step 0, "));
  EXPECT_THAT(heard.told,
              HasSubstr("\n  invariant: 9. " + invariantWords(9) + "\n  seen:      82 %\n" +
                        "  again:     brisko-lab campaign --seeds 17..17 --days 30 --faults all\n" +
                        "  The end of the log until then:\n    the last line\n"));
}

TEST(Campaign, tellsOfTheSeedsInTheirOrderWhoeverIsFirst) {
  const auto told = [](unsigned jobs) {
    return campaignOf({.seeds = {1, 12}, .days = 1, .jobs = jobs},
                      [](std::uint64_t seed, const GoesOn&) {
                        ::usleep(seed % 2 == 0 ? 0 : 30000);
                        return seed % 3 == 0 ? wrong(9) : well();
                      })
        .told;
  };
  const std::string alone = told(1);
  EXPECT_THAT(alone, MatchesRegex("seed 3 .*seed 6 .*seed 9 .*seed 12 .*\n  4 × 9\\. .* Seeds: 3 6 9 12\n"));
  EXPECT_EQ(told(4), alone);
}

TEST(Campaign, countsByInvariant) {
  const Heard heard =
      campaignOf({.seeds = {1, 14}, .days = 1, .jobs = 3}, [](std::uint64_t seed, const GoesOn&) {
        return seed <= 11 ? wrong(20) : seed == 13 ? wrong(4) : well();
      });
  EXPECT_THAT(heard.told,
              EndsWith("faults all: 12 failures\n  1 × 4. " + invariantWords(4) + " Seeds: 13\n  11 × 20. " +
                       invariantWords(20) + " Seeds: 1 2 3 4 5 6 7 8 9 10 …\n"));
}

TEST(Campaign, takesADeadProcessForAFailureAndGoesOn) {
  const Heard heard =
      campaignOf({.seeds = {1, 3}, .days = 1, .jobs = 2}, [](std::uint64_t seed, const GoesOn&) {
        if (seed == 2) std::abort();
        return well();
      });
  EXPECT_EQ(heard.status, campaignFails);
  EXPECT_THAT(heard.told, StartsWith("seed 2 (commit "));
  EXPECT_THAT(heard.told, HasSubstr("ended by signal 6"));
  EXPECT_THAT(heard.told, HasSubstr("--seeds 2..2"));
  EXPECT_THAT(heard.told, EndsWith(": 1 failure\n  1 × The lab plays every story to its end. Seeds: 2\n"));
}

TEST(Campaign, endsWithASummaryWhenItIsInterrupted) {
  const Heard heard =
      campaignOf({.seeds = {1, 100}, .days = 1, .jobs = 1}, [](std::uint64_t seed, const GoesOn& goesOn) {
        if (seed < 3) return well();
        ::kill(::getppid(), SIGINT);
        while (goesOn(0)) ::usleep(1000);
        return Verdict{.went = Went::brokenOff};
      });
  EXPECT_EQ(heard.status, campaignInterrupted);
  EXPECT_EQ(heard.told, "seeds 1..100, 1 day each, faults all: broken off after 2 seeds, everything holds\n");
}

TEST(Campaign, rewritesItsProgressInPlaceOnATerminal) {
  const PlaySeed play = [](std::uint64_t, const GoesOn&) {
    ::usleep(700000);
    return well();
  };
  const CampaignOrder order{.seeds = {1, 2}, .days = 1, .jobs = 1};
  EXPECT_THAT(campaignOf(order, play, true).whispered, HasSubstr("\r\x1b[K1 of 2 seeds, 1 of 2 days, "));
  EXPECT_THAT(campaignOf(order, play, false).whispered, Not(HasSubstr("\r")));
}

}  // namespace
}  // namespace brisko::lab
