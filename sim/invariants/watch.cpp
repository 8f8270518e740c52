#include "sim/invariants/watch.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cmath>
#include <csignal>
#include <cstring>
#include <fstream>
#include <new>
#include <nlohmann/json.hpp>
#include <sstream>
#include <system_error>
#include <thread>

#include <sys/mman.h>
#include <unistd.h>

#include "base/json_file.h"
#include "base/log.h"
#include "base/paths.h"
#include "sim/invariants/file_eyes.h"

// The linker brings every call of these two functions here (--wrap), and the functions themselves under the
// names that begin with __real. Nothing in the daemon knows of it.
// NOLINTBEGIN(bugprone-reserved-identifier)
extern "C" {
void __real__ZN6brisko8evaluateEv();
void __wrap__ZN6brisko8evaluateEv();
void __real__ZN6brisko12recordSampleERKNS_6SampleERKNS_8SettingsE(const brisko::Sample& sample,
                                                                  const brisko::Settings& settings);
void __wrap__ZN6brisko12recordSampleERKNS_6SampleERKNS_8SettingsE(const brisko::Sample& sample,
                                                                  const brisko::Settings& settings);
}
// NOLINTEND(bugprone-reserved-identifier)

namespace brisko::lab {
namespace {

using virtual_mac::ChangeKind;

// What lies in memory that the lab and the lives share.
struct Shared {
  Circumstances circumstances;
  Carried carried;
  std::size_t outputSeen = 0;  // bytes of the life's standard output that its rules have looked at
  bool violated = false;
  int invariant = 0;
  double at = 0;
  std::array<char, 1000> seen{};
};

Shared* makeShared() {
  void* memory = ::mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  if (memory == MAP_FAILED) throw std::system_error(errno, std::generic_category(), "mmap");
  return new (memory) Shared;
}

// Whether keys, readings or files obey less, or again, from this change on.
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

// Whether the text holds a number so large that something made of it may not fit 64 bits.
bool holdsUnkeepable(const Json& value) {
  constexpr double largest = 1.5e17;  // minutes that are still a number of seconds
  if (value.is_number()) return std::abs(value.get<double>()) >= largest;
  return value.is_structured() && std::any_of(value.begin(), value.end(), holdsUnkeepable);
}

bool holdsUnkeepable(std::string_view text) {
  const auto value = parseJson(text);
  return value && holdsUnkeepable(*value);
}

std::optional<UnkeepableIn> placeOf(std::string_view path) {
  if (path == statsPath) return UnkeepableIn::statistics;
  if (path == calibrationPath) return UnkeepableIn::calibration;
  if (path.starts_with("/sent/")) return UnkeepableIn::request;
  // The daemon may have been told of another file with its settings.
  return path.ends_with(".json") ? std::optional(UnkeepableIn::settings) : std::nullopt;
}

// Whether the charge is another from now on, or what counts as full, without a current.
bool leaps(const virtual_mac::Change& change) {
  return change.kind == ChangeKind::charge || change.kind == ChangeKind::health;
}

// The whole lines of the text; `from` is where the rest of it begins.
std::vector<std::string> linesOf(const std::string& text, std::size_t& from) {
  std::vector<std::string> lines;
  from = 0;
  for (std::size_t end = 0; (end = text.find('\n', from)) != std::string::npos; from = end + 1) {
    lines.push_back(text.substr(from, end - from));
  }
  return lines;
}

}  // namespace

struct Watch::Inside final : Scene {
  Inside(virtual_mac::MachineStore& machines, std::string root)
      : store(machines), volume(std::move(root)), shared(makeShared()) {}
  ~Inside() override { ::munmap(shared, sizeof(Shared)); }
  Inside(const Inside&) = delete;
  Inside& operator=(const Inside&) = delete;

  [[nodiscard]] const virtual_mac::Machine& machine() const override { return store.look().machine(); }
  [[nodiscard]] const virtual_mac::Journal& journal() const override { return store.look().journal(); }
  [[nodiscard]] const Circumstances& circumstances() const override { return shared->circumstances; }
  [[nodiscard]] Carried& carried() const override { return shared->carried; }
  [[nodiscard]] std::optional<std::string> read(const std::string& path) const override {
    std::ifstream stream(volume + path, std::ios::binary);
    if (!stream) return std::nullopt;
    std::ostringstream text;
    text << stream.rdbuf();
    return text.str();
  }

