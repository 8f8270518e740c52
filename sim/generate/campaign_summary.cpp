#include "sim/generate/campaign_summary.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <utility>

#include <fcntl.h>
#include <unistd.h>

#include "base/files.h"
#include "sim/generate/campaign_summary_schema.h"
#include "sim/generate/commit.h"
#include "sim/schema/json_schema.h"

namespace brisko::lab {
namespace {

// --- Shards

std::optional<std::uint64_t> parseCount(std::string_view text) {
  std::uint64_t count = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), count);
  if (error != std::errc{} || end != text.data() + text.size() || count == 0) return std::nullopt;
  return count;
}

std::string shardText(const Shard& shard) {
  return "shard " + std::to_string(shard.number) + " of " + std::to_string(shard.of);
}

// --- JSON

Json jsonOf(const CampaignSummary& summary) {
  Json finished = Json::array();
  for (const Seeds& range : summary.finished) finished.push_back({range.first, range.last});
  Json failures = Json::array();
  for (const auto& [seed, verdict] : summary.failures) {
    Json failure = jsonOf(verdict);
    failure["seed"] = seed;
    failures.push_back(std::move(failure));
  }
  return {
      {"commit", summary.commit},
      {"campaign",
       {{"first", summary.campaign.first},
        {"last", summary.campaign.last},
        {"days", summary.options.days},
        {"faults", nameOf(summary.options.faults)},
        {"guard", summary.options.guard}}},
      {"shard",
       {{"number", summary.shard.number},
        {"of", summary.shard.of},
        {"first", summary.seeds.first},
        {"last", summary.seeds.last}}},
      {"finished", finished},
      {"passed", summary.passed},
      {"failures", failures},
      {"simulatedSeconds", summary.simulatedSeconds},
      {"cost", {{"processorSeconds", summary.processorSeconds}, {"elapsedSeconds", summary.elapsedSeconds}}},
      {"coverage", jsonOf(summary.coverage)}};
}

ScenarioOptions optionsIn(const Json& campaign) {
  ScenarioOptions options{.days = campaign.at("days"), .guard = campaign.at("guard")};
  for (const Faults kind : {Faults::none, Faults::some, Faults::all}) {
    if (campaign.at("faults") == nameOf(kind)) options.faults = kind;
  }
  return options;
}

CampaignSummary summaryIn(const Json& words) {
  const Json& campaign = words.at("campaign");
  const Json& shard = words.at("shard");
  CampaignSummary summary({campaign.at("first"), campaign.at("last")},
                          {.number = shard.at("number"), .of = shard.at("of")}, optionsIn(campaign),
                          coverageIn(words.at("coverage")));
  summary.commit = words.at("commit");
  summary.seeds = {shard.at("first"), shard.at("last")};
  for (const Json& range : words.at("finished")) summary.finished.push_back({range.at(0), range.at(1)});
  summary.passed = words.at("passed");
  for (const Json& failure : words.at("failures"))
    summary.failures[failure.at("seed").get<std::uint64_t>()] = verdictIn(failure);
  summary.simulatedSeconds = words.at("simulatedSeconds");
  summary.processorSeconds = words.at("cost").at("processorSeconds");
  summary.elapsedSeconds = words.at("cost").at("elapsedSeconds");
  return summary;
}

// What the schema cannot express.
bool isConsistent(const CampaignSummary& summary) {
  if (seedsOf(summary.campaign, summary.shard) != summary.seeds) return false;
  std::uint64_t finished = 0;
  for (std::size_t index = 0; index < summary.finished.size(); ++index) {
    const Seeds& range = summary.finished[index];
    const bool isOrdered = index == 0 || summary.finished[index - 1].last + 1 < range.first;
    const bool isInside =
        range.first <= range.last && summary.seeds.first <= range.first && range.last <= summary.seeds.last;
    if (!isOrdered || !isInside) return false;
    finished += countOf(range);
  }
  const bool failuresAreFinished =
      std::all_of(summary.failures.begin(), summary.failures.end(),
                  [&](const auto& failure) { return summary.has(failure.first); });
  return failuresAreFinished && finished == summary.passed + summary.failures.size();
}

// --- Merging

std::string commandOf(const CampaignSummary& summary, const std::string& file) {
  return "brisko-lab campaign --seeds " + seedsText(summary.campaign) + " --days " +
         std::to_string(summary.options.days) + " --faults " + std::string(nameOf(summary.options.faults)) +
         (summary.options.guard.empty() ? "" : " --guard " + summary.options.guard) +
         (summary.shard.of == 1
              ? ""
              : " --shard " + std::to_string(summary.shard.number) + "/" + std::to_string(summary.shard.of)) +
         " --summary " + file;
}

