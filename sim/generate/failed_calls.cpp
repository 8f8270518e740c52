#include "sim/generate/failed_calls.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdio>
#include <map>
#include <utility>

#include "base/json_file.h"
#include "sim/generate/processor_time.h"
#include "sim/generate/worker_pool.h"
#include "sim/scenario/run_scenario.h"
#include "sim/schema/json_schema.h"

namespace brisko::lab {
namespace {

constexpr std::array allCallFaults{CallFault::once, CallFault::fromThenOn, CallFault::killed};
constexpr std::chrono::milliseconds pollInterval{500};

struct Run {
  CallPoint point;
  CallFault fault;
};

// The same on every computer, and spread evenly.
double shareOf(const std::string& text) {
  std::uint64_t hash = 0xcbf29ce484222325U;
  for (const char character : text) hash = (hash ^ static_cast<std::uint8_t>(character)) * 0x100000001b3U;
  hash ^= hash >> 29U;
  hash *= 0xbf58476d1ce4e5b9U;
  hash ^= hash >> 32U;
  return static_cast<double>(hash >> 11U) * 0x1p-53;
}

std::string nameOfFile(const std::string& path) { return path.substr(path.rfind('/') + 1); }

std::string runText(const Run& run) {
  return "call " + std::to_string(run.point.number) + ", " + run.point.call + " (" + run.point.state + "), " +
         nameOf(run.fault);
}

// --- One run, in a worker

Verdict notAsRecorded(const std::string& why) {
  return {.result = Result::crashed,
          .invariantText = "A scenario runs as it was recorded, up to the call that fails.",
          .seen = why};
}

Verdict runWithFailure(const Scenario& scenario, const Diagnostics& file, const Run& run,
                       const ShouldContinue& shouldContinue) {
  CallFaults faults(run.point, run.fault);
  const Outcome outcome =
      runScenario(scenario, file, {.callFaults = &faults, .shouldContinue = shouldContinue});
  if (outcome.cancelled) return {.result = Result::cancelled};
  if (faults.differed()) return notAsRecorded("another call had this number");
  if (!faults.failedAt()) return notAsRecorded("the call was never made");
  Verdict verdict{.result = outcome.violation ? Result::failed : Result::passed,
                  .begin = outcome.begin,
                  .seconds = outcome.seconds,
                  .log = outcome.log};
  if (!outcome.violation) return verdict;
  verdict.invariant = outcome.violation->invariant.number;
  verdict.invariantText = numbered(outcome.violation->invariant);
  verdict.at = outcome.violation->at - *faults.failedAt();
  verdict.seen = outcome.violation->seen;
  return verdict;
}

// --- All runs of all scenarios

struct Counts {
  std::uint64_t calls = 0;   // made in the scenario
  std::uint64_t kinds = 0;   // different calls in different states
  std::uint64_t points = 0;  // calls that may fail
  std::map<CallFault, std::uint64_t> runs = {};
  std::uint64_t failures = 0;

  void add(const Counts& other) {
    calls += other.calls;
    kinds += other.kinds;
    points += other.points;
    for (const auto& [fault, count] : other.runs) runs[fault] += count;
    failures += other.failures;
  }
  [[nodiscard]] std::uint64_t allRuns() const {
    std::uint64_t sum = 0;
    for (const auto& [fault, count] : runs) sum += count;
    return sum;
  }
};

std::string rowOf(const std::string& name, Counts counts) {
  std::array<char, 240> text{};
  static_cast<void>(std::snprintf(
      text.data(), text.size(), "%9llu %6llu %6llu %6llu %12llu %6llu %8llu  %s\n",
      static_cast<unsigned long long>(counts.calls), static_cast<unsigned long long>(counts.kinds),
      static_cast<unsigned long long>(counts.points),
      static_cast<unsigned long long>(counts.runs[CallFault::once]),
      static_cast<unsigned long long>(counts.runs[CallFault::fromThenOn]),
      static_cast<unsigned long long>(counts.runs[CallFault::killed]),
      static_cast<unsigned long long>(counts.failures), name.c_str()));
  return text.data();
}

class FailedCalls {
 public:
  FailedCalls(const FailedCallsOptions& options, const Output& output)
      : options_(options), output_(output), pool_(options.jobs) {}

  int run() {
    output_.print("    calls  kinds points   once from-then-on killed failures  scenario\n");
    for (const std::string& path : options_.scenarios) {
      if (!runScenarioFile(path)) return campaignUnusable;
    }
    printTotal();
    return total_.failures == 0 ? campaignPassed : campaignFailed;
  }

