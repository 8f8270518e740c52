// What the daemon writes to the controller: only its own keys, in a safe order, only when wanted, and back to
// what was there in the end.
#include <algorithm>
#include <optional>
#include <string>

#include "base/process_flags.h"
#include "hardware/battery.h"
#include "sim/invariants/gate_keys.h"
#include "sim/invariants/premises.h"
#include "sim/invariants/rule.h"
#include "sim/machine/journal_words.h"
#include "state/calibration_state.h"
#include "state/led_mode.h"
#include "state/machine_abilities.h"
#include "state/tick_state.h"

namespace brisko::lab {
namespace {

using virtual_mac::JournalEntry;
using virtual_mac::keyCode;
using virtual_mac::Machine;

std::string percentText(std::int64_t percent) { return std::to_string(percent) + "%"; }

// ---------------------------------------------------------------------------------------------------------
// What the judgement of the end has to know of the life

class NotesForTheEnd final : public Rule {
 public:
  void passBegins(const Scene& scene, const Violated&) override {
    Carried& carried = scene.carried();
    if (carried.stepSevenReached) return;
    // The first pass is the first thing that the daemon does once it would give back what it takes.
    carried.stepSevenReached = true;
    carried.gateKnown = gGate.has_value();
    carried.gate = gGate.value_or(ChargeGate{});
    carried.lightSupported = gLedSupported;
    carried.startTo = scene.journal().written;
    carried.keys = keysOf(carried.gate, scene.machine());
  }

  void passEnded(const Pass& pass, const Scene& scene, const Violated&) override {
    scene.carried().passedTo = pass.journalTo;
  }

  void turnEnded(const Turn&, const Scene& scene, const Violated&) override { readKeys(scene); }
  void wentOn(const Scene& scene) override { readKeys(scene); }