std::string optionsText(const ScenarioOptions& options) {
  return std::to_string(options.days) + (options.days == 1 ? " day" : " days") + " each, faults " +
         std::string(nameOf(options.faults)) + (options.guard.empty() ? "" : ", guard " + options.guard);
}

// Why the two cannot be parts of one campaign; empty if they can.
std::string differenceOf(const CampaignSummary& one, const CampaignSummary& other) {
  if (one.commit != other.commit) return "is of commit " + other.commit + ", not " + one.commit;
  if (!(one.options == other.options))
    return "has " + optionsText(other.options) + ", not " + optionsText(one.options);
  if (one.shard.of != other.shard.of)
    return "is " + shardText(other.shard) + ", not of " + std::to_string(one.shard.of);
  // Without shards each file may be about seeds of its own.
  if (one.shard.of > 1 && !(one.campaign == other.campaign))
    return "is of a campaign with the seeds " + seedsText(other.campaign) + ", not " +
           seedsText(one.campaign);
  return "";
}

// In the order of their seeds.
std::vector<const NamedSummary*> sorted(const std::vector<NamedSummary>& all) {
  std::vector<const NamedSummary*> order;
  for (const NamedSummary& each : all) order.push_back(&each);
  std::stable_sort(order.begin(), order.end(), [](const NamedSummary* left, const NamedSummary* right) {
    return left->summary.seeds.first < right->summary.seeds.first;
  });
  return order;
}

// Every shard of the campaign has one file.
void checkShards(const std::vector<const NamedSummary*>& order, std::vector<std::string>& problems) {
  const CampaignSummary& like = order.front()->summary;
  std::uint64_t next = 1;  // the shards before it have one
  const NamedSummary* before = nullptr;
  const auto noteMissing = [&](std::uint64_t until) {
    for (; next < until; ++next) {
      const Shard shard{.number = next, .of = like.shard.of};
      problems.push_back(shardText(shard) + " is missing: seeds " +
                         seedsText(seedsOf(like.campaign, shard).value()));
    }
  };
  for (const NamedSummary* each : order) {
    const std::uint64_t number = each->summary.shard.number;
    noteMissing(number);
    if (number < next) problems.push_back(each->file + ": is the same shard as " + before->file);
    next = number + 1;
    before = each;
  }
  noteMissing(like.shard.of + 1);
}

// Campaigns that were not divided into shards: the seeds of one follow on those of the one before.
void checkSeeds(const std::vector<const NamedSummary*>& order, std::vector<std::string>& problems) {
  const NamedSummary* before = nullptr;
  for (const NamedSummary* each : order) {
    const Seeds& seeds = each->summary.seeds;
    const std::uint64_t next = before == nullptr ? seeds.first : before->summary.seeds.last + 1;
    if (next < seeds.first)
      problems.push_back("seeds " + seedsText({next, seeds.first - 1}) + " are missing");
    if (seeds.first < next) problems.push_back(each->file + ": has seeds of " + before->file);
    before = each;
  }
}

void addTo(CampaignSummary& sum, const CampaignSummary& part) {
  for (const Seeds& range : part.finished) {
    if (!sum.finished.empty() && sum.finished.back().last + 1 == range.first) {
      sum.finished.back().last = range.last;
    } else {
      sum.finished.push_back(range);
    }
  }
  sum.passed += part.passed;
  sum.failures.insert(part.failures.begin(), part.failures.end());
  sum.simulatedSeconds += part.simulatedSeconds;
  sum.processorSeconds += part.processorSeconds;
  sum.elapsedSeconds += part.elapsedSeconds;
  sum.coverage.add(part.coverage);
}

// --- The report

constexpr double secondsOfYear = 365.25 * 86400;
constexpr double yearsAhead = 10'000;
constexpr std::size_t mostPairsShown = 20;

std::string numberText(double number, const char* format) {
  std::array<char, 60> text{};
  static_cast<void>(std::snprintf(text.data(), text.size(), format, number));
  return text.data();
}

// "12.3 h", "4.5 days"
std::string durationText(double seconds) {
  if (seconds < 600) return numberText(seconds, "%.1f s");
  if (seconds < 7200) return numberText(seconds / 60, "%.0f min");
  if (seconds < 3 * 86400) return numberText(seconds / 3600, "%.1f h");
  return numberText(seconds / 86400, "%.1f days");
}

std::uint64_t seenIn(const Coverage::Counts& counts) {
  return static_cast<std::uint64_t>(
      std::count_if(counts.begin(), counts.end(), [](const auto& entry) { return entry.second > 0; }));
}

std::string row(const std::string& what, std::uint64_t seen, std::uint64_t known) {
  std::array<char, 120> text{};
  static_cast<void>(std::snprintf(text.data(), text.size(), "%-22s %8llu %8llu\n", what.c_str(),
                                  static_cast<unsigned long long>(seen),
                                  static_cast<unsigned long long>(known)));
  return text.data();
}

