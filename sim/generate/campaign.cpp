#include "sim/generate/campaign.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <ctime>
#include <fstream>
#include <map>
#include <utility>
#include <vector>

#include "sim/generate/commit.h"
#include "sim/generate/players.h"
#include "sim/generate/shrink.h"
#include "sim/invariants/watch.h"
#include "sim/scenario/timing.h"

namespace brisko::lab {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr milliseconds terminalEvery{500};
constexpr milliseconds fileEvery{10000};
constexpr std::chrono::seconds breakingOffTakes{20};  // at most

// --- Control-C

volatile std::sig_atomic_t gInterrupted = 0;

// While it lives, SIGINT and SIGTERM are noted and end nothing.
class Interruptible {
 public:
  Interruptible() {
    for (auto& [signal, before] : actions_) {
      struct sigaction note {};
      note.sa_handler = [](int) { gInterrupted = 1; };
      ::sigaction(signal, &note, &before);
    }
  }
  ~Interruptible() {
    for (const auto& [signal, before] : actions_) ::sigaction(signal, &before, nullptr);
  }
  Interruptible(const Interruptible&) = delete;
  Interruptible& operator=(const Interruptible&) = delete;

 private:
  std::array<std::pair<int, struct sigaction>, 2> actions_{{{SIGINT, {}}, {SIGTERM, {}}}};
};

// --- Words

std::string momentText(double machineTime) {
  const auto seconds = static_cast<std::time_t>(machineTime);
  std::tm parts{};
  ::gmtime_r(&seconds, &parts);
  std::array<char, 40> text{};
  static_cast<void>(std::strftime(text.data(), text.size(), "%Y-%m-%d %H:%M:%S", &parts));
  return text.data();
}

std::string counted(std::uint64_t count, const std::string& one, const std::string& many) {
  return std::to_string(count) + " " + (count == 1 ? one : many);
}

std::string seedsText(const Seeds& seeds) {
  return std::to_string(seeds.first) + ".." + std::to_string(seeds.last);
}

std::string commandFor(const CampaignOrder& order, std::uint64_t seed) {
  return "brisko-lab campaign --seeds " + seedsText({seed, seed}) + " --days " + std::to_string(order.days) +
         " --faults " + std::string(nameOf(order.faults));
}

std::string invariantText(const Verdict& verdict) {
  if (verdict.went == Went::nowhere) return "The lab plays every story to its end.";
  return std::to_string(verdict.invariant) + ". " + invariantWords(verdict.invariant);
}

std::string eventText(const Story& story, const Verdict& verdict) {
  if (!verdict.happening || *verdict.happening >= story.happenings.size()) return "none yet";
  const Happening& last = story.happenings[*verdict.happening];
  return last.action.dump() + ", step " + std::to_string(*verdict.happening) + ", " +
         spanText(static_cast<double>(last.at)) + " after the beginning";
}

std::string failureText(const CampaignOrder& order, std::uint64_t seed, const Verdict& verdict) {
  const Story story = randomStory(seed, order.days, order.faults);
  std::string text = "seed " + std::to_string(seed) + " (commit " + commitOfBuild() + ")\n";
  if (verdict.went == Went::wrong) {
    text += "  when:      " + momentText(verdict.begin + verdict.at) + " of machine time, after " +
            spanText(verdict.at) + "\n  event:     " + eventText(story, verdict) + "\n";
  }
  text += "  invariant: " + invariantText(verdict) + "\n  seen:      " + verdict.seen +
          "\n  again:     " + commandFor(order, seed) + "\n";
  if (!verdict.log.empty()) text += "  The end of the log until then:\n";
  for (const std::string& line : verdict.log) text += "    " + line + "\n";
  return text;
}

// --- The campaign

class Campaign {
 public:
  Campaign(const CampaignOrder& order, const Voices& voices, const PlaySeed& play)
      : order_(order), voices_(voices), play_(play), players_(order.jobs) {}

  int run() {
    const Interruptible untilTheEnd;
    while (gInterrupted == 0 && !isDone()) {
      while (!players_.allBusy() && next_ <= order_.seeds.last) beginNext();
      collect(whisperEvery());
      whisperProgress();
    }
    if (gInterrupted != 0) breakOff();
    tellPlayed(order_.seeds.last);
    whisperEnd();
    tellSummary();
    if (gInterrupted != 0) return campaignInterrupted;
    shrinkWrongOnes();
    if (gInterrupted != 0) return campaignInterrupted;
    return failures_ == 0 ? campaignHolds : campaignFails;
  }

