// Rules about the daemon's writes to the controller: only its own keys, in a safe order, only when wanted,
// and restored in the end.
#include <algorithm>
#include <optional>
#include <string>

#include "base/process_flags.h"
#include "hardware/battery.h"
#include "sim/invariants/gate_keys.h"
#include "sim/invariants/observed.h"
#include "sim/invariants/preconditions.h"
#include "sim/invariants/rule.h"
#include "sim/machine/journal_text.h"
#include "state/calibration_state.h"
#include "state/led_mode.h"
#include "state/machine_abilities.h"
#include "state/tick_state.h"

namespace brisko::lab {
namespace {

using virtual_mac::JournalEntry;
using virtual_mac::keyCode;
using virtual_mac::Machine;

// --- What the checks at the end need to know of the process

class NotesForTheEnd final : public Rule {
 public:
  void tickBegins(const Observation& observation, const Violated&) override {
    ProcessSummary& processSummary = observation.processSummary();
    if (processSummary.stepSevenReached) return;
    // By the first tick the exit hooks are in place: the daemon would give back whatever it takes.
    processSummary.stepSevenReached = true;
    processSummary.gateKnown = gGate.has_value();
    processSummary.gate = gGate.value_or(ChargeGate{});
    processSummary.lightSupported = gLedSupported;
    processSummary.startTo = observation.journal().written;
    processSummary.keys = keysOf(processSummary.gate, observation.machine());
  }

  void tickEnded(const TickRecord& tick, const Observation& observation, const Violated&) override {
    observation.processSummary().tickedTo = tick.journalTo;
  }

  void iterationEnded(const LoopIteration&, const Observation& observation, const Violated&) override {
    readKeys(observation);
  }
  void onResume(const Observation& observation) override { readKeys(observation); }

 private:
  // Other programs may have written the keys too.
  static void readKeys(const Observation& observation) {
    ProcessSummary& processSummary = observation.processSummary();
    if (processSummary.gateKnown) processSummary.keys = keysOf(processSummary.gate, observation.machine());
  }
};

// --- No cut while charging is allowed

constexpr Invariant noCutOverOpen{3, "The adapter is never cut while the charge keys are open."};

bool isCutOverOpen(const GateKeys& keys) { return keys.cut && !keys.stopped(); }

// The texts of the entries, each preceded by a blank.
std::string writesBetween(const Observation& observation, std::uint64_t from, std::uint64_t to) {
  std::string text;
  for (std::uint64_t number = from; number < to; ++number)
    text += " " + sim::journalText(entryOf(observation, number));
  return text.empty() ? " nothing" : text;
}

// A write counts when it creates the condition. If the condition held before the write, somebody else or an
// earlier process that was killed created it; the daemon finds and ends it in its next tick. Keys that do not
// obey are exempt: the daemon does not read back a refused stop before the cut follows.
void checkOrder(const LoopIteration& iteration, const Observation& observation, const Violated& violated) {
  const ProcessSummary& processSummary = observation.processSummary();
  if (!processSummary.gateKnown || iteration.journalFrom == iteration.journalTo) return;
  if (!keysObey(observation.machine(), processSummary.gate)) return;
  GateKeys keys = processSummary.keys;
  for (std::uint64_t number = iteration.journalFrom; number < iteration.journalTo; ++number) {
    const JournalEntry& entry = entryOf(observation, number);
    const GateKeys next = after(keys, processSummary.gate, entry);
    if (isCutOverOpen(next) && !isCutOverOpen(keys)) {
      violated(noCutOverOpen, "the write " + sim::journalText(entry) +
                                  " left the adapter cut with charging open, after" +
                                  writesBetween(observation, number < 14 ? 0 : number - 14, number));
    }
    keys = next;
  }
}

class NoCutOverOpen final : public Rule {
 public:
  void iterationEnded(const LoopIteration& iteration, const Observation& observation,
                      const Violated& violated) override {
    checkOrder(iteration, observation, violated);
  }
};

// --- Cuts only with a reason

constexpr Invariant cutOnlyWhenWanted{4,
                                      "The adapter is cut only when a tick wanted it: adapter there, "
                                      "discharge supported and working, no heat, above its target."};

// The target of a calibration's drain; none while none is draining.
std::optional<std::int64_t> drainTarget(const Settings& settings) {
  if (gCal.phase == CalPhase::drain) return settings.calDrain;
  if (gCal.phase == CalPhase::restore) return settings.limit;
  return std::nullopt;
}

// Why the tick had no reason to cut the adapter; none when it had one.
std::optional<std::string> noReasonToCut(const TickRecord& tick, const Observation& observation,
                                         bool brokenBefore) {
  if (!tick.complete) return "in a tick that ended early";
  if (!adapterIsSeen(observation.machine())) return "without an adapter";
  // A discharge given up in this very tick, after its lost cut was written back, does not count against it.
  if (brokenBefore && gDischargeBroken) return "although the discharge was given up";
  if (gThermalPaused) return "during a pause for heat";
  const Settings& settings = tick.settings;
  const std::int64_t pct = tick.sample.pct;
  if (const auto target = drainTarget(settings)) {
    if (pct > *target) return std::nullopt;
    return "at " + percentText(pct) + " in a calibration that drains to " + percentText(*target);
  }
  if (gCal.phase != CalPhase::idle) return "in a calibration that charges";
  if (!settings.enabled || !settings.discharge) return "with the discharge switched off";
  if (gTopUpSince != 0) return "during a Top Up";
  if (const auto capabilities = systemCapabilities();
      capabilities && (*capabilities & capabilityGraphics) == 0)
    return "in a maintenance wake";
  const std::int64_t upper = bandAskedFor(settings).upper;
  if (pct <= upper) return "at " + percentText(pct) + " with a limit of " + percentText(upper);
  return std::nullopt;
}

class CutOnlyWhenWanted final : public Rule {
 public:
  void tickBegins(const Observation&, const Violated&) override { brokenBefore_ = gDischargeBroken; }

