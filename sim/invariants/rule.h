// sim/invariants/rule.h
// The interface of the invariants' rules: what they may read, and when they are called.
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/settings.h"
#include "hardware/charge_gate.h"
#include "records/history.h"
#include "sim/invariants/gate_keys.h"
#include "sim/machine/machine.h"
#include "state/charge_state_record.h"

namespace brisko::lab {

inline constexpr double never = -1e300;  // machine time of an event that has not happened

// The actions of the timeline for which rules make exceptions. Shared by the lab and the processes. Times are
// machine time.
struct Disturbances {
  std::uint64_t actionCount = 0;  // how many actions so far
  double lastActionAt = never;    // the last of them
  double disturbedAt = never;     // … that disturbed keys, readings or files, or repaired them
  double clockSteppedAt = never;  // the wall clock was set, either way
  double clockSteppedBackAt = never;
  double adapterChangedAt = never;  // plugged or unplugged
  double filesTouchedAt = never;    // somebody other than the daemon wrote or removed a file
  double launchedAt = never;        // the running process was started
  bool diskIsFull = false;
  std::uint64_t disturbanceCount = 0;  // how often disturbedAt was set because of keys or readings
  std::uint64_t jumps = 0;             // how often the charge, or what 100 % is, was set from outside
  bool logsTouched = false;            // another writer changed something in the log folder
  std::uint32_t signalsSent = 0;       // bit n: signal n was sent to the running process
  std::uint32_t signalsToCome = 0;     // … is planned for a later moment, perhaps in a later process
  std::uint32_t unstorableFiles = 0;   // bit of an UnstorableIn: it was given a number that cannot be stored
};

// Sources of numbers that end the process because no guess at them could be right.
enum class UnstorableIn : std::uint8_t { settings, statistics, calibration, request };
[[nodiscard]] constexpr std::uint32_t bitOf(UnstorableIn place) { return 1U << static_cast<unsigned>(place); }

// What a process leaves for the checks at its end, in memory that the lab shares with it.
struct ProcessSummary {
  bool stepSevenReached = false;  // of the start-up: exit hooks and signal handlers are installed
  bool gateKnown = false;
  ChargeGate gate{};
  bool lightSupported = false;
  std::uint64_t journalSeen = 0;  // entries that the rules of the process have processed
  std::uint64_t startTo = 0;      // entries before this one were written before the first tick
  std::uint64_t tickedTo = 0;     // … before the end of the latest tick
  bool cutWasLeft = false;        // "CHIE" was cut as the process began
  GateKeys keys{};                // of the gate, as of journalSeen; once stepSevenReached
  double purgedAt = never;
  // The dates of scheduled wakes that do not belong to this process, or no longer do.
  std::array<double, virtual_mac::scheduledPlaces> foreignWakes{};
  std::size_t foreignWakeCount = 0;
  bool foreignWakesKnown = false;
  // Of macOS's own limit, once a tick has driven it.
  bool nativeDriven = false;
  bool nativeIdle = false;  // handed back for as long as the limit is switched off
  bool nativeBeforeKnown = false;
  std::int64_t nativeBefore = 0;  // percent
};

// One run of evaluate(), reported when it ends.
struct TickRecord {
  double at = 0;                  // machine time
  bool complete = false;          // it published; otherwise it ended early
  std::uint64_t journalFrom = 0;  // entries of the journal from here …
  std::uint64_t journalTo = 0;    // … to before this one were written by it
  ChargeState before{};           // gState as it began
  // Of a complete tick only.
  Sample sample{};
  Settings settings{};
  std::size_t linesTo = 0;  // lines of its iteration before this one were logged when it ended
};

// What happened to a file or folder below the daemon's two folders while the daemon ran.
struct FileChange {
  std::string path;          // unmapped: /Library/…
  bool removed = false;      // or moved away; else created, written, moved here or given other attributes
  bool attributes = false;   // nothing but owner, mode or times
  bool overwritten = false;  // nothing but its content
};

// What a rule may read. The daemon's own variables are read directly.
class Observation {
 public:
  virtual ~Observation() = default;
  [[nodiscard]] virtual const virtual_mac::Machine& machine() const = 0;
  [[nodiscard]] virtual const virtual_mac::Journal& journal() const = 0;
  [[nodiscard]] virtual const Disturbances& disturbances() const = 0;
  [[nodiscard]] virtual ProcessSummary& processSummary() const = 0;
  // The file's contents on the Mac's volume; none when there is no such file.
  [[nodiscard]] virtual std::optional<std::string> read(const std::string& path) const = 0;
};

[[nodiscard]] inline const virtual_mac::JournalEntry& entryOf(const Observation& observation,
                                                              std::uint64_t number) {
  const auto& entries = observation.journal().entries;
  return entries[number % entries.size()];
}

// One iteration of the run loop, reported when everything in it is done.
struct LoopIteration {
  double at = 0;                        // machine time
  std::uint64_t journalFrom = 0;        // entries from here …
  std::uint64_t journalTo = 0;          // … to before this one
  std::vector<std::string> lines = {};  // logged, with their times
  std::vector<FileChange> files = {};
  std::vector<TickRecord> ticks = {};
};

// The end of a process, reported in the lab. `rest` is what came after its last iteration.
struct ProcessEnd {
  std::optional<int> status = {};  // exit status
  std::optional<int> signal = {};  // that ended it
  LoopIteration rest = {};
  std::vector<std::string> lines = {};  // everything that it logged
  std::string errors = {};              // everything on its standard error
};

// What must hold after every event. Each is defined beside its rule.
struct Invariant {
  int number = 0;  // in reports and in names of files
  std::string_view text = {};
};
// "9. The charge never rises more than one percent above the limit."
[[nodiscard]] inline std::string numbered(const Invariant& invariant) {
  return std::to_string(invariant.number) + ". " + std::string(invariant.text);
}

// The checker itself checks the ticks, a rule the replies.
inline constexpr Invariant ticksAndReplies{
    31, "The daemon's ticks run on the main thread and never inside each other; each request has one reply."};

// Called for every violated invariant with what was seen instead.
using Violated = std::function<void(const Invariant& invariant, const std::string& seen)>;

// One rule, or several that share variables. Every process creates its own.
class Rule {
 public:
  virtual ~Rule() = default;
  virtual void tickBegins(const Observation&, const Violated&) {}
  virtual void tickEnded(const TickRecord&, const Observation&, const Violated&) {}
  virtual void iterationEnded(const LoopIteration&, const Observation&, const Violated&) {}
  // The timeline did something while the process was paused.
  virtual void onResume(const Observation&) {}
};
using Rules = std::vector<std::unique_ptr<Rule>>;

// Each file of rules adds its own.
void addChargeRules(Rules& rules);
void addKeyRules(Rules& rules);
void addVerdictRules(Rules& rules);
void addRecordRules(Rules& rules);
void addSleepRules(Rules& rules);
void addNativeRules(Rules& rules);
void addProcessRules(Rules& rules);
void addGuardRules(Rules& rules);

// Checks in the lab after a process has ended.
void checkChargeAtEnd(const ProcessEnd& end, const Observation& observation, const Violated& violated);
void checkRecordsAtEnd(const ProcessEnd& end, const Observation& observation, const Violated& violated);
void checkSleepAtEnd(const ProcessEnd& end, const Observation& observation, const Violated& violated);
void checkNativeAtEnd(const ProcessEnd& end, const Observation& observation, const Violated& violated);
void checkProcessAtEnd(const ProcessEnd& end, const Observation& observation, const Violated& violated);

}  // namespace brisko::lab