std::string rowOf(const std::string& what, const Coverage::Counts& counts) {
  return row(what, seenIn(counts), counts.size());
}

std::string neverText(const std::string& what, const std::vector<std::string>& names, std::size_t most) {
  if (names.empty()) return "";
  std::string text = "  " + what + ":\n";
  for (std::size_t index = 0; index < std::min(names.size(), most); ++index)
    text += "    " + names[index] + "\n";
  if (names.size() > most) text += "    … and " + std::to_string(names.size() - most) + " more\n";
  return text;
}

std::vector<std::string> neverIn(const Coverage::Counts& counts) {
  std::vector<std::string> names;
  for (const auto& [name, count] : counts) {
    if (count == 0) names.push_back(name);
  }
  return names;
}

// Of faults that were seen.
std::vector<std::string> pairsNeverSeen(const Coverage& coverage) {
  std::vector<std::string> seen;
  for (const auto& [name, count] : coverage.faults) {
    if (count > 0) seen.push_back(name);
  }
  std::vector<std::string> names;
  for (auto one = seen.begin(); one != seen.end(); ++one) {
    for (auto other = one + 1; other != seen.end(); ++other) {
      const std::string name = pairName(*one, *other);
      if (!coverage.faultPairs.contains(name)) names.push_back(name);
    }
  }
  return names;
}

std::string coverageText(const Coverage& coverage) {
  constexpr std::size_t all = static_cast<std::size_t>(-1);
  const std::string never = neverText("states", neverIn(coverage.states), all) +
                            neverText("transitions", neverIn(coverage.transitions), all) +
                            neverText("log lines", neverIn(coverage.logLines), all) +
                            neverText("faults", neverIn(coverage.faults), all) +
                            neverText("pairs of seen faults", pairsNeverSeen(coverage), mostPairsShown);
  return "                           seen    known\n" + rowOf("states", coverage.states) +
         rowOf("transitions", coverage.transitions) + rowOf("kinds of log lines", coverage.logLines) +
         rowOf("faults", coverage.faults) +
         row("pairs of faults", seenIn(coverage.faultPairs), pairsOf(coverage.faults.size())) +
         "log lines of no kind: " + std::to_string(coverage.unknownLines) + "\n" +
         (never.empty() ? "" : "never seen:\n" + never);
}

std::string failuresText(const CampaignSummary& summary) {
  if (summary.failures.empty()) return "all invariants hold\n";
  std::string text =
      std::to_string(summary.failures.size()) + (summary.failures.size() == 1 ? " failure\n" : " failures\n");
  for (const auto& [seed, verdict] : summary.failures) {
    text += "  seed " + std::to_string(seed) + ": " +
            (verdict.result == Result::crashed ? "the process that ran it died" : verdict.invariantText) +
            " Seen: " + verdict.seen + "\n";
  }
  return text;
}

std::string costText(const CampaignSummary& summary) {
  const double years = static_cast<double>(summary.simulatedSeconds) / secondsOfYear;
  std::string text = numberText(years, "%.2f simulated years took ") +
                     durationText(summary.processorSeconds) + " of processor time";
  if (years <= 0) return text + "\n";
  const double perYear = summary.processorSeconds / years;
  text += ", " + durationText(perYear) + " a year\n" + numberText(yearsAhead, "%.0f years would take");
  for (const int cores : {1, 2, 16, 64, 1000}) {
    text += (cores == 1 ? " " : ", ") + durationText(perYear * yearsAhead / cores) + " on " +
            std::to_string(cores) + (cores == 1 ? " core" : "");
  }
  return text + " cores\n";
}

}  // namespace

std::optional<Shard> parseShard(std::string_view text) {
  const std::size_t slash = text.find('/');
  if (slash == std::string_view::npos) return std::nullopt;
  const auto number = parseCount(text.substr(0, slash));
  const auto of = parseCount(text.substr(slash + 1));
  if (!number || !of || *number > *of) return std::nullopt;
  return Shard{.number = *number, .of = *of};
}

std::optional<Seeds> seedsOf(const Seeds& campaign, const Shard& shard) {
  const std::uint64_t count = countOf(campaign);
  if (shard.number == 0 || shard.number > shard.of || count < shard.of) return std::nullopt;
  const std::uint64_t each = count / shard.of;
  const std::uint64_t longer = count % shard.of;  // the first ones have one more
  const std::uint64_t before = shard.number - 1;
  const std::uint64_t first = campaign.first + before * each + std::min(before, longer);
  return Seeds{first, first + each - (before < longer ? 0 : 1)};
}

