#include "sim/generate/campaign.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <ctime>
#include <fstream>
#include <map>
#include <system_error>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <unistd.h>

#include "base/json_file.h"
#include "sim/generate/commit.h"
#include "sim/generate/processor_time.h"
#include "sim/generate/shrink.h"
#include "sim/generate/worker_pool.h"
#include "sim/scenario/timing.h"

namespace brisko::lab {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr milliseconds terminalEvery{500};
constexpr milliseconds fileEvery{10000};
constexpr std::chrono::seconds cancelTimeout{20};  // at most
constexpr std::chrono::seconds summaryEvery{10};   // so much work is lost with the lab

// --- Control-C

volatile std::sig_atomic_t gInterrupted = 0;
volatile std::sig_atomic_t gWakeUp = -1;  // the end of a pipe to write to

void noteInterruption(int) {
  const int error = errno;
  gInterrupted = 1;
  // A full pipe wakes the campaign up just as well.
  [[maybe_unused]] const ssize_t written = ::write(gWakeUp, "", 1);
  errno = error;
}

// While an object of this class exists, SIGINT and SIGTERM are recorded instead of ending the process. They
// also end the wait for the workers, even those that arrive just before it begins.
class Interruptible {
 public:
  Interruptible() {
    if (::pipe(wakeUp_.data()) != 0) throw std::system_error(errno, std::generic_category(), "pipe");
    for (const int end : wakeUp_) {
      ::fcntl(end, F_SETFL, O_NONBLOCK);
      ::fcntl(end, F_SETFD, FD_CLOEXEC);
    }
    gWakeUp = wakeUp_[1];
    for (auto& [signal, before] : actions_) {
      struct sigaction note {};
      note.sa_handler = noteInterruption;
      ::sigaction(signal, &note, &before);
    }
  }
  ~Interruptible() {
    for (const auto& [signal, before] : actions_) ::sigaction(signal, &before, nullptr);
    gWakeUp = -1;
    for (const int end : wakeUp_) ::close(end);
  }
  Interruptible(const Interruptible&) = delete;
  Interruptible& operator=(const Interruptible&) = delete;

  // Can be read after a signal.
  [[nodiscard]] int wakeUp() const { return wakeUp_[0]; }

 private:
  std::array<int, 2> wakeUp_{};
  std::array<std::pair<int, struct sigaction>, 2> actions_{{{SIGINT, {}}, {SIGTERM, {}}}};
};

// --- Texts

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

std::string commandFor(const CampaignOptions& options, std::uint64_t seed) {
  return "brisko-lab campaign --seeds " + seedsText({seed, seed}) + " --days " +
         std::to_string(options.days) + " --faults " + std::string(nameOf(options.faults)) +
         (options.guard.empty() ? "" : " --guard " + options.guard);
}

std::string invariantText(const Verdict& verdict) {
  if (verdict.result == Result::crashed) return "Every generated scenario runs to its end.";
  return verdict.invariantText;
}

std::string eventText(const GeneratedScenario& scenario, const Verdict& verdict) {
  if (!verdict.timedAction || *verdict.timedAction >= scenario.timedActions.size()) return "none yet";
  const TimedAction& last = scenario.timedActions[*verdict.timedAction];
  return last.action.dump() + ", step " + std::to_string(*verdict.timedAction) + ", " +
         spanText(static_cast<double>(last.at)) + " after the beginning";
}

std::string failureText(const CampaignOptions& options, std::uint64_t seed, const Verdict& verdict) {
  const GeneratedScenario scenario = generateScenario(seed, options.days, options.faults, options.guard);
  std::string text = "seed " + std::to_string(seed) + " (commit " + commitOfBuild() + ")\n";
  if (verdict.result == Result::failed) {
    text += "  when:      " + momentText(verdict.begin + verdict.at) + " of machine time, after " +
            spanText(verdict.at) + "\n  event:     " + eventText(scenario, verdict) + "\n";
  }
  text += "  invariant: " + invariantText(verdict) + "\n  seen:      " + verdict.seen +
          "\n  again:     " + commandFor(options, seed) + "\n";
  if (!verdict.log.empty()) text += "  The end of the log until then:\n";
  for (const std::string& line : verdict.log) text += "    " + line + "\n";
  return text;
}

// --- The campaign

class Campaign {
 public:
  // The summary contains what an earlier run has finished.
  Campaign(const CampaignOptions& options, const Output& output, const RunSeed& runSeed,
           std::optional<CampaignSummary> summary)
      : options_(options),
        output_(output),
        runSeed_(runSeed),
        pool_(options.jobs),
        summary_(std::move(summary)),
        seeds_(summary_ ? summary_->seeds : options.seeds) {
    takeUpSummary();
  }