 private:
  [[nodiscard]] bool isDone() const { return next_ > order_.seeds.last && players_.allIdle(); }
  [[nodiscard]] milliseconds whisperEvery() const { return voices_.onTerminal ? terminalEvery : fileEvery; }

  void beginNext() {
    const std::uint64_t seed = next_++;
    players_.begin(seed, [this, seed](const GoesOn& goesOn) { return play_(seed, goesOn); });
  }

  void collect(milliseconds atMost) {
    for (Players::Ended& ended : players_.wait(atMost)) {
      if (ended.verdict.went == Went::brokenOff) continue;
      ++played_;
      seconds_ += ended.verdict.seconds;
      if (ended.verdict.went != Went::well) ++failures_;
      verdicts_[ended.number] = std::move(ended.verdict);
    }
    tellPlayed(toldUpTo());
  }

  // The last seed before which all have been played.
  [[nodiscard]] std::uint64_t toldUpTo() const {
    std::uint64_t seed = told_;
    while (verdicts_.contains(seed)) ++seed;
    return seed - 1;
  }

  // In the order of the seeds, whoever was played first.
  void tellPlayed(std::uint64_t last) {
    for (; told_ <= last; ++told_) {
      const auto found = verdicts_.find(told_);
      if (found == verdicts_.end() || found->second.went == Went::well) continue;
      clearWhisper();
      voices_.tell(failureText(order_, told_, found->second));
    }
  }

  void breakOff() {
    players_.breakOff();
    const auto end = Clock::now() + breakingOffTakes;
    while (!players_.allIdle() && Clock::now() < end) collect(milliseconds(100));
  }

  // --- How far it is

  [[nodiscard]] double daysPlayed() const { return (seconds_ + players_.secondsUnderWay()) / 86400; }
  [[nodiscard]] double minutes() const {
    return std::chrono::duration<double, std::ratio<60>>(Clock::now() - begun_).count();
  }

  void whisperProgress() {
    if (Clock::now() - whisperedAt_ < whisperEvery()) return;
    whisperedAt_ = Clock::now();
    const std::uint64_t seeds = order_.seeds.last - order_.seeds.first + 1;
    const double all = static_cast<double>(seeds) * static_cast<double>(order_.days);
    const double days = daysPlayed();
    const double rate = days / minutes();
    std::array<char, 200> text{};
    static_cast<void>(std::snprintf(
        text.data(), text.size(), "%llu of %llu seeds, %.0f of %.0f days, %.0f days a minute, ",
        static_cast<unsigned long long>(played_), static_cast<unsigned long long>(seeds), days, all, rate));
    const std::string left = rate > 0 ? spanText(60 * std::max(0.0, all - days) / rate) + " left, " : "";
    whisper(text.data() + left + counted(failures_, "failure", "failures"));
  }

  void whisper(const std::string& text) {
    if (!voices_.onTerminal) return voices_.whisper(text + "\n");
    voices_.whisper("\r\x1b[K" + text);
    whispered_ = true;
  }
  void clearWhisper() {
    if (whispered_) voices_.whisper("\r\x1b[K");
    whispered_ = false;
  }

  void whisperEnd() {
    clearWhisper();
    std::array<char, 200> text{};
    static_cast<void>(std::snprintf(text.data(), text.size(),
                                    "%.0f days in %.1f min: %.0f a minute, %u at a time\n", daysPlayed(),
                                    minutes(), daysPlayed() / minutes(), order_.jobs));
    voices_.whisper(text.data());
  }

  // --- The end

  void tellSummary() {
    std::string text =
        "seeds " + seedsText(order_.seeds) + ", " +
        counted(static_cast<std::uint64_t>(order_.days), "day", "days") + " each, faults " +
        std::string(nameOf(order_.faults)) + ": " +
        (gInterrupted != 0 ? "broken off after " + counted(played_, "seed", "seeds") + ", " : "");
    text += failures_ == 0 ? "everything holds\n" : counted(failures_, "failure", "failures") + "\n";
    std::map<int, std::vector<std::uint64_t>> seedsOf;  // by invariant; 0: those that came to no end
    for (const auto& [seed, verdict] : verdicts_) {
      if (verdict.went != Went::well) seedsOf[verdict.invariant].push_back(seed);
    }
    for (const auto& [invariant, seeds] : seedsOf) {
      text += "  " + std::to_string(seeds.size()) + " × " + invariantText(verdicts_.at(seeds.front())) +
              " Seeds:";
      for (std::size_t index = 0; index < std::min<std::size_t>(seeds.size(), 10); ++index) {
        text += " " + std::to_string(seeds[index]);
      }
      text += seeds.size() > 10 ? " …\n" : "\n";
    }
    voices_.tell(text);
  }