CampaignSummary::CampaignSummary(const Seeds& allSeeds, const Shard& part, ScenarioOptions scenarioOptions,
                                 Coverage known)
    : commit(commitOfBuild()),
      campaign(allSeeds),
      options(std::move(scenarioOptions)),
      shard(part),
      seeds(seedsOf(allSeeds, part).value_or(allSeeds)),
      coverage(std::move(known)) {}

void CampaignSummary::add(std::uint64_t seed, const Verdict& verdict) {
  auto after = std::find_if(finished.begin(), finished.end(),
                            [seed](const Seeds& range) { return seed < range.first; });
  after = finished.insert(after, {seed, seed});
  if (after + 1 != finished.end() && (after + 1)->first == seed + 1) {
    after->last = (after + 1)->last;
    finished.erase(after + 1);
  }
  if (after != finished.begin() && (after - 1)->last + 1 == seed) {
    (after - 1)->last = after->last;
    finished.erase(after);
  }
  simulatedSeconds += std::llround(verdict.seconds);
  coverage.add(verdict.coverage);
  if (verdict.result == Result::passed) {
    ++passed;
  } else {
    failures[seed] = verdict;
    failures[seed].coverage = {};
  }
}

bool CampaignSummary::has(std::uint64_t seed) const {
  return std::any_of(finished.begin(), finished.end(),
                     [seed](const Seeds& range) { return range.first <= seed && seed <= range.last; });
}

bool CampaignSummary::isFinished() const { return finished == std::vector<Seeds>{seeds}; }

std::string textOf(const CampaignSummary& summary) {
  return jsonOf(summary).dump(1, ' ', false, Json::error_handler_t::replace) + "\n";
}

std::optional<CampaignSummary> readSummary(std::string_view text, std::string& reason) {
  static const schema::JsonSchema schema(campaignSummarySchemaText());
  const Json words = Json::parse(text, nullptr, false);
  if (words.is_discarded()) {
    reason = "is torn: it is not JSON";
    return std::nullopt;
  }
  if (!schema::hasValidator()) {
    reason = schema::noValidatorText;
    return std::nullopt;
  }
  if (const auto breach = schema.breachIn(text)) {
    reason = "is no summary of a campaign: \"" + breach->keyword + "\" at \"" + breach->place + "\"";
    return std::nullopt;
  }
  CampaignSummary summary = summaryIn(words);
  if (isConsistent(summary)) return summary;
  reason = "is torn: its numbers do not add up";
  return std::nullopt;
}

bool writeSummary(const std::string& file, const CampaignSummary& summary) {
  const std::string beside = file + ".new";
  {
    const Descriptor made = openRegularFile(beside, O_WRONLY | O_CREAT | O_TRUNC, 0644);
    if (!made || !writeAll(made.number(), textOf(summary)) || ::fsync(made.number()) != 0) return false;
  }
  return std::rename(beside.c_str(), file.c_str()) == 0;
}

std::optional<std::string> whyNotContinued(const CampaignSummary& kept, const CampaignSummary& wanted) {
  std::string difference = differenceOf(wanted, kept);
  if (difference.empty() && !(kept.shard == wanted.shard)) difference = "is " + shardText(kept.shard);
  if (difference.empty() && !(kept.seeds == wanted.seeds))
    difference = "is about the seeds " + seedsText(kept.seeds);
  if (difference.empty()) return std::nullopt;
  return difference;
}

std::optional<CampaignSummary> mergeSummaries(const std::vector<NamedSummary>& all,
                                              std::vector<std::string>& problems) {
  const auto order = sorted(all);
  const CampaignSummary& like = all.front().summary;
  for (const NamedSummary& each : all) {
    const std::string difference = differenceOf(like, each.summary);
    if (!difference.empty()) problems.push_back(each.file + ": " + difference + " like " + all.front().file);
    if (!each.summary.isFinished())
      problems.push_back(each.file +
                         ": is not finished; this continues it: " + commandOf(each.summary, each.file));
  }
  if (problems.empty()) (like.shard.of > 1 ? checkShards : checkSeeds)(order, problems);
  if (!problems.empty()) return std::nullopt;
  CampaignSummary sum({order.front()->summary.seeds.first, order.back()->summary.seeds.last}, {},
                      like.options, {});
  sum.commit = like.commit;
  for (const NamedSummary* each : order) addTo(sum, each->summary);
  return sum;
}

std::string reportOf(const CampaignSummary& summary) {
  // Two programs that were built from changed sources cannot be told apart.
  const bool isUnsure = summary.commit == "unknown" || summary.commit.ends_with("-dirty");
  return "seeds " + seedsText(summary.campaign) + ", " + optionsText(summary.options) + ", commit " +
         summary.commit + (isUnsure ? " (not a clean commit)" : "") + ": " + failuresText(summary) +
         coverageText(summary.coverage) + costText(summary);
}

}  // namespace brisko::lab