  int run() {
    while (gInterrupted == 0 && !isDone()) {
      while (!pool_.allBusy() && next_ <= seeds_.last) beginNext();
      collect(progressInterval());
      if (Clock::now() - summaryWrittenAt_ >= summaryEvery && !writeSummaryNow()) return campaignUnusable;
      updateProgress();
    }
    if (gInterrupted != 0) cancel();
    if (!writeSummaryNow()) return campaignUnusable;
    printFinished(seeds_.last);
    showFinalProgress();
    printSummary();
    if (gInterrupted != 0) return campaignInterrupted;
    shrinkFailures();
    if (gInterrupted != 0) return campaignInterrupted;
    return failures_ == 0 ? campaignPassed : campaignFailed;
  }

 private:
  [[nodiscard]] bool isDone() const { return next_ > seeds_.last && pool_.allIdle(); }
  [[nodiscard]] milliseconds progressInterval() const {
    return output_.onTerminal ? terminalEvery : fileEvery;
  }

  void beginNext() {
    const std::uint64_t seed = next_++;
    if (verdicts_.contains(seed)) return;  // finished in an earlier run
    pool_.begin(
        seed, [this, seed](const ShouldContinue& shouldContinue) { return runSeed_(seed, shouldContinue); });
  }

  void collect(milliseconds atMost) {
    for (WorkerPool::Ended& ended : pool_.wait(atMost, interruptible_.wakeUp())) {
      if (ended.verdict.result == Result::cancelled) continue;
      if (summary_) summary_->add(ended.number, ended.verdict);
      ended.verdict.coverage = {};
      note(ended.number, std::move(ended.verdict));
    }
    printFinished(printableUpTo());
  }

  void note(std::uint64_t seed, Verdict verdict) {
    ++finished_;
    seconds_ += verdict.seconds;
    if (verdict.result != Result::passed) ++failures_;
    verdicts_[seed] = std::move(verdict);
  }

  // --- The summary

  void takeUpSummary() {
    if (!summary_) return;
    for (const Seeds& range : summary_->finished) {
      for (std::uint64_t seed = range.first; seed <= range.last; ++seed) {
        const auto failure = summary_->failures.find(seed);
        note(seed, failure == summary_->failures.end() ? Verdict{.result = Result::passed} : failure->second);
      }
    }
    seconds_ = earlierSeconds_ = static_cast<double>(summary_->simulatedSeconds);
    earlierProcessorSeconds_ = summary_->processorSeconds;
    earlierElapsedSeconds_ = summary_->elapsedSeconds;
  }

  [[nodiscard]] bool writeSummaryNow() {
    summaryWrittenAt_ = Clock::now();
    if (!summary_) return true;
    summary_->processorSeconds = earlierProcessorSeconds_ + processorSeconds() - processorSecondsBefore_;
    summary_->elapsedSeconds = earlierElapsedSeconds_ + 60 * minutes();
    if (writeSummary(options_.summary->file, *summary_)) return true;
    clearProgress();
    output_.progress(options_.summary->file + ": cannot be written\n");
    return false;
  }

  // The last seed up to which all seeds are finished.
  [[nodiscard]] std::uint64_t printableUpTo() const {
    std::uint64_t seed = printed_;
    while (verdicts_.contains(seed)) ++seed;
    return seed - 1;
  }

  // Prints in the order of the seeds, whatever order they finished in.
  void printFinished(std::uint64_t last) {
    for (; printed_ <= last; ++printed_) {
      const auto found = verdicts_.find(printed_);
      if (found == verdicts_.end() || found->second.result == Result::passed) continue;
      clearProgress();
      output_.print(failureText(options_, printed_, found->second));
    }
  }

  void cancel() {
    pool_.cancel();
    const auto end = Clock::now() + cancelTimeout;
    while (!pool_.allIdle() && Clock::now() < end) collect(milliseconds(100));
  }

  // --- Progress

