#include <algorithm>
#include <array>
#include <cmath>
#include <cstdlib>
#include <nlohmann/json.hpp>
#include <string_view>
#include <utility>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "base/files.h"
#include "base/json_file.h"
#include "base/log.h"
#include "base/options.h"
#include "base/paths.h"
#include "base/plain_files.h"
#include "base/process_flags.h"
#include "base/volume_path.h"
#include "records/statistics.h"
#include "sim/invariants/observed.h"
#include "sim/invariants/preconditions.h"
#include "sim/invariants/rule.h"
#include "state/calibration_state.h"
#include "state/tick_state.h"

namespace brisko::lab {
namespace {

using virtual_mac::RequestKind;

double wallClockOf(const Observation& observation, double machineTime) {
  return machineTime + observation.machine().system.wallOffset;
}

std::string secondsText(double seconds) {
  std::array<char, 40> text{};
  static_cast<void>(std::snprintf(text.data(), text.size(), "%.3f s", seconds));
  return text.data();
}

// --- Nothing reappears after all data was erased

constexpr Invariant nothingAfterErasure{14,
                                        "After all data was erased no file is created, written or renamed."};

class ErasedData final : public Rule {
 public:
  void iterationEnded(const LoopIteration& iteration, const Observation& observation,
                      const Violated& violated) override {
    if (!gPurged) return;
    if (!wasPurged_) observation.processSummary().purgedAt = iteration.at;
    // In the iteration of the erasing, files may still be written before they are removed: handing the limit
    // back is logged. Whatever follows the last removal has reappeared.
    auto change = iteration.files.begin();
    if (!wasPurged_) {
      const auto last = std::find_if(iteration.files.rbegin(), iteration.files.rend(),
                                     [](const auto& it) { return it.removed; });
      change = last.base();
      if (last == iteration.files.rend()) change = iteration.files.end();
    }
    wasPurged_ = true;
    change = std::find_if(change, iteration.files.end(), isWritten);
    if (change != iteration.files.end()) violated(nothingAfterErasure, change->path + " was written");
  }

