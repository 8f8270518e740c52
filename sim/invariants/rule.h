// sim/invariants/rule.h
// What the rules that always hold are written against: what they may look at, and when they are asked.
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "base/settings.h"
#include "hardware/charge_gate.h"
#include "records/history.h"
#include "sim/invariants/gate_keys.h"
#include "sim/machine/machine.h"
#include "state/charge_state_record.h"

namespace brisko::lab {

inline constexpr double never = -1e300;  // machine time of what has not happened

// What the timeline has done, as far as rules make exceptions for it. Shared by the lab and the lives. Times
// are machine time.
struct Circumstances {
  std::uint64_t doings = 0;       // how many things it did so far
  double lastDoingAt = never;     // the last of them
  double disturbedAt = never;     // … that makes keys, readings or files less than obedient, or heals them
  double clockSteppedAt = never;  // the wall clock was set, either way
  double clockSteppedBackAt = never;
  double adapterChangedAt = never;  // plugged or unplugged
  double filesTouchedAt = never;    // somebody else wrote or removed a file
  double launchedAt = never;        // the life that runs was started
  bool diskIsFull = false;
  std::uint64_t disturbances = 0;     // how often disturbedAt was set for keys or readings
  std::uint64_t leaps = 0;            // how often the charge or what 100 % is was set from outside
  bool logsTouched = false;           // somebody else wrote or removed something where the logs are
  std::uint32_t signalsSent = 0;      // bit n: signal n, to the life that runs
  std::uint32_t signalsToCome = 0;    // likewise, at a moment of its own choice, perhaps in a later life
  std::uint32_t unkeepableFiles = 0;  // bit of an UnkeepableIn: it was given a number that cannot be kept
};

// Where numbers come from that end the process, for no guess at them could be right.
enum class UnkeepableIn : std::uint8_t { settings, statistics, calibration, request };
[[nodiscard]] constexpr std::uint32_t bitOf(UnkeepableIn place) { return 1U << static_cast<unsigned>(place); }

// What a life leaves for the judgement of its end, in memory that the lab shares with it.
struct Carried {
  bool stepSevenReached = false;  // of the start-up: exit hooks and signal handlers are in place
  bool gateKnown = false;
  ChargeGate gate{};
  bool lightSupported = false;
  std::uint64_t journalSeen = 0;  // entries that the rules of the life have looked at
  std::uint64_t startTo = 0;      // entries before this one were written before the first pass
  std::uint64_t passedTo = 0;     // … before the end of the latest pass
  bool cutWasLeft = false;        // "CHIE" was cut as the life began
  GateKeys keys{};                // of the gate, as of journalSeen; once stepSevenReached
  double purgedAt = never;
  // The dates of scheduled wakes that this life has nothing to do with, or no longer.
  std::array<double, virtual_mac::scheduledPlaces> strangeWakes{};
  std::size_t strangeWakeCount = 0;
  bool strangeWakesKnown = false;
  // Of macOS's own limit, once a pass has driven it.
  bool nativeDriven = false;
  bool nativeIdle = false;  // handed back for as long as the limit is switched off
  bool nativeBeforeKnown = false;
  std::int64_t nativeBefore = 0;  // percent
};

// One run of evaluate(), told as it ends.
struct Pass {
  double at = 0;                  // machine time
  bool complete = false;          // it published; else it ended before
  std::uint64_t journalFrom = 0;  // entries of the journal from here …
  std::uint64_t journalTo = 0;    // … to before this one were written by it
  ChargeState before{};           // gState as it began
  // Of a complete one.
  Sample sample{};
  Settings settings{};
  std::size_t linesTo = 0;  // lines of its turn before this one were logged when it ended
};

// What happened to a file or folder below the daemon's two folders while the daemon ran.
struct FileChange {
  std::string path;         // unmapped: /Library/…
  bool removed = false;     // or moved away; else created, written, moved here or given other attributes
  bool attributes = false;  // nothing but owner, mode or times
};

// What can be looked at. The daemon's own variables are read as they are.
class Scene {
 public:
  virtual ~Scene() = default;
  [[nodiscard]] virtual const virtual_mac::Machine& machine() const = 0;
  [[nodiscard]] virtual const virtual_mac::Journal& journal() const = 0;
  [[nodiscard]] virtual const Circumstances& circumstances() const = 0;
  [[nodiscard]] virtual Carried& carried() const = 0;
  // The file's contents on the Mac's volume; none when there is no such file.
  [[nodiscard]] virtual std::optional<std::string> read(const std::string& path) const = 0;
};

[[nodiscard]] inline const virtual_mac::JournalEntry& entryOf(const Scene& scene, std::uint64_t number) {
  const auto& entries = scene.journal().entries;
  return entries[number % entries.size()];
}

// One turn of the daemon's run loop, told when everything in it is done.
struct Turn {
  double at = 0;                        // machine time
  std::uint64_t journalFrom = 0;        // entries from here …
  std::uint64_t journalTo = 0;          // … to before this one
  std::vector<std::string> lines = {};  // logged, with their times
  std::vector<FileChange> files = {};
  std::vector<Pass> passes = {};
};

// The end of a life, told in the lab. What is in `rest` came after its last turn.
struct LifeEnd {
  std::optional<int> status = {};  // exit status
  std::optional<int> signal = {};  // that ended it
  Turn rest = {};
  std::vector<std::string> lines = {};  // everything that it logged
  std::string errors = {};              // everything on its standard error
};

// Told of every invariant that does not hold: its number, and what was seen instead.
using Violated = std::function<void(int number, const std::string& seen)>;

// A rule, or several that remember the same. Made afresh in every life, inside of it.
class Rule {
 public:
  virtual ~Rule() = default;
  virtual void passBegins(const Scene&, const Violated&) {}
  virtual void passEnded(const Pass&, const Scene&, const Violated&) {}
  virtual void turnEnded(const Turn&, const Scene&, const Violated&) {}
  // The timeline did something while the life stood still.
  virtual void wentOn(const Scene&) {}
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

// What is judged in the lab when a life has ended.
void judgeChargeAtEnd(const LifeEnd& end, const Scene& scene, const Violated& violated);
void judgeRecordsAtEnd(const LifeEnd& end, const Scene& scene, const Violated& violated);
void judgeSleepAtEnd(const LifeEnd& end, const Scene& scene, const Violated& violated);
void judgeNativeAtEnd(const LifeEnd& end, const Scene& scene, const Violated& violated);
void judgeProcessAtEnd(const LifeEnd& end, const Scene& scene, const Violated& violated);

}  // namespace brisko::lab