 private:
  // Others may have written them too.
  static void readKeys(const Scene& scene) {
    Carried& carried = scene.carried();
    if (carried.gateKnown) carried.keys = keysOf(carried.gate, scene.machine());
  }
};

// ---------------------------------------------------------------------------------------------------------
// 3: no cut over open

bool isCutOverOpen(const GateKeys& keys) { return keys.cut && !keys.stopped(); }

// The texts of the entries, each after a blank.
std::string writesBetween(const Scene& scene, std::uint64_t from, std::uint64_t to) {
  std::string text;
  for (std::uint64_t number = from; number < to; ++number)
    text += " " + lives::journalText(entryOf(scene, number));
  return text.empty() ? " nothing" : text;
}

// Judged is a write that makes it so. Where it was so before the write somebody else did it, or an earlier
// life that was killed; the daemon finds it and ends it in its next pass. Keys that do not obey are left out:
// what a refused stop leaves open is not looked at before the cut follows.
void judgeOrder(const Turn& turn, const Scene& scene, const Violated& violated) {
  const Carried& carried = scene.carried();
  if (!carried.gateKnown || turn.journalFrom == turn.journalTo) return;
  if (!keysObey(scene.machine(), carried.gate)) return;
  GateKeys keys = carried.keys;
  for (std::uint64_t number = turn.journalFrom; number < turn.journalTo; ++number) {
    const JournalEntry& entry = entryOf(scene, number);
    const GateKeys next = after(keys, carried.gate, entry);
    if (isCutOverOpen(next) && !isCutOverOpen(keys)) {
      violated(3, "the write " + lives::journalText(entry) +
                      " left the adapter cut with charging open, after" +
                      writesBetween(scene, number < 14 ? 0 : number - 14, number));
    }
    keys = next;
  }
}

class NoCutOverOpen final : public Rule {
 public:
  void turnEnded(const Turn& turn, const Scene& scene, const Violated& violated) override {
    judgeOrder(turn, scene, violated);
  }
};

// ---------------------------------------------------------------------------------------------------------
// 4: cut only when wanted

// What a calibration drains to; none while none drains.
std::optional<std::int64_t> drainTarget(const Settings& settings) {
  if (gCal.phase == CalPhase::drain) return settings.calDrain;
  if (gCal.phase == CalPhase::restore) return settings.limit;
  return std::nullopt;
}

// Why the pass had no reason to cut the adapter; none when it had one.
std::optional<std::string> noReasonToCut(const Pass& pass, const Scene& scene, bool brokenBefore) {
  if (!pass.complete) return "in a pass that ended early";
  if (!adapterIsSeen(scene.machine())) return "without an adapter";
  // Given up in this very pass, after it wrote a lost cut back, is no reason against that.
  if (brokenBefore && gDischargeBroken) return "although the discharge was given up";
  if (gThermalPaused) return "during a pause for heat";
  const Settings& settings = pass.settings;
  const std::int64_t pct = pass.sample.pct;
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
  void passBegins(const Scene&, const Violated&) override { brokenBefore_ = gDischargeBroken; }

  void passEnded(const Pass& pass, const Scene& scene, const Violated& violated) override {
    if (!gateHasKeys() || !cuts(scene, pass.journalFrom, pass.journalTo)) return;
    if (const auto reason = noReasonToCut(pass, scene, brokenBefore_)) {
      violated(4, "the adapter was cut " + *reason);
    }
  }

  // Nothing but a pass cuts.
  void turnEnded(const Turn& turn, const Scene& scene, const Violated& violated) override {
    if (!gateHasKeys()) return;
    std::uint64_t from = turn.journalFrom;
    for (const Pass& pass : turn.passes) {
      judgeOutside(scene, from, pass.journalFrom, violated);
      from = pass.journalTo;
    }
    judgeOutside(scene, from, turn.journalTo, violated);
  }

 private:
  static bool cuts(const Scene& scene, std::uint64_t from, std::uint64_t to) {
    for (; from < to; ++from) {
      if (asksForCut(entryOf(scene, from), *gGate)) return true;
    }
    return false;
  }
  static void judgeOutside(const Scene& scene, std::uint64_t from, std::uint64_t to,
                           const Violated& violated) {
    if (cuts(scene, from, to)) violated(4, "the adapter was cut outside of a pass");
  }

  bool brokenBefore_ = false;
};

// ---------------------------------------------------------------------------------------------------------
// 12: only own keys

bool isLight(const JournalEntry& entry) { return entry.key == keyCode("ACLC"); }

// What an earlier life may have left where this one has no use for the keys is undone once, at the start.
bool undoesALeftover(const JournalEntry& entry, const Carried& carried) {
  if (entry.bytes[0] != 0) return false;
  if (entry.key == keyCode("CHIE")) return carried.cutWasLeft;
  return isLight(entry) && !carried.gateKnown;
}

bool mayBeWritten(const JournalEntry& entry, std::uint64_t number, const Carried& carried) {
  if (carried.gateKnown && (isLight(entry) || isOfGate(entry, carried.gate))) return true;
  const bool usesKeys = carried.gateKnown && carried.gate.charge != ChargeKeys::macOSLimit;
  return !usesKeys && number < carried.startTo && undoesALeftover(entry, carried);
}

void judgeKeys(const Turn& turn, const Scene& scene, const Violated& violated) {
  const Carried& carried = scene.carried();
  if (!carried.stepSevenReached) return;
  for (std::uint64_t number = turn.journalFrom; number < turn.journalTo; ++number) {
    const JournalEntry& entry = entryOf(scene, number);
    if (isWrite(entry) && !mayBeWritten(entry, number, carried)) {
      violated(12, "the write " + lives::journalText(entry));
    }
  }
}

class OnlyOwnKeys final : public Rule {
 public:
  void turnEnded(const Turn& turn, const Scene& scene, const Violated& violated) override {
    judgeKeys(turn, scene, violated);
    countLeftovers(turn, scene, violated);
  }

 private:
  void countLeftovers(const Turn& turn, const Scene& scene, const Violated& violated) {
    const std::uint64_t to = std::min(turn.journalTo, scene.carried().startTo);
    for (std::uint64_t number = turn.journalFrom; number < to; ++number) {
      const JournalEntry& entry = entryOf(scene, number);
      if (!isWrite(entry)) continue;
      int& times = isLight(entry) ? lightWrites_ : cutWrites_;
      if (++times > 1) violated(12, "the write " + lives::journalText(entry) + " a second time at the start");
    }
  }

