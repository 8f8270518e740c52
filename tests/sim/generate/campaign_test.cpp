// The campaign's output and end, with scenarios that are not really run.

#include "sim/generate/campaign.h"

#include <csignal>
#include <cstdlib>

#include <pthread.h>
#include <unistd.h>

#include "sim/generate/commit.h"
#include "support/testing.h"

namespace brisko::lab::campaign_test {
namespace {

using namespace test;

struct Captured {
  int status = -1;
  std::string printed = {};
  std::string progress = {};
};

Captured campaignOf(const CampaignOptions& options, const RunSeed& runSeed, bool onTerminal = false) {
  Captured captured;
  const Output output{.print = [&](const std::string& text) { captured.printed += text; },
                      .progress = [&](const std::string& text) { captured.progress += text; },
                      .onTerminal = onTerminal};
  captured.status = runCampaign(options, output, runSeed);
  return captured;
}

Verdict well(double seconds = 86400) { return {.result = Result::passed, .seconds = seconds}; }

Verdict wrong(int invariant) {
  return {.result = Result::failed,
          .begin = 1772352000,
          .seconds = 3600,
          .invariant = invariant,
          .invariantText = std::to_string(invariant) + ". It holds.",
          .at = 3600,
          .seen = "82 %",
          .log = {"the last line"}};
}

TEST(Seeds, areASeedOrARange) {
  EXPECT_EQ(parseSeeds("17")->first, 17U);
  EXPECT_EQ(parseSeeds("17")->last, 17U);
  EXPECT_EQ(parseSeeds("0..18446744073709551614")->last, 18446744073709551614U);
  EXPECT_EQ(parseSeeds("3..4")->first, 3U);
  for (const char* bad :
       {"", "a", "1..", "..2", "4..3", "1...3", "1..3 ", "-1", "1.5", "18446744073709551615"}) {
    EXPECT_FALSE(parseSeeds(bad)) << bad;
  }
}

TEST(Campaign, passesIfAllItsScenariosPass) {
  const Captured captured = campaignOf({.seeds = {1, 5}, .days = 7, .faults = Faults::some, .jobs = 2},
                                       [](std::uint64_t, const ShouldContinue&) { return well(); });
  EXPECT_EQ(captured.status, campaignPassed);
  EXPECT_EQ(captured.printed, "seeds 1..5, 7 days each, faults some: all invariants hold\n");
}

TEST(Campaign, reportsWhatIsNeededToReproduceAFailure) {
  const Captured captured =
      campaignOf({.seeds = {17, 17}, .days = 30, .jobs = 1}, [](std::uint64_t, const ShouldContinue&) {
        Verdict verdict = wrong(9);
        verdict.timedAction = 0;
        return verdict;
      });
  EXPECT_EQ(captured.status, campaignFailed);
  const GeneratedScenario scenario = generateScenario(17, 30, Faults::all);
  EXPECT_THAT(captured.printed,
              StartsWith("seed 17 (commit " + std::string(commitOfBuild()) +
                         ")\n  when:      2026-03-01 09:00:00 of machine time, after 1 h\n  event:     " +
                         scenario.timedActions.at(0).action.dump() + ", step 0, "));
  EXPECT_THAT(captured.printed,
              HasSubstr("\n  invariant: 9. It holds.\n  seen:      82 %\n"
                        "  again:     brisko-lab campaign --seeds 17..17 --days 30 --faults all\n"
                        "  The end of the log until then:\n    the last line\n"));
}

TEST(Campaign, reportsTheSeedsInOrderWhicheverEndsFirst) {
  const auto printed = [](unsigned jobs) {
    return campaignOf({.seeds = {1, 12}, .days = 1, .jobs = jobs},
                      [](std::uint64_t seed, const ShouldContinue&) {
                        ::usleep(seed % 2 == 0 ? 0 : 30000);
                        return seed % 3 == 0 ? wrong(9) : well();
                      })
        .printed;
  };
  const std::string alone = printed(1);
  EXPECT_THAT(alone, MatchesRegex("seed 3 .*seed 6 .*seed 9 .*seed 12 .*\n  4 × 9\\. .* Seeds: 3 6 9 12\n"));
  EXPECT_EQ(printed(4), alone);
}

TEST(Campaign, countsByInvariant) {
  const Captured captured =
      campaignOf({.seeds = {1, 14}, .days = 1, .jobs = 3}, [](std::uint64_t seed, const ShouldContinue&) {
        return seed <= 11 ? wrong(20) : seed == 13 ? wrong(4) : well();
      });
  EXPECT_THAT(captured.printed, EndsWith("faults all: 12 failures\n  1 × 4. It holds. Seeds: 13\n"
                                         "  11 × 20. It holds. Seeds: 1 2 3 4 5 6 7 8 9 10 …\n"));
}

TEST(Campaign, countsACrashedWorkerAsAFailureAndContinues) {
  const Captured captured =
      campaignOf({.seeds = {1, 3}, .days = 1, .jobs = 2}, [](std::uint64_t seed, const ShouldContinue&) {
        if (seed == 2) std::abort();
        return well();
      });
  EXPECT_EQ(captured.status, campaignFailed);
  EXPECT_THAT(captured.printed, StartsWith("seed 2 (commit "));
  EXPECT_THAT(captured.printed, HasSubstr("ended by signal 6"));
  EXPECT_THAT(captured.printed, HasSubstr("--seeds 2..2"));
  EXPECT_THAT(captured.printed,
              EndsWith(": 1 failure\n  1 × Every generated scenario runs to its end. Seeds: 2\n"));
}

TEST(Campaign, endsWithASummaryWhenItIsInterrupted) {
  const Captured captured = campaignOf({.seeds = {1, 100}, .days = 1, .jobs = 1},
                                       [](std::uint64_t seed, const ShouldContinue& shouldContinue) {
                                         if (seed < 3) return well();
                                         ::kill(::getppid(), SIGINT);
                                         while (shouldContinue(0)) ::usleep(1000);
                                         return Verdict{.result = Result::cancelled};
                                       });
  EXPECT_EQ(captured.status, campaignInterrupted);
  EXPECT_EQ(captured.printed,
            "seeds 1..100, 1 day each, faults all: cancelled after 2 seeds, all invariants hold\n");
}

// The campaign has just looked whether it was interrupted, and is about to wait for the worker that it began.
TEST(Campaign, isInterruptedByASignalThatArrivesJustBeforeItWaits) {
  ASSERT_EQ(::pthread_atfork(
                nullptr, [] { static_cast<void>(std::raise(SIGINT)); }, nullptr),
            0);
  const Captured captured = campaignOf({.seeds = {1, 1}, .days = 1, .jobs = 1},
                                       [](std::uint64_t, const ShouldContinue& shouldContinue) {
                                         for (int moment = 0; moment < 8000; ++moment) {
                                           if (!shouldContinue(0))
                                             return Verdict{.result = Result::cancelled};
                                           ::usleep(1000);
                                         }
                                         return well();
                                       });
  EXPECT_EQ(captured.status, campaignInterrupted);
  EXPECT_THAT(captured.printed, HasSubstr(": cancelled after 0 seeds, "));
}

TEST(Campaign, rewritesItsProgressInPlaceOnATerminal) {
  const RunSeed runSeed = [](std::uint64_t, const ShouldContinue&) {
    ::usleep(700000);
    return well();
  };
  const CampaignOptions options{.seeds = {1, 2}, .days = 1, .jobs = 1};
  EXPECT_THAT(campaignOf(options, runSeed, true).progress, HasSubstr("\r\x1b[K1 of 2 seeds, 1 of 2 days, "));
  EXPECT_THAT(campaignOf(options, runSeed, false).progress, Not(HasSubstr("\r")));
}

}  // namespace
}  // namespace brisko::lab::campaign_test
