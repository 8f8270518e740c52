#include "sim/invariants/invariant_checker.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <csignal>
#include <cstring>
#include <nlohmann/json.hpp>
#include <thread>

#include <unistd.h>

#include "base/json_file.h"
#include "base/log.h"
#include "base/paths.h"
#include "sim/invariants/file_watcher.h"
#include "sim/process/log_lines.h"
#include "sim/process/shared_memory.h"
#include "sim/seam/news.h"
#include "state/tick_observer.h"

namespace brisko::lab {
namespace {

using virtual_mac::ChangeKind;

// Lies in memory that the lab and the processes share.
struct Shared {
  Disturbances disturbances;
  ProcessSummary processSummary;
  std::size_t outputSeen = 0;  // bytes of the process's standard output that its rules have processed
  bool violated = false;
  Invariant invariant;  // its text is at the same address in every process
  double at = 0;
  std::array<char, 1000> seen{};
};

// Whether the change disturbs keys, readings or files, or repairs them.
bool disturbs(const virtual_mac::Change& change) {
  switch (change.kind) {
    case ChangeKind::keyPresent:
    case ChangeKind::keySize:
    case ChangeKind::keyOnWrite:
    case ChangeKind::keyReadStatus:
    case ChangeKind::keyBytes:
    case ChangeKind::keyUnscript:
    case ChangeKind::keyRelease:
    case ChangeKind::keyReleaseAfter:
    case ChangeKind::smcService:
    case ChangeKind::property:
    case ChangeKind::powerSources:
    case ChangeKind::powerSourceLag:
    case ChangeKind::layout:
    case ChangeKind::batteryInstalled:
    case ChangeKind::capabilities:
    case ChangeKind::macOS:
    case ChangeKind::trickle:
    case ChangeKind::decay:
      return true;
    default:
      return false;
  }
}

// Whether the text contains a number so large that a value computed from it may not fit 64 bits.
bool holdsUnstorable(const Json& value) {
  constexpr double largest = 1.5e17;  // minutes that still fit as a number of seconds
  if (value.is_number()) return std::abs(value.get<double>()) >= largest;
  return value.is_structured() && std::any_of(value.begin(), value.end(), holdsUnstorable);
}

bool holdsUnstorable(std::string_view text) {
  const auto value = parseJson(text);
  return value && holdsUnstorable(*value);
}

std::optional<UnstorableIn> placeOf(std::string_view path) {
  if (path == statsPath) return UnstorableIn::statistics;
  if (path == calibrationPath) return UnstorableIn::calibration;
  if (path.starts_with("/sent/")) return UnstorableIn::request;
  // The daemon may have been started with another settings file.
  return path.ends_with(".json") ? std::optional(UnstorableIn::settings) : std::nullopt;
}

// Whether the change sets the charge, or what counts as full, without any current.
bool jumps(const virtual_mac::Change& change) {
  return change.kind == ChangeKind::charge || change.kind == ChangeKind::health;
}

}  // namespace

struct InvariantChecker::Impl final : Observation {
  explicit Impl(sim::Simulation& where) : simulation(where) {}

  [[nodiscard]] const virtual_mac::Machine& machine() const override { return simulation.machine(); }
  [[nodiscard]] const virtual_mac::Journal& journal() const override {
    return simulation.store().view().journal();
  }
  [[nodiscard]] const Disturbances& disturbances() const override { return shared->disturbances; }
  [[nodiscard]] ProcessSummary& processSummary() const override { return shared->processSummary; }
  [[nodiscard]] std::optional<std::string> read(const std::string& path) const override {
    return simulation.read(path);
  }

  void note(const Invariant& invariant, const std::string& seen) const {
    if (shared->violated) return;
    shared->invariant = invariant;
    shared->at = machine().now;
    std::strncpy(shared->seen.data(), seen.c_str(), shared->seen.size() - 1);
    shared->violated = true;
  }

  // A violation ends a process at once, because its later actions are irrelevant.
  void found(const Invariant& invariant, const std::string& seen) const {
    note(invariant, seen);
    std::raise(SIGKILL);
  }

  void tickBegins() {
    const virtual_mac::UnwatchedCalls notTheDaemons;
    if (inTick) found(ticksAndReplies, "a tick began inside of another one");
    if (std::this_thread::get_id() != mainThread) found(ticksAndReplies, "a tick ran on another thread");
    inTick = true;
    tick = {.at = machine().now, .journalFrom = journal().written, .before = gState};
    for (const auto& rule : rules) rule->tickBegins(*this, violated);
  }