 private:
  bool wasPurged_ = false;
};

// --- The log: its size, its one generation, its lines

constexpr Invariant logFormat{15,
                              "The log stays below its cap, has one generation before it, and every line is "
                              "a time stamp, two blanks and a text."};

// "2026-03-01T08:15:30Z  " and a text.
bool isLogLine(std::string_view line) {
  constexpr std::string_view form = "0000-00-00T00:00:00Z  ";
  if (line.size() <= form.size()) return false;
  return std::equal(form.begin(), form.end(), line.begin(), [](char wanted, char seen) {
    return wanted == '0' ? seen >= '0' && seen <= '9' : seen == wanted;
  });
}

std::string tailOf(const std::string& path, off_t from, off_t to) {
  std::string text(static_cast<std::size_t>(std::max<off_t>(to - from, 0)), '\0');
  // Nothing that is appended to is kept in memory, so the kept files need not be written first.
  const Descriptor file = plain::openRegularFile(path, O_RDONLY, 0);
  const ssize_t count = file ? ::pread(file.number(), text.data(), text.size(), from) : 0;
  text.resize(static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
  return text;
}

class TheLog final : public Rule {
 public:
  // What an earlier process left is not checked again.
  TheLog() {
    if (checkFile()) seen_ = size_;
  }

  void iterationEnded(const LoopIteration& iteration, const Observation& observation,
                      const Violated& violated) override {
    // Another program in the folder creates names and sizes of its own, and may make a rotation fail.
    if (observation.disturbances().logsTouched) return;
    bool written = false;
    for (const FileChange& change : iteration.files) {
      if (!isWritten(change) || !change.path.starts_with(folder)) continue;
      const std::string name = change.path.substr(std::min(folder.size() + 1, change.path.size()));
      written = written || name == "daemon.log";
      if (name.starts_with("daemon.log.") && name != "daemon.log.1")
        violated(logFormat, "there is a " + name);
    }
    if (written) checkNewLines(violated);
  }

 private:
  static constexpr std::string_view folder = LogFile::defaultDirectory;

  [[nodiscard]] bool checkFile() {
    struct stat status {};
    if (::stat(path_.c_str(), &status) != 0 || !S_ISREG(status.st_mode)) return false;
    if (status.st_ino != inode_ || status.st_size < size_) seen_ = 0;
    inode_ = status.st_ino;
    size_ = status.st_size;
    return true;
  }

  void checkNewLines(const Violated& violated) {
    if (!checkFile()) return;
    const std::string text = tailOf(path_, seen_, size_);
    const bool startsHere = seen_ == 0;
    seen_ = size_;
    std::size_t lines = 0;
    for (std::size_t from = 0; from < text.size(); ++lines) {
      const std::size_t end = text.find('\n', from);
      if (end == std::string::npos) return violated(logFormat, "a line without an end: " + text.substr(from));
      const std::string_view line = std::string_view(text).substr(from, end - from);
      if (!isLogLine(line)) return violated(logFormat, "the line \"" + std::string(line) + "\"");
      from = end + 1;
    }
    // One line longer than the cap has nowhere else to go.
    if (size_ > LogFile::defaultCap && !(startsHere && lines == 1)) {
      violated(logFormat, "a log of " + std::to_string(size_) + " bytes");
    }
  }

  std::string path_ = onVolume(std::string(folder) + "/daemon.log");
  ino_t inode_ = 0;  // of the log at the last check; 0: there was none
  off_t size_ = 0;
  off_t seen_ = 0;  // bytes of it that were checked, or that an earlier process left
};

// --- The status

// Notices that others removed a file. What the daemon wrote while the folder was gone is lost, so a rule must
// not compare the next version of the file with the last one that it saw.
class WatchedFile {
 public:
  // Since the last call.
  [[nodiscard]] bool wasRemoved(const Observation& observation, const std::string& path) {
    const double touchedAt = observation.disturbances().filesTouchedAt;
    if (std::exchange(touchedAt_, touchedAt) == touchedAt) return false;
    return ::access(onVolume(path).c_str(), F_OK) != 0;
  }

 private:
  double touchedAt_ = never;
};

constexpr Invariant statusInterval{
    16,
    "Status is published at most every 15 s unless something changed, and is always a whole JSON object."};

std::string wordAt(const Json& object, const char* key) {
  return object.contains(key) ? object[key].dump() : "?";
}

// The part of the status that the app shows at once.
std::string signatureOf(const std::string& text) {
  const Json status = parseJson(text).value_or(Json::object());
  std::string signature = status.contains("cal") ? wordAt(status["cal"], "phase") : "?";
  for (const char* key : {"state", "pct", "plugged", "upper", "enabled", "discharge", "hot", "topUp",
                          "gateVerified", "nativeFloor"}) {
    signature += "|" + wordAt(status, key);
  }
  return signature;
}

// Wall clock at which it was written; 0 when the status does not contain it.
double timeOf(const std::string& status) {
  constexpr std::string_view key = "\"ts\":";
  const std::size_t at = status.rfind(key);
  return at == std::string::npos ? 0 : std::strtod(&status[at + key.size()], nullptr);
}

bool isDigit(char character) { return character >= '0' && character <= '9'; }

// The text with the same digit in place of every other one. Two texts of one form are both JSON or neither
// is.
std::string formOf(std::string text) {
  for (auto digit = text.begin(); (digit = std::find_if(digit, text.end(), isDigit)) != text.end();) {
    const auto end = std::find_if_not(digit, text.end(), isDigit);
    const bool leadingZero = *digit == '0' && end - digit > 1;  // no number may begin with one
    if (!leadingZero) std::fill(digit, end, '1');
    digit = end;
  }
  return text;
}

class TheStatus final : public Rule {
 public:
  void iterationEnded(const LoopIteration& iteration, const Observation& observation,
                      const Violated& violated) override {
    const bool written =
        std::any_of(iteration.files.begin(), iteration.files.end(),
                    [](const FileChange& change) { return isWritten(change) && change.path == statusPath; });
    if (!written) return;
    std::string status = readWholeFile(onVolume(statusPath)).value_or("");
    if (observation.disturbances().diskIsFull) {
      // The disk has no room for the new status.
      status_.clear();
      return;
    }
    if (!isObject(status)) return violated(statusInterval, "status.json is no whole JSON object");
    const double apart = timeOf(status) - timeOf(status_);
    if (!status_.empty() && apart < 15 && signatureOf(status_) == signatureOf(status)) {
      violated(statusInterval, "the same again after " + secondsText(apart));
    }
    status_ = std::move(status);
  }

  void onResume(const Observation& observation) override {
    if (file_.wasRemoved(observation, statusPath)) status_.clear();
  }

 private:
  bool isObject(const std::string& status) {
    std::string form = formOf(status);
    if (form == objectForm_) return true;
    if (!status.starts_with('{') || !Json::accept(status)) return false;
    objectForm_ = std::move(form);
    return true;
  }

  std::string status_;  // as last written; "": not written, or unknown
  std::string
      objectForm_;  // of the last one that was parsed, because nearly all differ in their numbers only
  WatchedFile file_;
};

// --- The history

constexpr Invariant historyInterval{
    17, "Samples of the history that say the same are at least 55 s apart, or 300 s."};

class TheHistory final : public Rule {
 public:
  void iterationEnded(const LoopIteration& iteration, const Observation& observation,
                      const Violated& violated) override {
    const auto change =
        std::find_if(iteration.files.begin(), iteration.files.end(), [](const FileChange& it) {
          return isWritten(it) && it.path.starts_with(historyDir) && it.path.ends_with(".jsonl");
        });
    if (change == iteration.files.end()) return;
    path_ = change->path;
    last_ = observation.disturbances().diskIsFull ? std::nullopt : checked(lastLine(path_), violated);
  }

  void onResume(const Observation& observation) override {
    if (file_.wasRemoved(observation, path_)) last_.reset();
  }

 private:
  struct Line {
    std::int64_t time = 0;  // wall clock, whole seconds
    std::string state = {};
    bool adapter = false;
    std::int64_t pct = 0;
    std::int64_t tenths = 0;  // of a degree; 0 unknown
  };

  // An iteration writes one line at most. None when there is no readable line.
  static std::optional<Line> lastLine(const std::string& unmapped) {
    constexpr off_t longest = 400;
    const std::string path = onVolume(unmapped);
    struct stat status {};
    if (::stat(path.c_str(), &status) != 0) return std::nullopt;
    std::string text = tailOf(path, std::max<off_t>(status.st_size - longest, 0), status.st_size);
    if (text.empty() || text.back() != '\n') return std::nullopt;
    text.pop_back();
    const auto object = parseJson(text.substr(text.find_last_of('\n') + 1));
    if (!object || !object->is_object()) return std::nullopt;
    return Line{.time = integerAt(*object, "t").value_or(0),
                .state = wordAt(*object, "s"),
                .adapter = booleanAt(*object, "g").value_or(false),
                .pct = integerAt(*object, "p").value_or(0),
                .tenths = integerAt(*object, "ct").value_or(0)};
  }

  std::optional<Line> checked(const std::optional<Line>& line, const Violated& violated) const {
    if (!line || !last_) return line;
    const std::int64_t apart = line->time - last_->time;
    if (line->state != last_->state || line->adapter != last_->adapter) return line;
    // Half a degree, less the rounding error.
    const bool same = line->pct == last_->pct && std::abs(line->tenths - last_->tenths) < 4;
    if (apart < (same ? 300 : 55))
      violated(historyInterval, "two such lines " + std::to_string(apart) + " s apart");
    return line;
  }

  std::optional<Line> last_;
  std::string path_;  // of its file
  WatchedFile file_;
};

// --- Protected time

constexpr Invariant protectedTime{
    28, "Protected time grows by at most 60 s a tick, and only on the adapter while held or discharged."};

class ProtectedTime final : public Rule {
 public:
  // By the first tick the file has been read.
  void tickBegins(const Observation& observation, const Violated&) override {
    if (known_) return;
    known_ = gProtectedSeconds;
    since_ = gStatsSince;
    tickAt_ = observation.machine().now;
    tickWall_ = gLastStatsTick;
  }

  void iterationEnded(const LoopIteration& iteration, const Observation& observation,
                      const Violated& violated) override {
    if (!known_) return;
    // Two totals may begin at the same moment.
    const bool anew = gStatsSince != since_ || anyLineStartsWith(iteration, "stats reset");
    since_ = gStatsSince;
    const double grown = gProtectedSeconds - *known_;
    const double tickedAt = tickAt_;
    if (tickWall_ != gLastStatsTick) tickAt_ = iteration.at;
    tickWall_ = gLastStatsTick;
    if (grown == 0) return;
    known_ = gProtectedSeconds;
    if (anew) return;
    if (grown < 0) {
      // When the clock is set back, the time gained that way is subtracted again.
      if (observation.disturbances().clockSteppedBackAt < tickedAt) {
        violated(protectedTime, "protected time fell by " + secondsText(-grown));
      }
      return;
    }
    if (grown > mostPerTick + std::abs(gProtectedSeconds) * 1e-12) {
      violated(protectedTime, "protected time grew by " + secondsText(grown));
    }
    if (gState == ChargeState::allow) violated(protectedTime, "protected time grew in allow");
    if (!adapterIsSeen(observation.machine())) violated(protectedTime, "protected time grew on battery");
  }

 private:
  static constexpr double mostPerTick = 60;
  std::optional<double> known_;
  double since_ = 0;     // when the total began
  double tickAt_ = 0;    // machine time of the last statistics tick
  double tickWall_ = 0;  // gLastStatsTick then
};

// --- Requests that are served once

constexpr Invariant requestsTakenOnce{29, "A request is taken once and then withdrawn for good."};

class Requests final : public Rule {
 public:
  void tickBegins(const Observation& observation, const Violated&) override {
    // Anyone who writes the file may make a new request, and so may the app.
    const bool othersWrote =
        observation.disturbances().actionCount != actionCount_ || appliesSettings(observation.machine());
    actionCount_ = observation.disturbances().actionCount;
    // A withdrawal that meets a full disk is lost with the file; the request returns when somebody writes the
    // file again.
    if (othersWrote || observation.disturbances().diskIsFull) topUp_ = calibrate_ = reset_ = {};
  }

  void tickEnded(const TickRecord& tick, const Observation& observation, const Violated& violated) override {
    // A locked system drives nothing and ignores requests to restart the statistics. After an erasing nothing
    // is written any more, so nothing is withdrawn.
    if (!tick.complete || gSystemLocked || gPurged) return;
    const Settings& asked = tick.settings;
    const bool calibrates = gCal.phase != CalPhase::idle;
    const double now = wallClockOf(observation, tick.at);
    if (topUp_.withdrawn && asked.topUp)
      violated(requestsTakenOnce, "a Top Up that was withdrawn is asked for again");
    if (calibrate_.withdrawn && asked.calibrate)
      violated(requestsTakenOnce, "a calibration is asked for again");
    if (asked.resetStats && gStatsSince != now)
      violated(requestsTakenOnce, "the statistics did not start again");
    if (asked.topUp && gTopUpSince != 0) checkTopUp(asked, now, observation, violated);
    if (calibrates && now - gCal.phaseSince > longestPhase)
      violated(requestsTakenOnce, "the calibration never ends");

    // Another withdrawal in the same tick writes the request back as it was read, so it is served twice.
    reset_.served = asked.resetStats ? reset_.served + 1 : 0;
    if (reset_.served > 2) violated(requestsTakenOnce, "the statistics keep starting again");

    const bool topUpEnds = asked.topUp && gTopUpSince == 0 && !calibrates;
    topUp_.withdrawn = !asked.topUp || topUpEnds;
    // A Top Up that ends in the same tick writes the calibration request back, and the calibration starts
    // again.
    calibrate_.withdrawn = !asked.calibrate || (!calibrates && !topUpEnds);
  }

 private:
  static constexpr double longestPhase = 259'200;  // seconds

  struct Request {
    bool withdrawn = false;
    int served = 0;  // in a row
  };

  // This tick runs as part of a request of the app, which is answered afterwards.
  [[nodiscard]] static bool appliesSettings(const virtual_mac::Machine& machine) {
    const auto& requests = machine.control.requests;
    return machine.control.sent > 0 && std::any_of(requests.begin(), requests.end(), [](const auto& it) {
             return it.number != 0 && it.kind == RequestKind::applySettings && it.answers == 0 &&
                    it.stage == virtual_mac::RequestStage::delivered;
           });
  }

  static void checkTopUp(const Settings& asked, double now, const Observation& observation,
                         const Violated& violated) {
    if (!adapterIsSeen(observation.machine()))
      violated(requestsTakenOnce, "a Top Up continues without an adapter");
    const double hours = static_cast<double>(asked.topUpHours);
    if (asked.topUpHours >= 1 && now - gTopUpSince > hours * 3600)
      violated(requestsTakenOnce, "a Top Up continues for ever");
  }

  std::uint64_t actionCount_ = 0;
  Request topUp_;
  Request calibrate_;
  Request reset_;
};

}  // namespace

void addRecordRules(Rules& rules) {
  rules.push_back(std::make_unique<ErasedData>());
  rules.push_back(std::make_unique<TheLog>());
  rules.push_back(std::make_unique<TheStatus>());
  rules.push_back(std::make_unique<TheHistory>());
  rules.push_back(std::make_unique<ProtectedTime>());
  rules.push_back(std::make_unique<Requests>());
}

void checkRecordsAtEnd(const ProcessEnd& end, const Observation& observation, const Violated& violated) {
  const double purgedAt = observation.processSummary().purgedAt;
  // Others may have created files in the meantime.
  const bool untouched = observation.disturbances().filesTouchedAt < purgedAt;
  if (!end.status || purgedAt == never || !untouched) return;
  for (const std::string& path :
       {std::string(statusPath), std::string(statsPath), std::string(calibrationPath),
        std::string(defaultConfigPath), std::string(LogFile::defaultDirectory) + "/daemon.log"}) {
    if (observation.read(path)) violated(nothingAfterErasure, path + " is there again");
  }
}

}  // namespace brisko::lab
