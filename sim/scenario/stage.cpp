#include "sim/scenario/stage.h"

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
#include "sim/machine/journal_words.h"
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

void Stage::Extremes::note(double level) {
  lowest = std::min(lowest, level);
  highest = std::max(highest, level);
}

void Stage::Levels::note(double level) {
  stretch.note(level);
  ever.note(level);
}

Stage::Stage(const Outset& outset)
    : volume_(lives::makeScratchFolder("brisko-lab")),
      store_(virtual_mac::MachineStore::inMemory(outset.machine)),
      levels_(new (sharedMemory(sizeof(Levels))) Levels),
      fileEvents_(virtual_mac::openFileEventQueueForLives()),
      arguments_(outset.arguments),
      environment_(outset.environment),
      keptAlive_(outset.keptAlive),
      starts_(outset.started),
      losesPatience_(outset.losesPatience),
      patience_(shortestThrottle) {
  if (store_ == nullptr || !virtual_mac::makeVolume(volume_)) {
    throw std::runtime_error("no memory for a virtual Mac");
  }
  store_->setVolumeRoot(volume_);
  virtual_mac::attachMachine(store_.get());
  watch_ = std::make_unique<Watch>(*store_, volume_);
  if (outset.settings) write("/Library/Application Support/Brisko/config.json", *outset.settings);
  const double level = virtual_mac::level(machine());
  *levels_ = {{level, level}, {level, level}};
}

Stage::~Stage() {
  life_.reset();
  virtual_mac::attachMachine(nullptr);
  if (fileEvents_ >= 0) ::close(fileEvents_);
  ::munmap(levels_, sizeof(Levels));
  std::error_code ignored;
  fs::remove_all(volume_, ignored);
}

void Stage::record(Recording& recording) {
  recording_ = &recording;
  recording.note(machine(), daemonRuns());
}

void Stage::begin() {
  if (starts_) startDaemon();
}

const virtual_mac::Machine& Stage::machine() const { return store_->look().machine(); }

// ---------------------------------------------------------------------------------------------------------
// Time

double Stage::longestSlice() const {
  const bool asleep = machine().system.asleep;
  if (recording_ == nullptr) return daemonRuns() && !asleep ? longSlice : shortSlice;
  const bool fullyAwake =
      !asleep && !machine().sleep.dark && machine().sleep.stage == virtual_mac::SleepStage::none;
  return fullyAwake ? shortSlice : sleepSlice;
}

void Stage::pass(double seconds) {
  const double end = machine().now + seconds;
  do {
    slice(std::min(longestSlice(), end - machine().now));
  } while (machine().now < end && !violation());
}

bool Stage::startIsDue() const {
  return !violation() && keptAlive_ && starts_ && machine().system.poweredOn && !machine().system.asleep &&
         machine().now >= startedAt_ + throttle();
}

double Stage::throttle() const { return watch_->doings() == doingsAtEnd_ ? patience_ : shortestThrottle; }