  // --- Cutting down

  // The first seed for each invariant.
  void shrinkWrongOnes() {
    if (!order_.shrinkInto) return;
    std::vector<int> done;
    for (const auto& [seed, verdict] : verdicts_) {
      if (verdict.went != Went::wrong || gInterrupted != 0) continue;
      if (std::find(done.begin(), done.end(), verdict.invariant) != done.end()) continue;
      done.push_back(verdict.invariant);
      shrinkOne(seed, verdict);
    }
  }

  void shrinkOne(std::uint64_t seed, const Verdict& verdict) {
    const Story story = randomStory(seed, order_.days, order_.faults);
    std::size_t tried = 0;
    const TryOut tryOut = [&](const std::vector<Story>& candidates) {
      tried += candidates.size();
      whisper("seed " + std::to_string(seed) + ": " + std::to_string(candidates.front().happenings.size()) +
              " happenings left, " + counted(tried, "try", "tries"));
      return firstWrong(candidates, verdict.invariant);
    };
    Shrunk shrunk = shrink(story, verdict.at, {.atOnce = order_.jobs}, tryOut);
    clearWhisper();
    if (gInterrupted != 0) return;
    shrunk.story.sentence +=
        " Cut down to what violates invariant " + std::to_string(verdict.invariant) + ".";
    const std::string file = *order_.shrinkInto + "/seed-" + std::to_string(seed) + "-invariant-" +
                             std::to_string(verdict.invariant) + ".json";
    std::ofstream stream(file, std::ios::binary | std::ios::trunc);
    const bool written = static_cast<bool>(stream << scenarioText(shrunk.story) << std::flush);
    voices_.tell(written ? file + ": " + std::to_string(shrunk.story.happenings.size()) + " of " +
                               std::to_string(story.happenings.size()) + " happenings are left, after " +
                               counted(shrunk.tries, "try", "tries") + "\n"
                         : file + " cannot be written\n");
  }

  std::optional<StillWrong> firstWrong(const std::vector<Story>& candidates, int invariant) {
    for (std::size_t index = 0; index < candidates.size(); ++index) {
      players_.begin(index,
                     [&story = candidates[index]](const GoesOn& goesOn) { return judge(story, goesOn); });
    }
    std::optional<StillWrong> first;
    while (!players_.allIdle() && gInterrupted == 0) {
      for (const Players::Ended& ended : players_.wait(terminalEvery)) {
        const Verdict& verdict = ended.verdict;
        if (verdict.went != Went::wrong || verdict.invariant != invariant) continue;
        if (!first || ended.number < first->index) first = StillWrong{ended.number, verdict.at};
      }
    }
    return gInterrupted == 0 ? first : std::nullopt;
  }

  const CampaignOrder& order_;
  const Voices& voices_;
  const PlaySeed& play_;
  Players players_;

  std::uint64_t next_ = order_.seeds.first;  // to be played
  std::uint64_t told_ = order_.seeds.first;  // to be told of
  std::map<std::uint64_t, Verdict> verdicts_;
  std::uint64_t played_ = 0;
  std::uint64_t failures_ = 0;
  double seconds_ = 0;  // of machine time, of those that ended

  Clock::time_point begun_ = Clock::now();
  Clock::time_point whisperedAt_ = begun_;
  bool whispered_ = false;  // something stands in the line
};

std::optional<std::uint64_t> parseSeed(std::string_view text) {
  std::uint64_t seed = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), seed);
  if (error != std::errc{} || end != text.data() + text.size()) return std::nullopt;
  return seed;
}

}  // namespace

std::optional<Seeds> parseSeeds(std::string_view text) {
  const std::size_t dots = text.find("..");
  const auto first = parseSeed(text.substr(0, dots));
  const auto last = dots == std::string_view::npos ? first : parseSeed(text.substr(dots + 2));
  // All seeds there are cannot be counted.
  if (!first || !last || *last < *first || *last == UINT64_MAX) return std::nullopt;
  return Seeds{*first, *last};
}

int runCampaign(const CampaignOrder& order, const Voices& voices, const PlaySeed& play) {
  gInterrupted = 0;
  return Campaign(order, voices, play).run();
}

PlaySeed playerFor(const CampaignOrder& order) {
  return [order](std::uint64_t seed, const GoesOn& goesOn) {
    return judge(randomStory(seed, order.days, order.faults), goesOn);
  };
}

}  // namespace brisko::lab