  [[nodiscard]] double daysRun() const { return (seconds_ + pool_.secondsUnderWay()) / 86400; }
  [[nodiscard]] double minutes() const {
    return std::chrono::duration<double, std::ratio<60>>(Clock::now() - startedAt_).count();
  }

  void updateProgress() {
    if (Clock::now() - progressShownAt_ < progressInterval()) return;
    progressShownAt_ = Clock::now();
    const std::uint64_t seeds = countOf(seeds_);
    const double all = static_cast<double>(seeds) * static_cast<double>(options_.days);
    const double days = daysRun();
    const double rate = (days - earlierSeconds_ / 86400) / minutes();
    std::array<char, 200> text{};
    static_cast<void>(std::snprintf(
        text.data(), text.size(), "%llu of %llu seeds, %.0f of %.0f days, %.0f days a minute, ",
        static_cast<unsigned long long>(finished_), static_cast<unsigned long long>(seeds), days, all, rate));
    const std::string left = rate > 0 ? spanText(60 * std::max(0.0, all - days) / rate) + " left, " : "";
    progress(text.data() + left + counted(failures_, "failure", "failures"));
  }

  void progress(const std::string& text) {
    if (!output_.onTerminal) return output_.progress(text + "\n");
    output_.progress("\r\x1b[K" + text);
    progressShown_ = true;
  }
  void clearProgress() {
    if (progressShown_) output_.progress("\r\x1b[K");
    progressShown_ = false;
  }

  void showFinalProgress() {
    clearProgress();
    const double days = daysRun() - earlierSeconds_ / 86400;
    std::array<char, 200> text{};
    static_cast<void>(std::snprintf(text.data(), text.size(),
                                    "%.0f days in %.1f min: %.0f a minute, %u at a time\n", days, minutes(),
                                    days / minutes(), options_.jobs));
    output_.progress(text.data());
  }

  // --- The end

  void printSummary() {
    std::string text =
        "seeds " + seedsText(seeds_) + ", " +
        counted(static_cast<std::uint64_t>(options_.days), "day", "days") + " each, faults " +
        std::string(nameOf(options_.faults)) + ": " +
        (gInterrupted != 0 ? "cancelled after " + counted(finished_, "seed", "seeds") + ", " : "");
    text += failures_ == 0 ? "all invariants hold\n" : counted(failures_, "failure", "failures") + "\n";
    std::map<int, std::vector<std::uint64_t>> seedsOf;  // by invariant; 0: those that crashed
    for (const auto& [seed, verdict] : verdicts_) {
      if (verdict.result != Result::passed) seedsOf[verdict.invariant].push_back(seed);
    }
    for (const auto& [invariant, seeds] : seedsOf) {
      text += "  " + std::to_string(seeds.size()) + " × " + invariantText(verdicts_.at(seeds.front())) +
              " Seeds:";
      for (std::size_t index = 0; index < std::min<std::size_t>(seeds.size(), 10); ++index) {
        text += " " + std::to_string(seeds[index]);
      }
      text += seeds.size() > 10 ? " …\n" : "\n";
    }
    output_.print(text);
  }

  // --- Shrinking

  // Shrinks the first failing seed of each invariant.
  void shrinkFailures() {
    if (!options_.shrinkInto) return;
    std::vector<int> done;
    for (const auto& [seed, verdict] : verdicts_) {
      if (verdict.result != Result::failed || gInterrupted != 0) continue;
      if (std::find(done.begin(), done.end(), verdict.invariant) != done.end()) continue;
      done.push_back(verdict.invariant);
      shrinkOne(seed, verdict);
    }
  }

  void shrinkOne(std::uint64_t seed, const Verdict& verdict) {
    const GeneratedScenario scenario = generateScenario(seed, options_.days, options_.faults, options_.guard);
    std::size_t tried = 0;
    const TryOut tryOut = [&](const std::vector<GeneratedScenario>& candidates) {
      tried += candidates.size();
      progress("seed " + std::to_string(seed) + ": " +
               std::to_string(candidates.front().timedActions.size()) + " actions left, " +
               counted(tried, "try", "tries"));
      return firstFailing(candidates, verdict.invariant);
    };
    Shrunk shrunk = shrink(scenario, verdict.at, {.atOnce = options_.jobs}, tryOut);
    clearProgress();
    if (gInterrupted != 0) return;
    shrunk.scenario.description +=
        " Cut down to what violates invariant " + std::to_string(verdict.invariant) + ".";
    const std::string file = *options_.shrinkInto + "/seed-" + std::to_string(seed) + "-invariant-" +
                             std::to_string(verdict.invariant) + ".json";
    std::ofstream stream(file, std::ios::binary | std::ios::trunc);
    const bool written = static_cast<bool>(stream << scenarioText(shrunk.scenario) << std::flush);
    output_.print(written ? file + ": " + std::to_string(shrunk.scenario.timedActions.size()) + " of " +
                                std::to_string(scenario.timedActions.size()) + " actions are left, after " +
                                counted(shrunk.tries, "try", "tries") + "\n"
                          : file + " cannot be written\n");
  }