void Stage::slice(double seconds) {
  if (!daemonRuns() && startIsDue()) startDaemon();
  if (recording_ != nullptr) recording_->noteSettings(read(defaultConfigPath));
  if (daemonRuns()) {
    life_->run(seconds);
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

void Stage::noteEnd() {
  collectOutput();
  if (endNoted_ || daemonRuns()) return;
  endNoted_ = true;
  exitStatus_ = life_->status();
  endSignal_ = life_->endSignal();
  if (losesPatience_) {
    const bool atOnce = machine().now < startedAt_ + shortestThrottle;
    patience_ = atOnce ? std::min(2 * throttle(), longestThrottle) : shortestThrottle;
    doingsAtEnd_ = watch_->doings();
  }
  watch_->lifeEnded(exitStatus_, endSignal_, life_->output(), life_->errors());
}

void Stage::collectOutput() {
  if (life_ == nullptr) return;
  const std::string more = life_->output(outputSeen_);
  outputSeen_ += more.size();
  brokenLine_ += more;
  std::size_t from = 0;
  for (std::size_t end = 0; (end = brokenLine_.find('\n', from)) != std::string::npos; from = end + 1) {
    stamped_.push_back(brokenLine_.substr(from, end - from));
    if (recording_ != nullptr) recording_->noteLine(machine(), stamped_.back());
  }
  brokenLine_.erase(0, from);
}

void Stage::collectJournal() {
  const auto look = store_->look();
  const virtual_mac::Journal& journal = look.journal();
  const std::uint64_t oldest =
      journal.written < journal.entries.size() ? 0 : journal.written - journal.entries.size();
  for (journalSeen_ = std::max(journalSeen_, oldest); journalSeen_ < journal.written; ++journalSeen_) {
    journal_.push_back(lives::journalText(journal.entries[journalSeen_ % journal.entries.size()]));
  }
}

// ---------------------------------------------------------------------------------------------------------
// What happens

void Stage::change(const virtual_mac::Change& change) {
  watch_->happens(change);
  virtual_mac::apply(store_->update().machine(), change);
  levels_->note(virtual_mac::level(machine()));
}

void Stage::startDaemon() {
  if (daemonRuns()) return;
  collectOutput();
  outputSeen_ = 0;
  starts_ = true;
  startedAt_ = machine().now;
  endNoted_ = false;
  watch_->lifeBegins();
  lives::Birth birth{.store = *store_, .arguments = arguments_, .fileEvents = fileEvents_};
  birth.prepare = [this] {
    // A full disk is an error to the daemon, and no signal.
    std::signal(SIGXFSZ, SIG_IGN);
    watch_->beginToLook();
    virtual_mac::setAfterEvent([this] {
      levels_->note(virtual_mac::level(machine()));
      watch_->lookAfterTurn();
      if (recording_ != nullptr) recording_->noteInLife(machine());
    });
    for (const auto& [name, value] : environment_) virtual_mac::setEnvironment(name, value);
  };
  birth.goesOn = [this] { watch_->goOn(); };
  birth.standing = [this] {
    if (recording_ != nullptr) recording_->noteInLife(machine());
    watch_->standStill();
  };
  life_ = std::make_unique<lives::ForkedLife>(birth);
  setDiskFull(diskIsFull_);
}

void Stage::endLife() {
  if (!daemonRuns()) return;
  watch_->sends(SIGTERM);
  life_->signal(SIGTERM);
  for (double waited = 0; daemonRuns() && waited < exitTimeout; ++waited) slice(waited == 0 ? 0 : 1);
  watch_->sends(SIGKILL);
  life_->kill();
  noteEnd();
}

void Stage::unloadService() {
  keptAlive_ = false;
  endLife();
}

void Stage::loadService() {
  keptAlive_ = true;
  startDaemon();
}

void Stage::shutDown() {
  endLife();
  virtual_mac::shutDown(store_->update().machine());
}

void Stage::losePower() {
  watch_->sends(SIGKILL);
  if (life_ != nullptr) life_->kill();
  noteEnd();
  virtual_mac::shutDown(store_->update().machine());
}

void Stage::boot() {
  virtual_mac::boot(store_->update().machine());
  if (keptAlive_) startDaemon();
}

void Stage::setDiskFull(bool full) {
  diskIsFull_ = full;
  watch_->fillsDisk(full);
  // What is there can still be cut to nothing, and nothing can be added: as on a disk without room.
  if (life_ != nullptr) life_->limitFileSize(full ? std::optional<std::uint64_t>(0) : std::nullopt);
}

void Stage::ask(virtual_mac::RequestKind kind, std::uint32_t client, const std::string& settings) {
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

void Stage::write(std::string_view unmapped, std::string_view text) {
  watch_->touchesFiles(unmapped, text);
  const fs::path file = path(unmapped);
  std::error_code ignored;
  fs::create_directories(file.parent_path(), ignored);
  std::ofstream stream(file, std::ios::binary | std::ios::trunc);
  stream << text;
}

void Stage::replace(std::string_view unmapped, std::string_view text) {
  const std::string beside = std::string(unmapped) + ".new";
  write(beside, text);
  watch_->touchesFiles(unmapped, text);
  std::error_code ignored;
  fs::rename(path(beside), path(unmapped), ignored);
}

void Stage::remove(std::string_view unmapped) {
  watch_->touchesFiles(unmapped, "");
  std::error_code ignored;
  fs::remove_all(path(unmapped), ignored);
}

// ---------------------------------------------------------------------------------------------------------
// What can be seen

std::string Stage::errors() const { return life_ == nullptr ? "" : life_->errors(); }

std::vector<std::string> Stage::logOfStretch() const {
  constexpr std::size_t stampWidth = 22;  // "2026-03-01T08:15:30Z" and two blanks
  std::vector<std::string> lines;
  for (std::size_t index = stretchOfLog_; index < stamped_.size(); ++index) {
    const std::string& line = stamped_[index];
    lines.push_back(line.size() < stampWidth ? line : line.substr(stampWidth));
  }
  return lines;
}

std::vector<std::string> Stage::journalOfStretch() const {
  return {journal_.begin() + static_cast<std::ptrdiff_t>(stretchOfJournal_), journal_.end()};
}

std::string Stage::path(std::string_view unmapped) const { return volume_ + std::string(unmapped); }

std::optional<std::string> Stage::read(std::string_view unmapped) const {
  std::ifstream stream(path(unmapped), std::ios::binary);
  if (!stream) return std::nullopt;
  std::ostringstream text;
  text << stream.rdbuf();
  return text.str();
}

std::string Stage::reply() const {
  const virtual_mac::ClientRequest* asked = virtual_mac::findRequest(machine(), requests_);
  if (asked == nullptr) return "";
  if (asked->stage == virtual_mac::RequestStage::refused) return "refused";
  if (asked->answers == 0) return "";
  if (!asked->hasError) return asked->done ? "done" : "not done";
  return asked->error.data();
}

void Stage::beginStretch() {
  stretchOfLog_ = stamped_.size();
  stretchOfJournal_ = journal_.size();
  const double level = virtual_mac::level(machine());
  levels_->stretch = {level, level};
}

void Stage::lookAtAll() {
  stretchOfLog_ = 0;
  stretchOfJournal_ = 0;
  levels_->stretch = levels_->ever;
}

}  // namespace brisko::lab