  void tickEnded(const TickRecord& tick, const Observation& observation, const Violated& violated) override {
    if (!gateHasKeys() || !cuts(observation, tick.journalFrom, tick.journalTo)) return;
    if (const auto reason = noReasonToCut(tick, observation, brokenBefore_)) {
      violated(cutOnlyWhenWanted, "the adapter was cut " + *reason);
    }
  }

  // Only a tick may cut.
  void iterationEnded(const LoopIteration& iteration, const Observation& observation,
                      const Violated& violated) override {
    if (!gateHasKeys()) return;
    std::uint64_t from = iteration.journalFrom;
    for (const TickRecord& tick : iteration.ticks) {
      checkOutside(observation, from, tick.journalFrom, violated);
      from = tick.journalTo;
    }
    checkOutside(observation, from, iteration.journalTo, violated);
  }

 private:
  static bool cuts(const Observation& observation, std::uint64_t from, std::uint64_t to) {
    for (; from < to; ++from) {
      if (asksForCut(entryOf(observation, from), *gGate)) return true;
    }
    return false;
  }
  static void checkOutside(const Observation& observation, std::uint64_t from, std::uint64_t to,
                           const Violated& violated) {
    if (cuts(observation, from, to)) violated(cutOnlyWhenWanted, "the adapter was cut outside of a tick");
  }

  bool brokenBefore_ = false;
};

// --- Only own keys

constexpr Invariant onlyOwnKeys{12, "Only the gate's own keys and the light are ever written."};

bool isLight(const JournalEntry& entry) { return entry.key == keyCode("ACLC"); }

// What an earlier process may have left in keys that this one does not use is undone once, at the start.
bool undoesALeftover(const JournalEntry& entry, const ProcessSummary& processSummary) {
  if (entry.bytes[0] != 0) return false;
  if (entry.key == keyCode("CHIE")) return processSummary.cutWasLeft;
  return isLight(entry) && !processSummary.gateKnown;
}

bool mayBeWritten(const JournalEntry& entry, std::uint64_t number, const ProcessSummary& processSummary) {
  if (processSummary.gateKnown && (isLight(entry) || isOfGate(entry, processSummary.gate))) return true;
  const bool usesKeys = processSummary.gateKnown && processSummary.gate.charge != ChargeKeys::macOSLimit;
  return !usesKeys && number < processSummary.startTo && undoesALeftover(entry, processSummary);
}

void checkKeys(const LoopIteration& iteration, const Observation& observation, const Violated& violated) {
  const ProcessSummary& processSummary = observation.processSummary();
  if (!processSummary.stepSevenReached) return;
  for (std::uint64_t number = iteration.journalFrom; number < iteration.journalTo; ++number) {
    const JournalEntry& entry = entryOf(observation, number);
    if (isWrite(entry) && !mayBeWritten(entry, number, processSummary)) {
      violated(onlyOwnKeys, "the write " + sim::journalText(entry));
    }
  }
}

class OnlyOwnKeys final : public Rule {
 public:
  void iterationEnded(const LoopIteration& iteration, const Observation& observation,
                      const Violated& violated) override {
    checkKeys(iteration, observation, violated);
    countLeftovers(iteration, observation, violated);
  }

 private:
  void countLeftovers(const LoopIteration& iteration, const Observation& observation,
                      const Violated& violated) {
    const std::uint64_t to = std::min(iteration.journalTo, observation.processSummary().startTo);
    for (std::uint64_t number = iteration.journalFrom; number < to; ++number) {
      const JournalEntry& entry = entryOf(observation, number);
      if (!isWrite(entry)) continue;
      int& times = isLight(entry) ? lightWrites_ : cutWrites_;
      if (++times > 1)
        violated(onlyOwnKeys, "the write " + sim::journalText(entry) + " a second time at the start");
    }
  }

