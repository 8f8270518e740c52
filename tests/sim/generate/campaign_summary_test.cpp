// The summaries of campaigns: what they keep, how they continue, and which of them may be merged.

#include "sim/generate/campaign_summary.h"

#include <csignal>
#include <cstdlib>

#include <unistd.h>

#include "sim/generate/campaign.h"
#include "support/files.h"
#include "support/scratch_folder.h"
#include "support/testing.h"

namespace brisko::lab {
namespace {

using namespace test;

// --- Shards

TEST(Shards, areANumberOfThemAll) {
  EXPECT_EQ(parseShard("2/8"), (Shard{.number = 2, .of = 8}));
  EXPECT_EQ(parseShard("1/1"), Shard{});
  for (const char* bad : {"", "2", "0/8", "9/8", "2/0", "/8", "2/", "a/8", "2/8/9", "-1/8"}) {
    EXPECT_FALSE(parseShard(bad)) << bad;
  }
}

TEST(Shards, haveEachSeedOnceAndAreOfOneSize) {
  for (const std::uint64_t of : {1U, 2U, 3U, 7U, 10U}) {
    std::uint64_t next = 5;
    for (std::uint64_t number = 1; number <= of; ++number) {
      const auto seeds = seedsOf({5, 14}, {.number = number, .of = of});
      ASSERT_TRUE(seeds);
      EXPECT_EQ(seeds->first, next);
      EXPECT_TRUE(countOf(*seeds) == 10 / of || countOf(*seeds) == 10 / of + 1) << number << "/" << of;
      next = seeds->last + 1;
    }
    EXPECT_EQ(next, 15U) << of;
  }
  EXPECT_FALSE(seedsOf({5, 14}, {.number = 1, .of = 11})) << "more shards than seeds";
}

// --- Counting

Verdict passing(std::uint64_t seed) {
  Verdict verdict{.result = Result::passed, .seconds = 86400.4};
  verdict.coverage.states["charge hold"] = seed;
  verdict.coverage.logLines["cap"] = 2;
  verdict.coverage.faults["plug"] = 1;
  verdict.coverage.faultPairs["plug + unplug"] = seed % 2;
  verdict.coverage.unknownLines = 1;
  return verdict;
}

Verdict failing() {
  return {.result = Result::failed,
          .begin = 1772352000,
          .seconds = 3600,
          .invariant = 9,
          .invariantText = "9. It holds.",
          .at = 3600,
          .seen = "82 %",
          .log = {"the last line"},
          .timedAction = 4};
}

Coverage known() {
  Coverage known;
  known.states = {{"charge allow", 0}, {"charge hold", 0}};
  known.logLines = {{"cap", 0}};
  known.faults = {{"plug", 0}, {"unplug", 0}, {"sleep", 0}};
  return known;
}

CampaignSummary summaryOf(const Seeds& seeds, const Shard& shard = {}) {
  CampaignSummary summary(seeds, shard, {.days = 1, .faults = Faults::some, .guard = "night"}, known());
  for (std::uint64_t seed = summary.seeds.first; seed <= summary.seeds.last; ++seed)
    summary.add(seed, seed == 4 ? failing() : passing(seed));
  summary.commit = "f1a8717ebc4b";
  summary.processorSeconds = 10;
  return summary;
}

TEST(CampaignSummary, knowsItsSeedsInWhateverOrderTheyFinish) {
  CampaignSummary summary({1, 9}, {}, {}, {});
  for (const std::uint64_t seed : {3U, 1U, 9U, 2U, 7U, 8U}) summary.add(seed, passing(seed));
  EXPECT_EQ(summary.finished, (std::vector<Seeds>{{1, 3}, {7, 9}}));
  EXPECT_FALSE(summary.isFinished());
  for (const std::uint64_t seed : {5U, 4U, 6U}) summary.add(seed, passing(seed));
  EXPECT_EQ(summary.finished, (std::vector<Seeds>{{1, 9}}));
  EXPECT_TRUE(summary.isFinished());
  EXPECT_TRUE(summary.has(9));
  EXPECT_FALSE(summary.has(10));
  EXPECT_EQ(summary.simulatedSeconds, 9 * 86400);
}

TEST(CampaignSummary, isTheSameAfterItWasRead) {
  const std::string text = textOf(summaryOf({1, 8}, {.number = 1, .of = 2}));
  std::string reason;
  const auto read = readSummary(text, reason);
  ASSERT_TRUE(read) << reason;
  EXPECT_EQ(textOf(*read), text);
  EXPECT_EQ(read->failures.at(4).seen, "82 %");
  EXPECT_EQ(read->failures.at(4).timedAction, 4U);
}

TEST(CampaignSummary, isRefusedWhenItIsTorn) {
  const std::string whole = textOf(summaryOf({1, 4}));
  std::string reason;
  for (const std::size_t length : {std::size_t{0}, whole.size() / 3, whole.size() - 3}) {
    EXPECT_FALSE(readSummary(whole.substr(0, length), reason));
    EXPECT_EQ(reason, "is torn: it is not JSON");
  }
  EXPECT_FALSE(readSummary("{}", reason));
  EXPECT_EQ(reason, "is no summary of a campaign: \"required\" at \"\"");
  const auto changed = [&whole](const Json::json_pointer& place, const Json& value) {
    Json words = Json::parse(whole);
    words[place] = value;
    return words.dump();
  };
  EXPECT_FALSE(readSummary(changed(Json::json_pointer("/coverage/unknownLines"), -1), reason));
  EXPECT_EQ(reason, "is no summary of a campaign: \"minimum\" at \"/coverage/unknownLines\"");
  for (const auto& [place, value] : std::vector<std::pair<const char*, Json>>{
           {"/passed", 2},
           {"/finished", Json::array({{1, 3}})},
           {"/finished", Json::array({{1, 5}})},
           {"/finished", Json::array({{1, 2}, {3, 4}})},
           {"/shard/last", 3},
       }) {
    EXPECT_FALSE(readSummary(changed(Json::json_pointer(place), value), reason)) << place << value;
    EXPECT_EQ(reason, "is torn: its numbers do not add up");
  }
}

// --- Merging

std::vector<NamedSummary> shards() {
  return {{"1.json", summaryOf({1, 10}, {.number = 1, .of = 3})},
          {"2.json", summaryOf({1, 10}, {.number = 2, .of = 3})},
          {"3.json", summaryOf({1, 10}, {.number = 3, .of = 3})}};
}

std::vector<std::string> problemsOf(const std::vector<NamedSummary>& all) {
  std::vector<std::string> problems;
  EXPECT_EQ(mergeSummaries(all, problems).has_value(), problems.empty());
  return problems;
}

TEST(MergedSummary, isThatOfTheWholeCampaign) {
  CampaignSummary whole = summaryOf({1, 10});
  whole.processorSeconds = 30;
  auto all = shards();
  std::vector<std::string> problems;
  EXPECT_EQ(textOf(mergeSummaries(all, problems).value()), textOf(whole));
  std::swap(all[0], all[2]);
  EXPECT_EQ(textOf(mergeSummaries(all, problems).value()), textOf(whole)) << "in any order";
  // Without shards: the campaigns of two ranges of seeds.
  whole.processorSeconds = 20;
  EXPECT_EQ(textOf(mergeSummaries({{"b", summaryOf({7, 10})}, {"a", summaryOf({1, 6})}}, problems).value()),
            textOf(whole));
  EXPECT_THAT(problems, IsEmpty());
}

TEST(MergedSummary, isRefusedWithTheNameOfWhatIsWrong) {
  auto all = shards();
  EXPECT_THAT(problemsOf({all[1]}),
              ElementsAre("shard 1 of 3 is missing: seeds 1..4", "shard 3 of 3 is missing: seeds 8..10"));
  EXPECT_THAT(problemsOf({all[0], all[2]}), ElementsAre("shard 2 of 3 is missing: seeds 5..7"));
  EXPECT_THAT(problemsOf({all[0], all[1], {"again.json", all[1].summary}, all[2]}),
              ElementsAre("again.json: is the same shard as 2.json"));
  EXPECT_THAT(problemsOf({{"a", summaryOf({1, 3})}, {"b", summaryOf({5, 8})}}),
              ElementsAre("seeds 4..4 are missing"));
  EXPECT_THAT(problemsOf({{"a", summaryOf({1, 3})}, {"b", summaryOf({3, 8})}}),
              ElementsAre("b: has seeds of a"));

  all[1].summary.commit = "0123456789ab";
  EXPECT_THAT(problemsOf(all),
              ElementsAre("2.json: is of commit 0123456789ab, not f1a8717ebc4b like 1.json"));
  all = shards();
  all[2].summary.options.days = 2;
  EXPECT_THAT(
      problemsOf(all),
      ElementsAre("3.json: has 2 days each, faults some, guard night, not 1 day each, faults some, guard "
                  "night like 1.json"));
  all = shards();
  all[1].summary = CampaignSummary({1, 10}, {.number = 2, .of = 3}, all[0].summary.options, known());
  all[1].summary.commit = all[0].summary.commit;
  EXPECT_THAT(problemsOf(all),
              ElementsAre("2.json: is not finished; this continues it: brisko-lab campaign --seeds 1..10 "
                          "--days 1 --faults some --guard night --shard 2/3 --summary 2.json"));
  EXPECT_THAT(problemsOf({shards()[0], {"4.json", summaryOf({1, 10}, {.number = 2, .of = 2})}}),
              ElementsAre("4.json: is shard 2 of 2, not of 3 like 1.json"));
  EXPECT_THAT(problemsOf({shards()[0], {"12.json", summaryOf({1, 12}, {.number = 2, .of = 3})}}),
              ElementsAre("12.json: is of a campaign with the seeds 1..12, not 1..10 like 1.json"));
}

TEST(MergedSummary, showsWhatWasSeenWhatNeverWasAndTheCost) {
  CampaignSummary summary = summaryOf({1, 6});
  summary.coverage.faults["unplug"] = 3;
  summary.coverage.faultPairs.clear();
  summary.simulatedSeconds = 31'557'600;  // a year
  summary.processorSeconds = 3600;
  EXPECT_EQ(reportOf(summary),
            "seeds 1..6, 1 day each, faults some, guard night, commit f1a8717ebc4b: 1 failure\n"
            "  seed 4: 9. It holds. Seen: 82 %\n"
            "                           seen    known\n"
            "states                        1        2\n"
            "transitions                   0        0\n"
            "kinds of log lines            1        1\n"
            "faults                        2        3\n"
            "pairs of faults               0        3\n"
            "log lines of no kind: 5\n"
            "never seen:\n"
            "  states:\n    charge allow\n"
            "  faults:\n    sleep\n"
            "  pairs of seen faults:\n    plug + unplug\n"
            "1.00 simulated years took 60 min of processor time, 60 min a year\n"
            "10000 years would take 416.7 days on 1 core, 208.3 days on 2, 26.0 days on 16, 6.5 days on 64, "
            "10.0 h on 1000 cores\n");
}

// --- A campaign with a summary

struct CampaignRun {
  int status = -1;
  std::string printed = {};
  std::string progress = {};
};

class CampaignWithASummary : public ::testing::Test {
 protected:
  CampaignRun campaign(const std::string& file, const Shard& shard, const RunSeed& runSeed,
                       std::int64_t days = 1) const {
    CampaignRun run;
    const Output output{.print = [&](const std::string& text) { run.printed += text; },
                        .progress = [&](const std::string& text) { run.progress += text; }};
    const CampaignOptions options{
        .seeds = {1, 12},
        .days = days,
        .jobs = 2,
        .summary = SummaryOptions{.file = file, .shard = shard, .kinds = {.known = {"cap"}, .kindOf = {}}}};
    run.status = runCampaign(options, output, runSeed);
    return run;
  }