  void published(const Sample& sample, const Settings& settings) {
    tick.complete = true;
    tick.sample = sample;
    tick.settings = settings;
  }

  void tickEnded() {
    const virtual_mac::UnwatchedCalls notTheDaemons;
    inTick = false;
    tick.journalTo = journal().written;
    readNewLines();
    tick.linesTo = iteration.lines.size();
    for (const auto& rule : rules) rule->tickEnded(tick, *this, violated);
    iteration.ticks.push_back(tick);
  }

  // The new complete lines on the standard output.
  [[nodiscard]] std::vector<std::string> newLines() {
    if (!outputNews.mayHaveNews()) return {};
    std::array<char, 4096> part;
    for (;;) {
      const ssize_t count = ::pread(STDOUT_FILENO, part.data(), part.size(),
                                    static_cast<off_t>(shared->outputSeen + partialLine.size()));
      if (count <= 0) break;
      partialLine.append(part.data(), static_cast<std::size_t>(count));
    }
    const std::size_t seen = shared->outputSeen + partialLine.size();
    std::vector<std::string> lines = sim::takeWholeLines(partialLine);
    shared->outputSeen = seen - partialLine.size();
    return lines;
  }

  void readNewLines() {
    for (std::string& line : newLines()) iteration.lines.push_back(std::move(line));
  }

  void iterationEnded() {
    const virtual_mac::UnwatchedCalls notTheDaemons;
    iteration.at = machine().now;
    iteration.journalFrom = shared->processSummary.journalSeen;
    iteration.journalTo = journal().written;
    readNewLines();
    iteration.files = fileWatcher.takeChanges();
    for (const auto& rule : rules) rule->iterationEnded(iteration, *this, violated);
    shared->processSummary.journalSeen = iteration.journalTo;
    iteration = {};
  }

  sim::Simulation& simulation;
  sim::SharedMemory<Shared> shared;
  FileWatcher fileWatcher{simulation.root()};