 private:
  bool runScenarioFile(const std::string& path) {
    Diagnostics diagnostics(path);
    const auto text = readWholeFile(path);
    if (!text) diagnostics.add("", "cannot be read");
    if (text && !schema::hasValidator()) diagnostics.add("", schema::noValidatorText);
    auto scenario = text && schema::hasValidator() ? readScenario(*text, diagnostics) : std::nullopt;
    if (!scenario) {
      for (const std::string& diagnostic : diagnostics.texts()) output_.progress(diagnostic + "\n");
      return false;
    }
    // A daemon that was killed starts again; one that cannot start is not tried every ten seconds.
    scenario->setup.keptAlive = scenario->setup.backsOff = true;

    Counts counts;
    const std::vector<Run> runs = chooseRuns(path, *scenario, diagnostics, counts);
    runAll(path, *scenario, diagnostics, runs, counts);
    output_.print(rowOf(nameOfFile(path), counts));
    total_.add(counts);
    return true;
  }

  std::vector<Run> chooseRuns(const std::string& path, const Scenario& scenario,
                              const Diagnostics& diagnostics, Counts& counts) const {
    CallFaults recorded;
    static_cast<void>(runScenario(scenario, diagnostics, {.callFaults = &recorded}));
    std::vector<CallPoint> points = recorded.points();
    std::erase_if(points, [this](const CallPoint& point) {
      return point.call.find(options_.calls) == std::string::npos;
    });
    counts.calls = recorded.calls();
    counts.kinds = recorded.kinds();
    counts.points = points.size();
    std::vector<Run> runs;
    for (const CallPoint& point : points) {
      for (const CallFault fault : allCallFaults) {
        if (isChosen(path, point, fault)) runs.push_back({point, fault});
      }
    }
    return runs;
  }

  [[nodiscard]] bool isChosen(const std::string& path, const CallPoint& point, CallFault fault) const {
    if (options_.only) return options_.only->number == point.number && options_.only->fault == fault;
    return shareOf(nameOfFile(path) + std::to_string(point.number) + nameOf(fault)) < options_.sample;
  }

  void runAll(const std::string& path, const Scenario& scenario, const Diagnostics& diagnostics,
              const std::vector<Run>& runs, Counts& counts) {
    std::size_t next = 0;
    while (next < runs.size() || !pool_.allIdle()) {
      for (; next < runs.size() && !pool_.allBusy(); ++next) {
        pool_.begin(next, [&, run = runs[next]](const ShouldContinue& shouldContinue) {
          return runWithFailure(scenario, diagnostics, run, shouldContinue);
        });
      }
      for (const WorkerPool::Ended& ended : pool_.wait(pollInterval))
        note(path, runs[ended.number], ended.verdict, counts);
    }
  }

  void note(const std::string& path, const Run& run, const Verdict& verdict, Counts& counts) {
    ++counts.runs[run.fault];
    if (verdict.result == Result::passed) return;
    ++counts.failures;
    std::string text = "FAIL  " + nameOfFile(path) + ": " + runText(run) + "\n  invariant: " +
                       (verdict.invariantText.empty() ? "Every run ends." : verdict.invariantText) +
                       "\n  seen:      " + verdict.seen + "\n  again:     brisko-lab fail-calls --only " +
                       std::to_string(run.point.number) + ":" + nameOf(run.fault) + " " + path + "\n";
    if (!verdict.log.empty()) text += "  The end of the log until then:\n";
    for (const std::string& line : verdict.log) text += "    " + line + "\n";
    output_.print(text);
  }

  void printTotal() {
    const std::uint64_t possible = total_.points * allCallFaults.size();
    const double share =
        possible == 0 ? 0 : 100 * static_cast<double>(total_.allRuns()) / static_cast<double>(possible);
    std::array<char, 240> text{};
    static_cast<void>(std::snprintf(
        text.data(), text.size(), "%llu of %llu runs (%.1f %%), %llu failures, %.0f s of processor time\n",
        static_cast<unsigned long long>(total_.allRuns()), static_cast<unsigned long long>(possible), share,
        static_cast<unsigned long long>(total_.failures), processorSeconds()));
    output_.print(rowOf("all", total_) + text.data());
  }

  const FailedCallsOptions& options_;
  const Output& output_;
  WorkerPool pool_;
  Counts total_;
};

}  // namespace

std::optional<CallChoice> parseCallChoice(std::string_view text) {
  const std::size_t colon = text.find(':');
  if (colon == std::string_view::npos) return std::nullopt;
  CallChoice choice;
  const auto [end, error] = std::from_chars(text.data(), text.data() + colon, choice.number);
  if (error != std::errc{} || end != text.data() + colon) return std::nullopt;
  for (const CallFault fault : allCallFaults) {
    if (text.substr(colon + 1) != nameOf(fault)) continue;
    choice.fault = fault;
    return choice;
  }
  return std::nullopt;
}

int runFailedCalls(const FailedCallsOptions& options, const Output& output) {
  return FailedCalls(options, output).run();
}

}  // namespace brisko::lab