  // Without what it cost, which differs from run to run.
  static Json summaryIn(const std::string& file) {
    Json words = Json::parse(test::contents(file));
    EXPECT_GT(words.at("cost").at("processorSeconds"), 0);
    words.erase("cost");
    return words;
  }

  static Verdict verdictOfSeed(std::uint64_t seed) { return seed == 4 ? failing() : passing(seed); }
  static Verdict atOnce(std::uint64_t seed, const ShouldContinue&) { return verdictOfSeed(seed); }

  test::ScratchFolder folder;
  std::string own = folder.path("summary.json");
};

TEST_F(CampaignWithASummary, continuesWhereItWasInterrupted) {
  const std::string whole = folder.path("whole.json");
  const CampaignRun uninterrupted = campaign(whole, {}, atOnce);
  EXPECT_EQ(uninterrupted.status, campaignFailed);

  const auto interruptedAt = [](std::uint64_t last) {
    return [last](std::uint64_t seed, const ShouldContinue& shouldContinue) {
      if (seed < last) return verdictOfSeed(seed);
      ::kill(::getppid(), SIGINT);
      while (shouldContinue(0)) ::usleep(1000);
      return Verdict{.result = Result::cancelled};
    };
  };
  EXPECT_EQ(campaign(own, {}, interruptedAt(3)).status, campaignInterrupted);
  EXPECT_THAT(summaryIn(own).at("finished"), Not(IsEmpty()));
  EXPECT_EQ(campaign(own, {}, interruptedAt(8)).status, campaignInterrupted);

  const CampaignRun last = campaign(own, {}, [](std::uint64_t seed, const ShouldContinue&) {
    if (seed < 8) std::abort();  // it must not be run again
    return verdictOfSeed(seed);
  });
  EXPECT_EQ(last.status, campaignFailed);
  EXPECT_EQ(last.printed, uninterrupted.printed);
  EXPECT_EQ(summaryIn(own), summaryIn(whole));
}

TEST_F(CampaignWithASummary, addsUpFromItsShards) {
  const std::string whole = folder.path("whole.json");
  campaign(whole, {}, atOnce);
  std::vector<NamedSummary> all;
  for (std::uint64_t number = 1; number <= 5; ++number) {
    const std::string shard = folder.path(std::to_string(number));
    campaign(shard, {.number = number, .of = 5}, atOnce);
    std::string reason;
    all.push_back({shard, readSummary(test::contents(shard), reason).value()});
  }
  std::vector<std::string> problems;
  ASSERT_TRUE(writeSummary(own, mergeSummaries(all, problems).value()));
  EXPECT_EQ(summaryIn(own), summaryIn(whole));
}

TEST_F(CampaignWithASummary, isNotRunWithTheFileOfAnother) {
  campaign(own, {}, atOnce);
  const std::string before = test::contents(own);
  const auto refusal = [&](const Shard& shard, std::int64_t days) {
    const CampaignRun run = campaign(own, shard, atOnce, days);
    EXPECT_EQ(run.status, campaignUnusable);
    EXPECT_EQ(test::contents(own), before);
    return run.progress;
  };
  EXPECT_EQ(refusal({}, 2), own + ": has 1 day each, faults all, not 2 days each, faults all\n");
  EXPECT_EQ(refusal({.number = 1, .of = 2}, 1), own + ": is shard 1 of 1, not of 2\n");

  test::put(own, before.substr(0, before.size() / 2));
  EXPECT_EQ(campaign(own, {}, atOnce).progress, own + ": is torn: it is not JSON\n");
}

TEST_F(CampaignWithASummary, endsIfItCannotBeWritten) {
  const CampaignRun run = campaign(folder.path("no-such-folder/summary.json"), {}, atOnce);
  EXPECT_EQ(run.status, campaignUnusable);
  EXPECT_THAT(run.progress, HasSubstr("no-such-folder/summary.json: cannot be written\n"));
}

}  // namespace
}  // namespace brisko::lab
