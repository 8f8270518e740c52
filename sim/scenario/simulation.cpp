#include "sim/scenario/simulation.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <new>
#include <sstream>
#include <stdexcept>
#include <system_error>

#include <sys/mman.h>
#include <unistd.h>

#include "base/options.h"
#include "sim/machine/control_requests.h"
#include "sim/machine/journal_text.h"
#include "sim/process/scratch.h"
#include "sim/seam/file_events.h"
#include "sim/seam/simulated/driver.h"

namespace brisko::lab {
namespace {

namespace fs = std::filesystem;

constexpr double shortestThrottle = 10;  // seconds between two starts
constexpr double longestThrottle = 3600;
constexpr double exitTimeout = 20;  // what the daemon gets to end before a shutdown
// Between two looks at the journal, which keeps the latest entries only, and at the charge where no life
// notes it by itself.
constexpr double longSlice = 3600;
constexpr double shortSlice = 60;
constexpr double sleepSlice = 5;  // recorded: no life hears when sleep begins

// Memory that children share.
void* sharedMemory(std::size_t size) {
  void* memory = ::mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  if (memory == MAP_FAILED) throw std::system_error(errno, std::generic_category(), "mmap");
  return memory;
}

}  // namespace

void Simulation::Extremes::note(double level) {
  lowest = std::min(lowest, level);
  highest = std::max(highest, level);
}

void Simulation::Levels::note(double level) {
  sinceCheckpoint.note(level);
  overall.note(level);
}

Simulation::Simulation(const SimulationSetup& setup)
    : volume_(sim::makeScratchFolder("brisko-lab")),
      store_(virtual_mac::MachineStore::inMemory(setup.machine)),
      levels_(new (sharedMemory(sizeof(Levels))) Levels),
      fileEvents_(virtual_mac::openFileEventQueueForProcesses()),
      arguments_(setup.arguments),
      environment_(setup.environment),
      keptAlive_(setup.keptAlive),
      starts_(setup.started),
      backsOff_(setup.backsOff),
      throttle_(shortestThrottle) {
  if (store_ == nullptr || !virtual_mac::makeVolume(volume_)) {
    throw std::runtime_error("no memory for a virtual Mac");
  }
  store_->setVolumeRoot(volume_);
  virtual_mac::attachMachine(store_.get());
  checker_ = std::make_unique<InvariantChecker>(*store_, volume_);
  if (setup.settings) write("/Library/Application Support/Brisko/config.json", *setup.settings);
  const double level = virtual_mac::level(machine());
  *levels_ = {{level, level}, {level, level}};
}

Simulation::~Simulation() {
  process_.reset();
  virtual_mac::attachMachine(nullptr);
  if (fileEvents_ >= 0) ::close(fileEvents_);
  ::munmap(levels_, sizeof(Levels));
  std::error_code ignored;
  fs::remove_all(volume_, ignored);
}

void Simulation::record(Recording& recording) {
  recording_ = &recording;
  recording.note(machine(), daemonRuns());
}

void Simulation::begin() {
  if (starts_) startDaemon();
}

const virtual_mac::Machine& Simulation::machine() const { return store_->view().machine(); }

// ---------------------------------------------------------------------------------------------------------
// Time

double Simulation::longestSlice() const {
  const bool asleep = machine().system.asleep;
  if (recording_ == nullptr) return daemonRuns() && !asleep ? longSlice : shortSlice;
  const bool fullyAwake =
      !asleep && !machine().sleep.dark && machine().sleep.stage == virtual_mac::SleepStage::none;
  return fullyAwake ? shortSlice : sleepSlice;
}

void Simulation::pass(double seconds) {
  const double end = machine().now + seconds;
  do {
    slice(std::min(longestSlice(), end - machine().now));
  } while (machine().now < end && !violation());
}

bool Simulation::startIsDue() const {
  return !violation() && keptAlive_ && starts_ && machine().system.poweredOn && !machine().system.asleep &&
         machine().now >= startedAt_ + throttle();
}

double Simulation::throttle() const {
  return checker_->actionCount() == actionsAtEnd_ ? throttle_ : shortestThrottle;
}

void Simulation::slice(double seconds) {
  if (!daemonRuns() && startIsDue()) startDaemon();
  if (recording_ != nullptr) recording_->noteSettings(read(defaultConfigPath));
  if (daemonRuns()) {
    process_->run(seconds);
  } else {
    const double untilStart = startedAt_ + throttle() - machine().now;
    const auto update = store_->update();
    virtual_mac::advance(update.machine(),
                         update.machine().now + (untilStart > 0 ? std::min(seconds, untilStart) : seconds));
  }
  noteEnd();
  collectJournal();
  levels_->note(virtual_mac::level(machine()));
  if (recording_ != nullptr) recording_->note(machine(), daemonRuns());
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
    actionsAtEnd_ = checker_->actionCount();
  }
  checker_->processEnded(exitStatus_, endSignal_, process_->output(), process_->errors());
}

void Simulation::collectOutput() {
  if (process_ == nullptr) return;
  const std::string more = process_->output(outputSeen_);
  outputSeen_ += more.size();
  partialLine_ += more;
  std::size_t from = 0;
  for (std::size_t end = 0; (end = partialLine_.find('\n', from)) != std::string::npos; from = end + 1) {
    stamped_.push_back(partialLine_.substr(from, end - from));
    if (recording_ != nullptr) recording_->noteLine(machine(), stamped_.back());
  }
  partialLine_.erase(0, from);
}