  // Used in a process only.
  Rules rules;
  Violated violated = [this](const Invariant& invariant, const std::string& seen) { found(invariant, seen); };
  std::thread::id mainThread;
  bool inTick = false;
  TickRecord tick;
  LoopIteration iteration;
  virtual_mac::NewsReader outputNews;
  std::string partialLine;
};

namespace {

// The checker of this process; null in the lab.
InvariantChecker::Impl* gChecker = nullptr;

}  // namespace

InvariantChecker::InvariantChecker(sim::Simulation& simulation) : impl_(std::make_unique<Impl>(simulation)) {}

InvariantChecker::~InvariantChecker() = default;

void InvariantChecker::beforeChange(const virtual_mac::Change& change) {
  Disturbances& disturbances = impl_->shared->disturbances;
  const double now = impl_->machine().now;
  ++disturbances.actionCount;
  disturbances.lastActionAt = now;
  if (disturbs(change)) {
    disturbances.disturbedAt = now;
    ++disturbances.disturbanceCount;
  }
  if (jumps(change)) ++disturbances.jumps;
  if (change.kind == ChangeKind::clockStep) {
    disturbances.clockSteppedAt = now;
    if (change.number < 0) disturbances.clockSteppedBackAt = now;
  }
  if (change.kind == ChangeKind::plug || change.kind == ChangeKind::unplug)
    disturbances.adapterChangedAt = now;
  if (change.kind == ChangeKind::signal) beforeSignal(static_cast<int>(change.number));
  if (change.kind == ChangeKind::signalAtExchange) {
    disturbances.signalsToCome |= 1U << static_cast<unsigned>(change.number);
  }
  const bool asks = change.kind == ChangeKind::request || change.kind == ChangeKind::requestUnawaited;
  if (asks && holdsUnstorable(virtual_mac::textOf(change.text))) {
    disturbances.unstorableFiles |= bitOf(UnstorableIn::request);
  }
}

void InvariantChecker::beforeFileChange(std::string_view path, std::string_view text) {
  Disturbances& disturbances = impl_->shared->disturbances;
  ++disturbances.actionCount;
  disturbances.lastActionAt = disturbances.filesTouchedAt = impl_->machine().now;
  const std::string_view logs = LogFile::defaultDirectory;
  if (path.starts_with(logs) || logs.starts_with(path)) disturbances.logsTouched = true;
  const auto place = placeOf(path);
  if (!place) return;
  // A request may still be pending when the next one is written.
  if (place != UnstorableIn::request) disturbances.unstorableFiles &= ~bitOf(*place);
  if (holdsUnstorable(text)) disturbances.unstorableFiles |= bitOf(*place);
}

void InvariantChecker::beforeSignal(int number) {
  impl_->shared->disturbances.signalsSent |= 1U << static_cast<unsigned>(number);
}

void InvariantChecker::beforeDiskFull(bool full) {
  impl_->shared->disturbances.diskIsFull = full;
  impl_->shared->disturbances.disturbedAt = impl_->machine().now;
}

void InvariantChecker::beforeStart() {
  impl_->shared->processSummary = {};
  impl_->shared->processSummary.journalSeen = impl_->journal().written;
  impl_->shared->processSummary.cutWasLeft = keysOf({.cut = AdapterCutKey::chie}, impl_->machine()).cut;
  impl_->shared->outputSeen = 0;
  impl_->shared->disturbances.launchedAt = impl_->machine().now;
  impl_->shared->disturbances.signalsSent = 0;
}

void InvariantChecker::processEnded(const sim::ForkedDaemon& process) {
  if (impl_->shared->violated) return;
  ProcessEnd end{.status = process.status(), .signal = process.endSignal(), .errors = process.errors()};
  end.rest.at = impl_->machine().now;
  end.rest.journalFrom = impl_->shared->processSummary.journalSeen;
  end.rest.journalTo = impl_->journal().written;
  std::string output = process.output();
  std::string rest = output.substr(std::min(impl_->shared->outputSeen, output.size()));
  end.rest.lines = sim::takeWholeLines(rest);
  end.lines = sim::takeWholeLines(output);
  const Violated violated = [this](const Invariant& invariant, const std::string& seen) {
    impl_->note(invariant, seen);
  };
  checkChargeAtEnd(end, *impl_, violated);
  checkRecordsAtEnd(end, *impl_, violated);
  checkSleepAtEnd(end, *impl_, violated);
  checkNativeAtEnd(end, *impl_, violated);
  checkProcessAtEnd(end, *impl_, violated);
}

std::optional<Violation> InvariantChecker::violation() const {
  const Shared& shared = *impl_->shared;
  if (!shared.violated) return std::nullopt;
  return Violation{.invariant = shared.invariant, .at = shared.at, .seen = shared.seen.data()};
}

void InvariantChecker::prepare() {
  gChecker = impl_.get();
  impl_->mainThread = std::this_thread::get_id();
  impl_->fileWatcher.open();
  addChargeRules(impl_->rules);
  addKeyRules(impl_->rules);
  addVerdictRules(impl_->rules);
  addRecordRules(impl_->rules);
  addSleepRules(impl_->rules);
  addNativeRules(impl_->rules);
  addProcessRules(impl_->rules);
  addGuardRules(impl_->rules);
}

void InvariantChecker::checkIteration() { impl_->iterationEnded(); }

void InvariantChecker::onPause() {
  // In the middle of a tick the process only waits for time to advance.
  if (!impl_->inTick) impl_->iterationEnded();
}

void InvariantChecker::onResume() {
  const virtual_mac::UnwatchedCalls notTheDaemons;
  // Changes that others made to the files meanwhile are not attributed to the daemon.
  static_cast<void>(impl_->fileWatcher.takeChanges());
  for (const auto& rule : impl_->rules) rule->onResume(*impl_);
}

void InvariantChecker::beforeFailedCall(const virtual_mac::WatchedCall& call) {
  Disturbances& disturbances = impl_->shared->disturbances;
  ++disturbances.actionCount;
  ++disturbances.disturbanceCount;
  disturbances.lastActionAt = disturbances.disturbedAt = impl_->machine().now;
  if (call.subject.find(LogFile::defaultDirectory) != std::string_view::npos) disturbances.logsTouched = true;
  // What could not be written is lost, as on a full disk.
  if (call.subject.find('/') != std::string_view::npos) disturbances.diskIsFull = true;
}

}  // namespace brisko::lab

// In place of the weak functions in state/tick_observer.cpp.
namespace brisko {

void tickBegins() {
  if (lab::gChecker != nullptr) lab::gChecker->tickBegins();
}

void tickPublished(const Sample& sample, const Settings& cfg) {
  if (lab::gChecker != nullptr) lab::gChecker->published(sample, cfg);
}

void tickEnded() {
  if (lab::gChecker != nullptr) lab::gChecker->tickEnded();
}

}  // namespace brisko