  int lightWrites_ = 0;
  int cutWrites_ = 0;
};

// --- No writes while nothing changes

constexpr Invariant quietWhenSteady{13, "While nothing changes nothing is written."};

// Applies to Macs with one key that obeys: a band is written again to move it, and so is a key that was
// undone. Between two ticks the state may have been a different one, before a sleep or while the app was
// away; then there was something to write.
class QuietWhenSteady final : public Rule {
 public:
  void iterationEnded(const LoopIteration&, const Observation&, const Violated&) override {
    if (gDormant) steady_ = false;
  }

  void tickEnded(const TickRecord& tick, const Observation& observation, const Violated& violated) override {
    if (!tick.complete) return;
    const std::uint64_t disturbanceCount = observation.disturbances().disturbanceCount;
    const bool applies = steady_ && gGate && gGate->charge == ChargeKeys::chte && tick.before == state_ &&
                         tick.sample.state == state_ && disturbanceCount == disturbanceCount_ &&
                         keysObey(observation.machine(), *gGate);
    if (applies) check(tick, observation, violated);
    steady_ = true;
    state_ = tick.sample.state;
    disturbanceCount_ = disturbanceCount;
    writtenTo_ = tick.journalTo;
  }

 private:
  void check(const TickRecord& tick, const Observation& observation, const Violated& violated) const {
    for (std::uint64_t number = writtenTo_; number < tick.journalTo; ++number) {
      const JournalEntry& entry = entryOf(observation, number);
      if (!isOfGate(entry, *gGate)) continue;
      violated(quietWhenSteady,
               "the write " + sim::journalText(entry) + " while the state stayed " + stateName(state_));
    }
  }

  bool steady_ = false;
  ChargeState state_{};
  std::uint64_t disturbanceCount_ = 0;
  std::uint64_t writtenTo_ = 0;
};

// --- The exit gives back

constexpr Invariant exitGivesBack{1,
                                  "An exit gives everything back: the charge keys read open, the cut key "
                                  "connected, and the light is the system's."};

std::optional<std::string> keptKey(const ProcessSummary& processSummary, const Machine& machine) {
  const GateWords words = wordsOf(processSummary.gate);
  const GateKeys keys = keysOf(processSummary.gate, machine);
  // One key of a pair is enough to stop the charging.
  const bool second = words.secondStop.code != 0 && keys.second;
  if (keys.first || second) return "the charging stayed stopped";
  if (keys.cut) return "the adapter stayed cut";
  return std::nullopt;
}

bool lightWasKept(const ProcessSummary& processSummary, const Machine& machine) {
  constexpr KeyWord light{.code = keyCode("ACLC"), .size = 1};
  return processSummary.lightSupported && accepts(machine, light) &&
         virtual_mac::findKey(machine, light.code)->bytes[0] != LED_SYSTEM;
}

void checkExit(const Observation& observation, const Violated& violated) {
  const ProcessSummary& processSummary = observation.processSummary();
  const Machine& machine = observation.machine();
  if (!processSummary.gateKnown) return;
  if (keysAccept(machine, processSummary.gate)) {
    if (const auto kept = keptKey(processSummary, machine))
      violated(exitGivesBack, *kept + " after the exit");
  }
  if (lightWasKept(processSummary, machine))
    violated(exitGivesBack, "the light was not handed back at the exit");
}

}  // namespace

void addKeyRules(Rules& rules) {
  rules.push_back(std::make_unique<NoCutOverOpen>());
  rules.push_back(std::make_unique<CutOnlyWhenWanted>());
  rules.push_back(std::make_unique<OnlyOwnKeys>());
  rules.push_back(std::make_unique<QuietWhenSteady>());
  // Added last: the other rules compare with what it recorded before.
  rules.push_back(std::make_unique<NotesForTheEnd>());
}

void checkChargeAtEnd(const ProcessEnd& end, const Observation& observation, const Violated& violated) {
  const ProcessSummary& processSummary = observation.processSummary();
  if (!processSummary.stepSevenReached) return;
  // A process that was killed, or that aborted, gives nothing back.
  if (end.status) checkExit(observation, violated);
  checkOrder(end.rest, observation, violated);
  checkKeys(end.rest, observation, violated);
  if (!end.status || !processSummary.gateKnown) return;
  for (std::uint64_t number = std::max(processSummary.tickedTo, end.rest.journalFrom);
       number < end.rest.journalTo; ++number) {
    if (asksForCut(entryOf(observation, number), processSummary.gate))
      violated(cutOnlyWhenWanted, "the adapter was cut at the exit");
  }
}

}  // namespace brisko::lab