void Simulation::collectJournal() {
  const auto look = store_->view();
  const virtual_mac::Journal& journal = look.journal();
  const std::uint64_t oldest =
      journal.written < journal.entries.size() ? 0 : journal.written - journal.entries.size();
  for (journalSeen_ = std::max(journalSeen_, oldest); journalSeen_ < journal.written; ++journalSeen_) {
    journal_.push_back(sim::journalText(journal.entries[journalSeen_ % journal.entries.size()]));
  }
}

// ---------------------------------------------------------------------------------------------------------
// What happens

void Simulation::change(const virtual_mac::Change& change) {
  checker_->happens(change);
  virtual_mac::apply(store_->update().machine(), change);
  levels_->note(virtual_mac::level(machine()));
}

void Simulation::startDaemon() {
  if (daemonRuns()) return;
  collectOutput();
  outputSeen_ = 0;
  starts_ = true;
  startedAt_ = machine().now;
  endNoted_ = false;
  checker_->processStarts();
  sim::ForkOptions options{.store = *store_, .arguments = arguments_, .fileEvents = fileEvents_};
  options.prepare = [this] {
    // A full disk is an error to the daemon, and no signal.
    std::signal(SIGXFSZ, SIG_IGN);
    checker_->start();
    virtual_mac::setAfterEvent([this] {
      levels_->note(virtual_mac::level(machine()));
      checker_->checkIteration();
      if (recording_ != nullptr) recording_->noteInDaemon(machine());
    });
    for (const auto& [name, value] : environment_) virtual_mac::setEnvironment(name, value);
  };
  options.onResume = [this] { checker_->onResume(); };
  options.onPause = [this] {
    if (recording_ != nullptr) recording_->noteInDaemon(machine());
    checker_->onPause();
  };
  process_ = std::make_unique<sim::ForkedDaemon>(options);
  setDiskFull(diskIsFull_);
}

void Simulation::endProcess() {
  if (!daemonRuns()) return;
  checker_->sends(SIGTERM);
  process_->signal(SIGTERM);
  for (double waited = 0; daemonRuns() && waited < exitTimeout; ++waited) slice(waited == 0 ? 0 : 1);
  checker_->sends(SIGKILL);
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
  checker_->sends(SIGKILL);
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
  checker_->beforeDiskFull(full);
  // What is there can still be cut to nothing, and nothing can be added: as on a disk without room.
  if (process_ != nullptr) process_->limitFileSize(full ? std::optional<std::uint64_t>(0) : std::nullopt);
}

void Simulation::ask(virtual_mac::RequestKind kind, std::uint32_t client, const std::string& settings) {
  virtual_mac::Change change{
      .kind = virtual_mac::ChangeKind::request, .number = static_cast<double>(kind), .status = client};
  requests_ = machine().control.sent + 1;
  if (settings.size() < change.text.size()) {
    change.text = virtual_mac::shortText(settings);
  } else {
    const std::string file = "/sent/" + std::to_string(requests_);
    write(file, settings);
    change.text = virtual_mac::shortText("@" + file);
  }
  this->change(change);
}

void Simulation::write(std::string_view unmapped, std::string_view text) {
  checker_->beforeFileChange(unmapped, text);
  const fs::path file = path(unmapped);
  std::error_code ignored;
  fs::create_directories(file.parent_path(), ignored);
  std::ofstream stream(file, std::ios::binary | std::ios::trunc);
  stream << text;
}

void Simulation::replace(std::string_view unmapped, std::string_view text) {
  const std::string beside = std::string(unmapped) + ".new";
  write(beside, text);
  checker_->beforeFileChange(unmapped, text);
  std::error_code ignored;
  fs::rename(path(beside), path(unmapped), ignored);
}

void Simulation::remove(std::string_view unmapped) {
  checker_->beforeFileChange(unmapped, "");
  std::error_code ignored;
  fs::remove_all(path(unmapped), ignored);
}

// ---------------------------------------------------------------------------------------------------------
// What can be seen

std::string Simulation::errors() const { return process_ == nullptr ? "" : process_->errors(); }

std::vector<std::string> Simulation::logSinceCheckpoint() const {
  constexpr std::size_t stampWidth = 22;  // "2026-03-01T08:15:30Z" and two blanks
  std::vector<std::string> lines;
  for (std::size_t index = logCheckpoint_; index < stamped_.size(); ++index) {
    const std::string& line = stamped_[index];
    lines.push_back(line.size() < stampWidth ? line : line.substr(stampWidth));
  }
  return lines;
}

std::vector<std::string> Simulation::journalSinceCheckpoint() const {
  return {journal_.begin() + static_cast<std::ptrdiff_t>(journalCheckpoint_), journal_.end()};
}

std::string Simulation::path(std::string_view unmapped) const { return volume_ + std::string(unmapped); }

std::optional<std::string> Simulation::read(std::string_view unmapped) const {
  std::ifstream stream(path(unmapped), std::ios::binary);
  if (!stream) return std::nullopt;
  std::ostringstream text;
  text << stream.rdbuf();
  return text.str();
}

std::string Simulation::reply() const {
  const virtual_mac::ClientRequest* asked = virtual_mac::findRequest(machine(), requests_);
  if (asked == nullptr) return "";
  if (asked->stage == virtual_mac::RequestStage::refused) return "refused";
  if (asked->answers == 0) return "";
  if (!asked->hasError) return asked->done ? "done" : "not done";
  return asked->error.data();
}

void Simulation::setCheckpoint() {
  logCheckpoint_ = stamped_.size();
  journalCheckpoint_ = journal_.size();
  const double level = virtual_mac::level(machine());
  levels_->sinceCheckpoint = {level, level};
}

void Simulation::checkpointAtBegin() {
  logCheckpoint_ = 0;
  journalCheckpoint_ = 0;
  levels_->sinceCheckpoint = levels_->overall;
}

}  // namespace brisko::lab
