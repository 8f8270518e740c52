#include <algorithm>
#include <cstring>

#include "base/options.h"
#include "base/paths.h"
#include "base/process_flags.h"
#include "base/settings.h"
#include "hardware/battery.h"
#include "hardware/charge_gate.h"
#include "hardware/scheduled_wake.h"
#include "platform/system_power.h"
#include "policy/charge_bounds.h"
#include "sim/invariants/premises.h"
#include "sim/invariants/rule.h"
#include "sim/invariants/shown.h"
#include "state/calibration_state.h"

namespace brisko::lab {
namespace {

using platform::PowerMessage;
using virtual_mac::JournalEntry;
using virtual_mac::ScheduledEvent;

double dateOf(const JournalEntry& entry) {
  double date = 0;
  std::memcpy(&date, entry.bytes.data(), sizeof date);
  return date;
}

// ---------------------------------------------------------------------------------------------------------
// 18. Scheduled wakes.

bool isStrange(const Carried& carried, double date) {
  const auto end = carried.strangeWakes.begin() + static_cast<std::ptrdiff_t>(carried.strangeWakeCount);
  return std::find(carried.strangeWakes.begin(), end, date) != end;
}

void forgetWake(Carried& carried, double date) {
  if (isStrange(carried, date) || carried.strangeWakeCount == carried.strangeWakes.size()) return;
  carried.strangeWakes[carried.strangeWakeCount++] = date;
}

bool isOfTheDaemon(const ScheduledEvent& event) {
  return event.pending && virtual_mac::textOf(event.identifier) == wakeEventID;
}

// Of this life: one that was killed leaves its wake behind, and the next does not know of it.
std::size_t wakesOfThisLife(const Scene& scene) {
  const auto& events = scene.machine().sleep.events;
  return static_cast<std::size_t>(
      std::count_if(events.begin(), events.end(), [&](const ScheduledEvent& event) {
        return isOfTheDaemon(event) && !isStrange(scene.carried(), event.date);
      }));
}

// What the system does not cancel is not tried again.
void forgetUncancelled(const Scene& scene, std::uint64_t from, std::uint64_t to) {
  forEntries(scene, from, to, [&](const JournalEntry& entry) {
    if (entry.command == virtual_mac::journalCancelled && entry.status != 0) {
      forgetWake(scene.carried(), dateOf(entry));
    }
    return true;
  });
}

class Wakes final : public Rule {
 public:
  void passBegins(const Scene& scene, const Violated&) override { meet(scene); }

  void turnEnded(const Turn& turn, const Scene& scene, const Violated& violated) override {
    meet(scene);
    if (turn.journalFrom == turn.journalTo && !gDormant) return;
    forgetUncancelled(scene, turn.journalFrom, turn.journalTo);
    const std::size_t pending = wakesOfThisLife(scene);
    if (pending > 1) violated(18, std::to_string(pending) + " wakes are scheduled");
    if (pending == 0) return;
    const bool wakes = firstEntry(scene, turn.journalFrom, turn.journalTo, [](const JournalEntry& entry) {
                         return isHeard(entry, PowerMessage::systemHasPoweredOn);
                       }) != nullptr;
    if (wakes) violated(18, "a wake is scheduled after a full wake");
    if (gDormant) violated(18, "a wake is scheduled while dormant");
  }

 private:
  void meet(const Scene& scene) {
    if (met_) return;
    met_ = true;
    scene.carried().strangeWakesKnown = true;
    for (const ScheduledEvent& event : scene.machine().sleep.events) {
      if (isOfTheDaemon(event)) forgetWake(scene.carried(), event.date);
    }
  }

  bool met_ = false;
};

// ---------------------------------------------------------------------------------------------------------
// 19. The plan for a sleep.

class SleepPlans final : public Rule {
 public:
  void passEnded(const Pass&, const Scene&, const Violated&) override { state_ = gState; }

