#include "sim/process/simulation.h"

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "sim/machine/control_requests.h"
#include "sim/machine/journal_text.h"
#include "sim/process/log_lines.h"
#include "sim/seam/file_events.h"
#include "sim/seam/simulated/driver.h"

namespace brisko::sim {
namespace {

namespace fs = std::filesystem;

constexpr double shortestThrottle = 10;  // seconds between two starts
constexpr double longestThrottle = 3600;
constexpr double exitTimeout = 20;  // for the daemon to end before a shutdown
constexpr double mostSteps = 3600;  // without a pause
constexpr double journalInterval =
    3600;  // between two reads of the journal, which keeps only the latest entries

SimulationObserver& nobody() {
  static SimulationObserver observer;
  return observer;
}

}  // namespace

Simulation::Simulation(const SimulationSetup& setup)
    : store_(virtual_mac::MachineStore::inMemory(setup.machine)),
      observer_(&nobody()),
      arguments_(setup.arguments),
      environment_(setup.environment),
      keptAlive_(setup.keptAlive),
      starts_(setup.started),
      backsOff_(setup.backsOff),
      throttle_(shortestThrottle) {
  if (store_ == nullptr || !virtual_mac::makeVolume(root())) {
    throw std::runtime_error("no memory for a virtual Mac");
  }
  store_->setVolumeRoot(root());
  virtual_mac::attachMachine(store_.get());
}

Simulation::~Simulation() {
  process_.reset();
  virtual_mac::attachMachine(nullptr);
}

void Simulation::begin() {
  if (starts_) startDaemon();
}

// --- Time

void Simulation::pass(double seconds) {
  const double end = machine().now + seconds;
  do {
    slice(std::min({journalInterval, observer_->longestSlice(), end - machine().now}), end);
  } while (machine().now < end && !observer_->isOver());
}

void Simulation::advance(double seconds) {
  const auto update = store_->update();
  virtual_mac::advance(update.machine(), update.machine().now + seconds);
}

bool Simulation::startIsDue() const {
  return !observer_->isOver() && keptAlive_ && starts_ && machine().system.poweredOn &&
         !machine().system.asleep && machine().now >= startedAt_ + throttle();
}

double Simulation::throttle() const { return actions_ == actionsAtEnd_ ? throttle_ : shortestThrottle; }

void Simulation::slice(double seconds, double end) {
  if (!daemonRuns() && startIsDue()) startDaemon();
  observer_->sliceBegins();
  if (daemonRuns()) {
    const int steps = seconds > 0 ? static_cast<int>(std::min(journalInterval / seconds, mostSteps)) : 1;
    process_->runSteps(seconds, steps, end);
  } else {
    const double untilStart = startedAt_ + throttle() - machine().now;
    advance(untilStart > 0 ? std::min(seconds, untilStart) : seconds);
  }
  noteEnd();
  collectJournal();
  observer_->sliceEnded();
}

void Simulation::noteEnd() {
  collectOutput();
  if (endNoted_ || daemonRuns()) return;
  endNoted_ = true;
  exitStatus_ = process_->status();
  endSignal_ = process_->endSignal();
  if (backsOff_) {
    const bool atOnce = machine().now < startedAt_ + shortestThrottle;
    throttle_ = atOnce ? std::min(2 * throttle(), longestThrottle) : shortestThrottle;
    actionsAtEnd_ = actions_;
  }
  observer_->processEnded(*process_);
}

void Simulation::collectOutput() {
  if (process_ == nullptr) return;
  const std::string more = process_->output(outputSeen_);
  outputSeen_ += more.size();
  partialLine_ += more;
  for (std::string& line : takeWholeLines(partialLine_)) {
    stamped_.push_back(std::move(line));
    observer_->lineLogged(stamped_.back());
  }
}

void Simulation::collectJournal() {
  const auto entries = newEntries();
  journal_.insert(journal_.end(), entries.begin(), entries.end());
  journalSeen_ = store_->view().journal().written;
}

std::vector<virtual_mac::JournalEntry> Simulation::newEntries() const {
  const auto look = store_->view();
  const virtual_mac::Journal& journal = look.journal();
  const std::uint64_t oldest =
      journal.written < journal.entries.size() ? 0 : journal.written - journal.entries.size();
  std::vector<virtual_mac::JournalEntry> entries;
  for (std::uint64_t index = std::max(journalSeen_, oldest); index < journal.written; ++index) {
    entries.push_back(journal.entries[index % journal.entries.size()]);
  }
  return entries;
}

// --- Actions

void Simulation::change(const virtual_mac::Change& change) {
  ++actions_;
  observer_->beforeChange(change);
  virtual_mac::apply(store_->update().machine(), change);
  observer_->afterChange();
}

ForkOptions Simulation::forkOptions(std::vector<std::string> arguments) {
  if (!fileEvents_) fileEvents_ = Descriptor(virtual_mac::openFileEventQueueForProcesses());
  return {.store = *store_, .arguments = std::move(arguments), .fileEvents = fileEvents_.number()};
}

void Simulation::startDaemon() {
  if (daemonRuns()) return;
  collectOutput();
  outputSeen_ = 0;
  starts_ = true;
  startedAt_ = machine().now;
  endNoted_ = false;
  observer_->beforeStart();
  ForkOptions options = forkOptions(arguments_);
  options.prepare = [this] {
    observer_->prepare();
    virtual_mac::setAfterEvent([this] { observer_->iterationEnded(); });
    for (const auto& [name, value] : environment_) virtual_mac::setEnvironment(name, value);
  };
  options.onPause = [this] { observer_->onPause(); };
  options.onResume = [this] { observer_->onResume(); };
  options.stepEnded = [this] { return observer_->stepEnded(); };
  process_ = std::make_unique<ForkedDaemon>(options);
  setDiskFull(diskIsFull_);
}

void Simulation::endProcess() {
  if (!daemonRuns()) return;
  observer_->beforeSignal(SIGTERM);
  process_->signal(SIGTERM);
  for (double waited = 0; daemonRuns() && waited < exitTimeout; ++waited) slice(waited == 0 ? 0 : 1, 0);
  observer_->beforeSignal(SIGKILL);
  process_->kill();
  noteEnd();
}

void Simulation::unloadService() {
  keptAlive_ = false;
  endProcess();
}

void Simulation::loadService() {
  keptAlive_ = true;
  startDaemon();
}

void Simulation::shutDown() {
  endProcess();
  virtual_mac::shutDown(store_->update().machine());
}

void Simulation::losePower() {
  observer_->beforeSignal(SIGKILL);
  if (process_ != nullptr) process_->kill();
  noteEnd();
  virtual_mac::shutDown(store_->update().machine());
}

void Simulation::boot() {
  virtual_mac::boot(store_->update().machine());
  if (keptAlive_) startDaemon();
}

void Simulation::setDiskFull(bool full) {
  diskIsFull_ = full;
  observer_->beforeDiskFull(full);
  // Files can still be truncated, but they cannot grow, as on a full disk.
  if (process_ != nullptr) process_->limitFileSize(full ? std::optional<std::uint64_t>(0) : std::nullopt);
}

std::uint64_t Simulation::ask(virtual_mac::RequestKind kind, std::uint32_t client,
                              std::string_view settings) {
  virtual_mac::Change change{
      .kind = virtual_mac::ChangeKind::request, .number = static_cast<double>(kind), .status = client};
  latestRequest_ = machine().control.sent + 1;
  if (settings.size() < change.text.size()) {
    change.text = virtual_mac::shortText(settings);
  } else {
    const std::string file = "/sent/" + std::to_string(latestRequest_);
    write(file, settings);
    change.text = virtual_mac::shortText("@" + file);
  }
  this->change(change);
  return latestRequest_;
}

void Simulation::noteFileChange(std::string_view path, std::string_view text) {
  ++actions_;
  observer_->beforeFileChange(path, text);
}

bool Simulation::write(std::string_view unmapped, std::string_view text) {
  noteFileChange(unmapped, text);
  const fs::path file = path(unmapped);
  std::error_code ignored;
  fs::create_directories(file.parent_path(), ignored);
  std::ofstream stream(file, std::ios::binary | std::ios::trunc);
  stream << text << std::flush;
  return stream.good();
}

void Simulation::replace(std::string_view unmapped, std::string_view text) {
  const std::string beside = std::string(unmapped) + ".new";
  write(beside, text);
  noteFileChange(unmapped, text);
  std::error_code ignored;
  fs::rename(path(beside), path(unmapped), ignored);
}

void Simulation::remove(std::string_view unmapped) {
  noteFileChange(unmapped, "");
  std::error_code ignored;
  fs::remove_all(path(unmapped), ignored);
}

// --- Observations

std::vector<std::uint8_t> Simulation::key(std::string_view name) const { return keyBytes(machine(), name); }

std::vector<double> Simulation::pendingWakes() const {
  std::vector<double> dates;
  for (const virtual_mac::ScheduledEvent& event : machine().sleep.events) {
    if (event.pending) dates.push_back(event.date);
  }
  return dates;
}

std::string Simulation::reply(std::uint64_t request) const {
  const virtual_mac::ClientRequest* asked = virtual_mac::findRequest(machine(), request);
  if (asked == nullptr) return "";
  if (asked->stage == virtual_mac::RequestStage::refused) return "refused";
  if (asked->answers == 0) return "";
  if (!asked->hasError) return asked->done ? "done" : "not done";
  return asked->error.data();
}

std::string Simulation::errors() const { return process_ == nullptr ? "" : process_->errors(); }

std::vector<std::string> Simulation::logSinceCheckpoint() const {
  std::vector<std::string> lines;
  for (std::size_t index = logCheckpoint_; index < stamped_.size(); ++index) {
    lines.push_back(withoutStamp(stamped_[index]));
  }
  return lines;
}

std::vector<virtual_mac::JournalEntry> Simulation::entriesSinceCheckpoint() const {
  std::vector<virtual_mac::JournalEntry> entries = newEntries();
  entries.insert(entries.begin(), journal_.begin() + static_cast<std::ptrdiff_t>(journalCheckpoint_),
                 journal_.end());
  return entries;
}

std::vector<std::string> Simulation::journalSinceCheckpoint() const {
  std::vector<std::string> texts;
  for (const auto& entry : entriesSinceCheckpoint()) texts.push_back(journalText(entry));
  return texts;
}

std::optional<std::string> Simulation::read(std::string_view unmapped) const {
  std::ifstream stream(path(unmapped), std::ios::binary);
  if (!stream) return std::nullopt;
  std::ostringstream text;
  text << stream.rdbuf();
  return text.str();
}

void Simulation::setCheckpoint() {
  collectJournal();
  logCheckpoint_ = stamped_.size();
  journalCheckpoint_ = journal_.size();
}

void Simulation::checkpointAtBegin() {
  logCheckpoint_ = 0;
  journalCheckpoint_ = 0;
}

}  // namespace brisko::sim