  int lightWrites_ = 0;
  int cutWrites_ = 0;
};

// ---------------------------------------------------------------------------------------------------------
// 13: quiet when steady

// Held to it are Macs with one key that obeys: a band is written again to move it, and a key that was
// undone. Between two passes the state may have been another one, before a sleep or while the app was away;
// then there was something to write.
class QuietWhenSteady final : public Rule {
 public:
  void turnEnded(const Turn&, const Scene&, const Violated&) override {
    if (gDormant) steady_ = false;
  }

  void passEnded(const Pass& pass, const Scene& scene, const Violated& violated) override {
    if (!pass.complete) return;
    const std::uint64_t disturbances = scene.circumstances().disturbances;
    const bool judged = steady_ && gGate && gGate->charge == ChargeKeys::chte && pass.before == state_ &&
                        pass.sample.state == state_ && disturbances == disturbances_ &&
                        keysObey(scene.machine(), *gGate);
    if (judged) judge(pass, scene, violated);
    steady_ = true;
    state_ = pass.sample.state;
    disturbances_ = disturbances;
    writtenTo_ = pass.journalTo;
  }

 private:
  void judge(const Pass& pass, const Scene& scene, const Violated& violated) const {
    for (std::uint64_t number = writtenTo_; number < pass.journalTo; ++number) {
      const JournalEntry& entry = entryOf(scene, number);
      if (!isOfGate(entry, *gGate)) continue;
      violated(13, "the write " + lives::journalText(entry) + " while the state stayed " + stateName(state_));
    }
  }

  bool steady_ = false;
  ChargeState state_{};
  std::uint64_t disturbances_ = 0;
  std::uint64_t writtenTo_ = 0;
};

// ---------------------------------------------------------------------------------------------------------
// 1: the exit gives back

std::optional<std::string> keptKey(const Carried& carried, const Machine& machine) {
  const GateWords words = wordsOf(carried.gate);
  const GateKeys keys = keysOf(carried.gate, machine);
  // Half of a pair stops the charging as the whole does.
  const bool second = words.secondStop.code != 0 && keys.second;
  if (keys.first || second) return "the charging stayed stopped";
  if (keys.cut) return "the adapter stayed cut";
  return std::nullopt;
}

bool lightWasKept(const Carried& carried, const Machine& machine) {
  constexpr KeyWord light{.code = keyCode("ACLC"), .size = 1};
  return carried.lightSupported && accepts(machine, light) &&
         virtual_mac::findKey(machine, light.code)->bytes[0] != LED_SYSTEM;
}

void judgeExit(const Scene& scene, const Violated& violated) {
  const Carried& carried = scene.carried();
  const Machine& machine = scene.machine();
  if (!carried.gateKnown) return;
  if (keysAccept(machine, carried.gate)) {
    if (const auto kept = keptKey(carried, machine)) violated(1, *kept + " after the exit");
  }
  if (lightWasKept(carried, machine)) violated(1, "the light was not handed back at the exit");
}

}  // namespace

void addKeyRules(Rules& rules) {
  rules.push_back(std::make_unique<NoCutOverOpen>());
  rules.push_back(std::make_unique<CutOnlyWhenWanted>());
  rules.push_back(std::make_unique<OnlyOwnKeys>());
  rules.push_back(std::make_unique<QuietWhenSteady>());
  // After the others, which compare with what it noted before.
  rules.push_back(std::make_unique<NotesForTheEnd>());
}

void judgeChargeAtEnd(const LifeEnd& end, const Scene& scene, const Violated& violated) {
  const Carried& carried = scene.carried();
  if (!carried.stepSevenReached) return;
  // A life that was killed, or that aborted, gives nothing back.
  if (end.status) judgeExit(scene, violated);
  judgeOrder(end.rest, scene, violated);
  judgeKeys(end.rest, scene, violated);
  if (!end.status || !carried.gateKnown) return;
  for (std::uint64_t number = std::max(carried.passedTo, end.rest.journalFrom); number < end.rest.journalTo;
       ++number) {
    if (asksForCut(entryOf(scene, number), carried.gate)) violated(4, "the adapter was cut at the exit");
  }
}

}  // namespace brisko::lab