  void turnEnded(const Turn& turn, const Scene& scene, const Violated& violated) override {
    const ChargeState before = state_;
    state_ = gState;
    const bool announced = firstEntry(scene, turn.journalFrom, turn.journalTo, [](const JournalEntry& entry) {
                             return isHeard(entry, PowerMessage::systemWillSleep);
                           }) != nullptr;
    if (!announced || gDormant || !gGate || gateIsMacOSLimit()) return;
    const auto power = powerState();
    if (!power) return;
    // Without settings the band of the command line is kept, whatever they would have said.
    const auto settings = readConfig(gConfigPath);
    if (!settings) return;

    const Bounds band = bounds(settings->limit, gCliLower, settings->hysteresis);
    // A calibration's drain may go on asleep, with the adapter cut.
    const bool keepsTheBand = settings->enabled && !settings->topUp && gCal.phase == CalPhase::idle &&
                              adapterIsSeen(scene.machine());
    const Planned planned = plannedIn(turn, scene);
    if (keepsTheBand && power->pct >= band.lower) return judgeFreeze(planned, scene, violated);
    if (gState != before) violated(19, "the sleep that is to be left alone changed the state");
    if (keepsTheBand) return judgeWake(planned, violated);
    if (planned.wakes > 0) violated(19, "a wake was scheduled for a sleep that is to be left alone");
  }

 private:
  struct Planned {
    int wakes = 0;
    double minutes = 0;  // until the last of them
    bool refused = false;
  };

  static Planned plannedIn(const Turn& turn, const Scene& scene) {
    Planned planned;
    forEntries(scene, turn.journalFrom, turn.journalTo, [&](const JournalEntry& entry) {
      if (entry.command != virtual_mac::journalScheduled) return true;
      if (entry.status != 0) {
        planned.refused = true;
        return true;
      }
      ++planned.wakes;
      planned.minutes = (dateOf(entry) - entry.time - scene.machine().system.wallOffset) / 60;
      return true;
    });
    // On a full disk nobody hears of it.
    planned.refused = planned.refused && (scene.circumstances().diskIsFull ||
                                          anyLineSays(turn, "⚠️ impossible de programmer un réveil"));
    return planned;
  }

  static void judgeFreeze(const Planned& planned, const Scene& scene, const Violated& violated) {
    if (planned.wakes > 0) violated(19, "a wake was scheduled for a sleep with the gate closed");
    if (gState != ChargeState::hold) violated(19, "the band is not frozen");
    // Keys that somebody else opened meanwhile are only closed again by the next tick.
    const Circumstances& so = scene.circumstances();
    if (so.disturbedAt > so.launchedAt || !keysObey(scene.machine(), *gGate)) return;
    // A firmware that keeps the band itself may charge below it.
    if (gGate->charge != ChargeKeys::firmwareBand && virtual_mac::chargingIsOpen(scene.machine())) {
      violated(19, "the charge keys are open at the beginning of a sleep");
    }
    if (scene.machine().adapter.present && !virtual_mac::adapterReachesBattery(scene.machine())) {
      violated(19, "the adapter is cut at the beginning of a sleep");
    }
  }

  static void judgeWake(const Planned& planned, const Violated& violated) {
    if (planned.refused && planned.wakes == 0) return;
    if (planned.wakes != 1) {
      return violated(19, std::to_string(planned.wakes) + " wakes were scheduled for a sleep below the band");
    }
    constexpr double rounding = 1e-3;
    if (planned.minutes < 5 - rounding || planned.minutes > 45 + rounding) {
      violated(19, "a wake was scheduled in " + std::to_string(planned.minutes) + " minutes");
    }
  }