  void note(int invariant, const std::string& seen) const {
    if (shared->violated) return;
    shared->invariant = invariant;
    shared->at = machine().now;
    std::strncpy(shared->seen.data(), seen.c_str(), shared->seen.size() - 1);
    shared->violated = true;
  }

  // In a life a violation ends it: what it would do from here on is of no interest.
  void found(int invariant, const std::string& seen) const {
    note(invariant, seen);
    std::raise(SIGKILL);
  }

  void passBegins() {
    if (inPass) found(31, "a pass began inside of another one");
    if (std::this_thread::get_id() != mainThread) found(31, "a pass ran on another thread");
    inPass = true;
    pass = {.at = machine().now, .journalFrom = journal().written, .before = gState};
    for (const auto& rule : rules) rule->passBegins(*this, violated);
  }

  void published(const Sample& sample, const Settings& settings) {
    pass.complete = true;
    pass.sample = sample;
    pass.settings = settings;
  }

  void passEnded() {
    inPass = false;
    pass.journalTo = journal().written;
    hearLines();
    pass.linesTo = turn.lines.size();
    for (const auto& rule : rules) rule->passEnded(pass, *this, violated);
    turn.passes.push_back(pass);
  }

  // The lines that came to the standard output, whole ones only.
  [[nodiscard]] std::vector<std::string> newLines() {
    std::array<char, 4096> part{};
    for (;;) {
      const ssize_t count = ::pread(STDOUT_FILENO, part.data(), part.size(),
                                    static_cast<off_t>(shared->outputSeen + brokenLine.size()));
      if (count <= 0) break;
      brokenLine.append(part.data(), static_cast<std::size_t>(count));
    }
    std::size_t from = 0;
    std::vector<std::string> lines = linesOf(brokenLine, from);
    brokenLine.erase(0, from);
    shared->outputSeen += from;
    return lines;
  }

  void hearLines() {
    for (std::string& line : newLines()) turn.lines.push_back(std::move(line));
  }

  void turnEnded() {
    turn.at = machine().now;
    turn.journalFrom = shared->carried.journalSeen;
    turn.journalTo = journal().written;
    hearLines();
    turn.files = eyes.look();
    for (const auto& rule : rules) rule->turnEnded(turn, *this, violated);
    shared->carried.journalSeen = turn.journalTo;
    turn = {};
  }

  virtual_mac::MachineStore& store;
  std::string volume;
  Shared* shared;
  FileEyes eyes{volume};