  std::optional<StillFailing> firstFailing(const std::vector<GeneratedScenario>& candidates, int invariant) {
    for (std::size_t index = 0; index < candidates.size(); ++index) {
      pool_.begin(index, [&scenario = candidates[index]](const ShouldContinue& shouldContinue) {
        return runGenerated(scenario, shouldContinue);
      });
    }
    std::optional<StillFailing> first;
    while (!pool_.allIdle() && gInterrupted == 0) {
      for (const WorkerPool::Ended& ended : pool_.wait(terminalEvery, interruptible_.wakeUp())) {
        const Verdict& verdict = ended.verdict;
        if (verdict.result != Result::failed || verdict.invariant != invariant) continue;
        if (!first || ended.number < first->index) first = StillFailing{ended.number, verdict.at};
      }
    }
    return gInterrupted == 0 ? first : std::nullopt;
  }

  const CampaignOptions& options_;
  const Output& output_;
  const RunSeed& runSeed_;
  Interruptible interruptible_;
  WorkerPool pool_;
  std::optional<CampaignSummary> summary_;
  Seeds seeds_;  // to run

  std::uint64_t next_ = seeds_.first;     // the next seed to run
  std::uint64_t printed_ = seeds_.first;  // the next seed to report
  std::map<std::uint64_t, Verdict> verdicts_;
  std::uint64_t finished_ = 0;
  std::uint64_t failures_ = 0;
  double seconds_ = 0;  // of machine time, in finished runs
  // In earlier runs of this campaign.
  double earlierSeconds_ = 0;
  double earlierProcessorSeconds_ = 0;
  double earlierElapsedSeconds_ = 0;
  double processorSecondsBefore_ = processorSeconds();

  Clock::time_point startedAt_ = Clock::now();
  Clock::time_point progressShownAt_ = startedAt_;
  Clock::time_point summaryWrittenAt_ = startedAt_;
  bool progressShown_ = false;  // a progress line is on the terminal
};

// What an earlier run of this campaign has recorded, or an empty summary. None, and the reason, if the file
// is of another campaign or unreadable.
std::optional<CampaignSummary> openSummary(const CampaignOptions& options, std::string& reason) {
  const SummaryOptions& asked = *options.summary;
  CampaignSummary fresh(options.seeds, asked.shard,
                        {.days = options.days, .faults = options.faults, .guard = options.guard},
                        knownCoverage(asked.kinds));
  if (::access(asked.file.c_str(), F_OK) != 0) return fresh;
  const auto text = readWholeFile(asked.file);
  if (!text) {
    reason = "cannot be read";
    return std::nullopt;
  }
  auto kept = readSummary(*text, reason);
  if (!kept) return std::nullopt;
  const auto difference = whyNotContinued(*kept, fresh);
  if (!difference) return kept;
  reason = *difference;
  return std::nullopt;
}

}  // namespace

int runCampaign(const CampaignOptions& options, const Output& output, const RunSeed& runSeed) {
  gInterrupted = 0;
  std::optional<CampaignSummary> summary;
  if (options.summary) {
    std::string reason;
    summary = openSummary(options, reason);
    if (!summary) {
      output.progress(options.summary->file + ": " + reason + "\n");
      return campaignUnusable;
    }
  }
  return Campaign(options, output, runSeed, std::move(summary)).run();
}

RunSeed runnerFor(const CampaignOptions& options) {
  return [options](std::uint64_t seed, const ShouldContinue& shouldContinue) {
    return runGenerated(generateScenario(seed, options.days, options.faults, options.guard), shouldContinue,
                        options.summary ? &options.summary->kinds : nullptr);
  };
}

}  // namespace brisko::lab