  ChargeState state_ = gState;  // after the turn or pass before
};

// ---------------------------------------------------------------------------------------------------------
// 20. Answers.

// The first message of a stretch that was not answered as it should be; "" for none. A message that is left
// without an answer counts where the daemon went on, and not where it ended in the middle of it.
std::string unanswered(const Scene& scene, std::uint64_t from, std::uint64_t to) {
  std::uint32_t open = 0;  // the message that waits for its answer
  std::string fault;
  forEntries(scene, from, to, [&](const JournalEntry& entry) {
    if (isHeard(entry, PowerMessage::canSystemSleep) || isHeard(entry, PowerMessage::systemWillSleep)) {
      if (open != 0) fault = "a message was not answered before the next";
      open = entry.key;
    } else if (entry.command == virtual_mac::journalAnswered) {
      if (open == 0 || open != entry.key) fault = "an answer to nothing that was asked";
      open = 0;
    }
    return fault.empty();
  });
  if (!fault.empty()) return fault;
  return open == 0 ? "" : "a message was not answered at once";
}

class Answers final : public Rule {
 public:
  void turnEnded(const Turn& turn, const Scene& scene, const Violated& violated) override {
    if (turn.journalFrom == turn.journalTo) return;
    const std::string fault = unanswered(scene, turn.journalFrom, turn.journalTo);
    if (!fault.empty()) violated(20, fault);
  }
};

// ---------------------------------------------------------------------------------------------------------
// 21. The quiet before a sleep.

class QuietBeforeSleep final : public Rule {
 public:
  void passEnded(const Pass& pass, const Scene& scene, const Violated& violated) override {
    note(pass.at, scene);
    // The app, a signal and the deletion of the app may still bring keys to be written, a tick may not.
    if (quietIn_ && firstEntry(scene, pass.journalFrom, pass.journalTo, isGateWrite) != nullptr) {
      violated(21, "a tick wrote a key of the gate");
    }
  }

  void turnEnded(const Turn& turn, const Scene& scene, const Violated& violated) override {
    note(turn.at, scene);
    for (std::size_t index = 0; quietIn_ && index < turn.files.size(); ++index) {
      const FileChange& change = turn.files[index];
      const bool published = change.path == statusPath || change.path.starts_with(historyDir);
      if (published && isWritten(change)) violated(21, change.path + " was written");
    }
    // What comes with the announcement itself is no tick's.
    forEntries(scene, turn.journalFrom, turn.journalTo, [&](const JournalEntry& entry) {
      if (isHeard(entry, PowerMessage::systemWillSleep)) since_ = entry.time + wallOffset(scene);
      if (isHeard(entry, PowerMessage::systemHasPoweredOn)) since_.reset();
      return true;
    });
  }

 private:
  static constexpr double quietSeconds = 30;

  static double wallOffset(const Scene& scene) { return scene.machine().system.wallOffset; }

  // Whether ticks have to be quiet at this machine time. Once they need not any longer, a clock that is set
  // back changes nothing. A system that is locked is only looked at, at any time.
  void note(double at, const Scene& scene) {
    if (since_ && at + wallOffset(scene) - *since_ >= quietSeconds) since_.reset();
    quietIn_ = since_.has_value() && !gSystemLocked && !wakes(scene);
  }

  // The full wake ends the quiet in the same turn in which it is heard.
  static bool wakes(const Scene& scene) {
    const std::uint64_t from = scene.carried().journalSeen;
    return firstEntry(scene, from, scene.journal().written, [](const JournalEntry& entry) {
             return isHeard(entry, PowerMessage::systemHasPoweredOn);
           }) != nullptr;
  }

  std::optional<double> since_;  // wall clock of the announcement
  bool quietIn_ = false;
};

}  // namespace

void addSleepRules(Rules& rules) {
  rules.push_back(std::make_unique<Wakes>());
  rules.push_back(std::make_unique<SleepPlans>());
  rules.push_back(std::make_unique<Answers>());
  rules.push_back(std::make_unique<QuietBeforeSleep>());
}

void judgeSleepAtEnd(const LifeEnd& end, const Scene& scene, const Violated& violated) {
  // Who is killed or gives up in the middle leaves everything as it is.
  if (!end.status) return;
  forgetUncancelled(scene, end.rest.journalFrom, end.rest.journalTo);
  const bool known = scene.carried().strangeWakesKnown;
  if (known && wakesOfThisLife(scene) > 0) violated(18, "a wake is still scheduled after the exit");
  const std::string fault = unanswered(scene, end.rest.journalFrom, end.rest.journalTo);
  if (!fault.empty()) violated(20, fault);
}

}  // namespace brisko::lab