  // In a life.
  Rules rules;
  Violated violated = [this](int invariant, const std::string& seen) { found(invariant, seen); };
  std::thread::id mainThread;
  bool inPass = false;
  Pass pass;
  Turn turn;
  std::string brokenLine;
};

namespace {

// The watch of this life; null in the lab.
Watch::Inside* gLooking = nullptr;

}  // namespace

Watch::Watch(virtual_mac::MachineStore& store, std::string volume)
    : inside_(std::make_unique<Inside>(store, std::move(volume))) {}

Watch::~Watch() = default;

void Watch::happens(const virtual_mac::Change& change) {
  Circumstances& so = inside_->shared->circumstances;
  const double now = inside_->machine().now;
  ++so.doings;
  so.lastDoingAt = now;
  if (disturbs(change)) {
    so.disturbedAt = now;
    ++so.disturbances;
  }
  if (leaps(change)) ++so.leaps;
  if (change.kind == ChangeKind::clockStep) {
    so.clockSteppedAt = now;
    if (change.number < 0) so.clockSteppedBackAt = now;
  }
  if (change.kind == ChangeKind::plug || change.kind == ChangeKind::unplug) so.adapterChangedAt = now;
  if (change.kind == ChangeKind::signal) sends(static_cast<int>(change.number));
  if (change.kind == ChangeKind::signalAtExchange) {
    so.signalsToCome |= 1U << static_cast<unsigned>(change.number);
  }
  const bool asks = change.kind == ChangeKind::request || change.kind == ChangeKind::requestUnawaited;
  if (asks && holdsUnkeepable(virtual_mac::textOf(change.text))) {
    so.unkeepableFiles |= bitOf(UnkeepableIn::request);
  }
}

void Watch::touchesFiles(std::string_view path, std::string_view text) {
  Circumstances& so = inside_->shared->circumstances;
  ++so.doings;
  so.lastDoingAt = so.filesTouchedAt = inside_->machine().now;
  const std::string_view logs = LogFile::defaultDirectory;
  if (path.starts_with(logs) || logs.starts_with(path)) so.logsTouched = true;
  const auto place = placeOf(path);
  if (!place) return;
  // A request may still be on its way when the next one is written.
  if (place != UnkeepableIn::request) so.unkeepableFiles &= ~bitOf(*place);
  if (holdsUnkeepable(text)) so.unkeepableFiles |= bitOf(*place);
}

void Watch::sends(int signal) {
  inside_->shared->circumstances.signalsSent |= 1U << static_cast<unsigned>(signal);
}

void Watch::fillsDisk(bool full) {
  inside_->shared->circumstances.diskIsFull = full;
  inside_->shared->circumstances.disturbedAt = inside_->machine().now;
}

void Watch::lifeBegins() {
  inside_->shared->carried = {};
  inside_->shared->carried.journalSeen = inside_->journal().written;
  inside_->shared->carried.cutWasLeft = keysOf({.cut = AdapterCutKey::chie}, inside_->machine()).cut;
  inside_->shared->outputSeen = 0;
  inside_->shared->circumstances.launchedAt = inside_->machine().now;
  inside_->shared->circumstances.signalsSent = 0;
}

void Watch::lifeEnded(std::optional<int> status, std::optional<int> signal, const std::string& output,
                      const std::string& errors) {
  if (inside_->shared->violated) return;
  LifeEnd end{.status = status, .signal = signal, .errors = errors};
  end.rest.at = inside_->machine().now;
  end.rest.journalFrom = inside_->shared->carried.journalSeen;
  end.rest.journalTo = inside_->journal().written;
  std::size_t from = 0;
  end.rest.lines = linesOf(output.substr(std::min(inside_->shared->outputSeen, output.size())), from);
  end.lines = linesOf(output, from);
  const Violated violated = [this](int invariant, const std::string& seen) {
    inside_->note(invariant, seen);
  };
  judgeChargeAtEnd(end, *inside_, violated);
  judgeRecordsAtEnd(end, *inside_, violated);
  judgeSleepAtEnd(end, *inside_, violated);
  judgeNativeAtEnd(end, *inside_, violated);
  judgeProcessAtEnd(end, *inside_, violated);
}

std::uint64_t Watch::doings() const { return inside_->shared->circumstances.doings; }

std::optional<Violation> Watch::violation() const {
  const Shared& shared = *inside_->shared;
  if (!shared.violated) return std::nullopt;
  return Violation{.invariant = shared.invariant, .at = shared.at, .seen = shared.seen.data()};
}

void Watch::beginToLook() {
  gLooking = inside_.get();
  inside_->mainThread = std::this_thread::get_id();
  inside_->eyes.open();
  addChargeRules(inside_->rules);
  addKeyRules(inside_->rules);
  addVerdictRules(inside_->rules);
  addRecordRules(inside_->rules);
  addSleepRules(inside_->rules);
  addNativeRules(inside_->rules);
  addProcessRules(inside_->rules);
}

void Watch::lookAfterTurn() { inside_->turnEnded(); }

void Watch::standStill() {
  // In the middle of a pass it only waits for time to move on.
  if (!inside_->inPass) inside_->turnEnded();
}

void Watch::goOn() {
  // What others did to the files meanwhile is not the daemon's doing.
  static_cast<void>(inside_->eyes.look());
  for (const auto& rule : inside_->rules) rule->wentOn(*inside_);
}

}  // namespace brisko::lab

// NOLINTBEGIN(bugprone-reserved-identifier)
void __wrap__ZN6brisko8evaluateEv() {
  brisko::lab::Watch::Inside* looking = brisko::lab::gLooking;
  if (looking != nullptr) looking->passBegins();
  __real__ZN6brisko8evaluateEv();
  if (looking != nullptr) looking->passEnded();
}

void __wrap__ZN6brisko12recordSampleERKNS_6SampleERKNS_8SettingsE(const brisko::Sample& sample,
                                                                  const brisko::Settings& settings) {
  if (brisko::lab::gLooking != nullptr) brisko::lab::gLooking->published(sample, settings);
  __real__ZN6brisko12recordSampleERKNS_6SampleERKNS_8SettingsE(sample, settings);
}
// NOLINTEND(bugprone-reserved-identifier)
