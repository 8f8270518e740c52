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
#include "sim/invariants/observed.h"
#include "sim/invariants/preconditions.h"
#include "sim/invariants/rule.h"
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

// --- Scheduled wakes

constexpr Invariant oneScheduledWake{
    18, "At most one wake of ours is scheduled; none after a full wake, an exit or when dormant."};

bool isForeign(const ProcessSummary& processSummary, double date) {
  const auto end =
      processSummary.foreignWakes.begin() + static_cast<std::ptrdiff_t>(processSummary.foreignWakeCount);
  return std::find(processSummary.foreignWakes.begin(), end, date) != end;
}

void forgetWake(ProcessSummary& processSummary, double date) {
  if (isForeign(processSummary, date) ||
      processSummary.foreignWakeCount == processSummary.foreignWakes.size())
    return;
  processSummary.foreignWakes[processSummary.foreignWakeCount++] = date;
}

bool isOfTheDaemon(const ScheduledEvent& event) {
  return event.pending && virtual_mac::textOf(event.identifier) == wakeEventID;
}

// Counts the wakes of this process: one that was killed leaves its wake behind, and the next does not know of
// it.
std::size_t wakesOfThisProcess(const Observation& observation) {
  const auto& events = observation.machine().sleep.events;
  return static_cast<std::size_t>(
      std::count_if(events.begin(), events.end(), [&](const ScheduledEvent& event) {
        return isOfTheDaemon(event) && !isForeign(observation.processSummary(), event.date);
      }));
}

// A wake that the system refused to cancel is not cancelled again.
void forgetUncancelled(const Observation& observation, std::uint64_t from, std::uint64_t to) {
  forEntries(observation, from, to, [&](const JournalEntry& entry) {
    if (entry.command == virtual_mac::journalCancelled && entry.status != 0) {
      forgetWake(observation.processSummary(), dateOf(entry));
    }
    return true;
  });
}

class Wakes final : public Rule {
 public:
  void tickBegins(const Observation& observation, const Violated&) override { meet(observation); }

  void iterationEnded(const LoopIteration& iteration, const Observation& observation,
                      const Violated& violated) override {
    meet(observation);
    if (iteration.journalFrom == iteration.journalTo && !gDormant) return;
    forgetUncancelled(observation, iteration.journalFrom, iteration.journalTo);
    const std::size_t pending = wakesOfThisProcess(observation);
    if (pending > 1) violated(oneScheduledWake, std::to_string(pending) + " wakes are scheduled");
    if (pending == 0) return;
    const bool wakes =
        firstEntry(observation, iteration.journalFrom, iteration.journalTo, [](const JournalEntry& entry) {
          return isReceived(entry, PowerMessage::systemHasPoweredOn);
        }) != nullptr;
    if (wakes) violated(oneScheduledWake, "a wake is scheduled after a full wake");
    if (gDormant) violated(oneScheduledWake, "a wake is scheduled while dormant");
  }

 private:
  void meet(const Observation& observation) {
    if (met_) return;
    met_ = true;
    observation.processSummary().foreignWakesKnown = true;
    for (const ScheduledEvent& event : observation.machine().sleep.events) {
      if (isOfTheDaemon(event)) forgetWake(observation.processSummary(), event.date);
    }
  }

  bool met_ = false;
};

// --- The plan for a sleep

constexpr Invariant sleepPlan{19,
                              "Before sleep the band is frozen, or below it one wake is planned 5 to 45 "
                              "minutes ahead (guarded: 3 to 180, "
                              "or the Mac stays awake)."};

class SleepPlans final : public Rule {
 public:
  void tickEnded(const TickRecord&, const Observation&, const Violated&) override { state_ = gState; }

  void iterationEnded(const LoopIteration& iteration, const Observation& observation,
                      const Violated& violated) override {
    const ChargeState before = state_;
    state_ = gState;
    const bool announced =
        firstEntry(observation, iteration.journalFrom, iteration.journalTo, [](const JournalEntry& entry) {
          return isReceived(entry, PowerMessage::systemWillSleep);
        }) != nullptr;
    if (!announced || gDormant || !gGate || gateIsMacOSLimit()) return;
    const auto power = powerState();
    if (!power) return;
    // Without settings the band of the command line stays, whatever the settings would have contained.
    const auto settings = readConfig(gConfigPath);
    if (!settings) return;

    const Bounds band = bounds(settings->limit, gCliLower, settings->hysteresis);
    // A calibration's drain may continue asleep, with the adapter cut.
    const bool keepsTheBand = settings->enabled && !settings->topUp && gCal.phase == CalPhase::idle &&
                              adapterIsSeen(observation.machine());
    const Planned planned = plannedIn(iteration, observation);
    if (gGuards.night) return checkGuarded(*settings, power->pct, before, planned, observation, violated);
    if (keepsTheBand && power->pct >= band.lower) return checkFreeze(planned, observation, violated);
    if (gState != before) violated(sleepPlan, "the sleep that is to be left alone changed the state");
    if (keepsTheBand) return checkWake(planned, violated);
    if (planned.wakes > 0) violated(sleepPlan, "a wake was scheduled for a sleep that is to be left alone");
  }

 private:
  struct Planned {
    int wakes = 0;
    double minutes = 0;  // until the last of the wakes
    bool refused = false;
  };

  static Planned plannedIn(const LoopIteration& iteration, const Observation& observation) {
    Planned planned;
    forEntries(observation, iteration.journalFrom, iteration.journalTo, [&](const JournalEntry& entry) {
      if (entry.command != virtual_mac::journalScheduled) return true;
      if (entry.status != 0) {
        planned.refused = true;
        return true;
      }
      ++planned.wakes;
      planned.minutes = (dateOf(entry) - entry.time - observation.machine().system.wallOffset) / 60;
      return true;
    });
    // On a full disk the warning does not reach the log.
    planned.refused =
        planned.refused && (observation.disturbances().diskIsFull ||
                            anyLineStartsWith(iteration, "⚠️ impossible de programmer un réveil"));
    return planned;
  }

  // The guard prepares for an adapter that is plugged in asleep, too.
  static void checkGuarded(const Settings& settings, std::int64_t pct, ChargeState before,
                           const Planned& planned, const Observation& observation, const Violated& violated) {
    constexpr std::int64_t noLimit = 100;
    const Bounds band = bounds(settings.limit, gCliLower, settings.hysteresis);
    const bool plugged = adapterIsSeen(observation.machine());
    const bool limited = settings.enabled && !settings.topUp && gCal.phase == CalPhase::idle &&
                         (plugged || band.upper < noLimit);
    if (limited && pct >= band.lower) return checkFreeze(planned, observation, violated);
    if (limited && band.upper < noLimit) return checkStep(planned, observation, violated);
    if (gState != before) violated(sleepPlan, "the sleep that is to be left alone changed the state");
    if (planned.wakes > 0) violated(sleepPlan, "a wake was scheduled for a sleep that is to be left alone");
  }

  static void checkStep(const Planned& planned, const Observation& observation, const Violated& violated) {
    if (planned.wakes == 0) {
      const bool settled = planned.refused || gState == ChargeState::hold;
      if (!settled && !observation.machine().sleep.preventedByClient)
        violated(sleepPlan, "a sleep below the band begins without a wake");
      return;
    }
    if (planned.wakes > 1) violated(sleepPlan, std::to_string(planned.wakes) + " wakes were scheduled");
    constexpr double rounding = 1e-3;
    if (planned.minutes < 3 - rounding || planned.minutes > 180 + rounding) {
      violated(sleepPlan, "a wake was scheduled in " + std::to_string(planned.minutes) + " minutes");
    }
  }

  static void checkFreeze(const Planned& planned, const Observation& observation, const Violated& violated) {
    if (planned.wakes > 0) violated(sleepPlan, "a wake was scheduled for a sleep with the gate closed");
    if (gState != ChargeState::hold) violated(sleepPlan, "the band is not frozen");
    // Keys that somebody else opened meanwhile are closed only by the next tick.
    const Disturbances& disturbances = observation.disturbances();
    if (disturbances.disturbedAt > disturbances.launchedAt || !keysObey(observation.machine(), *gGate))
      return;
    // A firmware that keeps the band itself may charge below it.
    if (gGate->charge != ChargeKeys::firmwareBand && virtual_mac::chargingIsOpen(observation.machine())) {
      violated(sleepPlan, "the charge keys are open at the beginning of a sleep");
    }
    if (observation.machine().adapter.present && !virtual_mac::adapterReachesBattery(observation.machine())) {
      violated(sleepPlan, "the adapter is cut at the beginning of a sleep");
    }
  }

  static void checkWake(const Planned& planned, const Violated& violated) {
    if (planned.refused && planned.wakes == 0) return;
    if (planned.wakes != 1) {
      return violated(sleepPlan,
                      std::to_string(planned.wakes) + " wakes were scheduled for a sleep below the band");
    }
    constexpr double rounding = 1e-3;
    if (planned.minutes < 5 - rounding || planned.minutes > 45 + rounding) {
      violated(sleepPlan, "a wake was scheduled in " + std::to_string(planned.minutes) + " minutes");
    }
  }

  ChargeState state_ = gState;  // after the iteration or tick before
};

// --- Answers

constexpr Invariant promptAnswers{
    20, "Sleep is never delayed and never vetoed: each message gets one answer, at once."};

// The first message in the interval that was not answered as it should be; "" for none. A message left
// without an answer counts only if the daemon continued, not if it ended in the middle of it.
std::string unanswered(const Observation& observation, std::uint64_t from, std::uint64_t to) {
  std::uint32_t open = 0;  // the message that waits for its answer
  std::string fault;
  forEntries(observation, from, to, [&](const JournalEntry& entry) {
    if (isReceived(entry, PowerMessage::canSystemSleep) || isReceived(entry, PowerMessage::systemWillSleep)) {
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
  void iterationEnded(const LoopIteration& iteration, const Observation& observation,
                      const Violated& violated) override {
    if (iteration.journalFrom == iteration.journalTo) return;
    const std::string fault = unanswered(observation, iteration.journalFrom, iteration.journalTo);
    if (!fault.empty()) violated(promptAnswers, fault);
  }
};

// --- The quiet before a sleep

constexpr Invariant quietBeforeSleep{
    21, "While a sleep is about to begin no tick writes keys, status or history."};

class QuietBeforeSleep final : public Rule {
 public:
  void tickEnded(const TickRecord& tick, const Observation& observation, const Violated& violated) override {
    note(tick.at, observation);
    // The app, a signal and the deletion of the app may still cause key writes. A tick may not.
    if (quietIn_ && firstEntry(observation, tick.journalFrom, tick.journalTo, isGateWrite) != nullptr) {
      violated(quietBeforeSleep, "a tick wrote a key of the gate");
    }
  }

  void iterationEnded(const LoopIteration& iteration, const Observation& observation,
                      const Violated& violated) override {
    note(iteration.at, observation);
    for (std::size_t index = 0; quietIn_ && index < iteration.files.size(); ++index) {
      const FileChange& change = iteration.files[index];
      const bool published = change.path == statusPath || change.path.starts_with(historyDir);
      if (published && isWritten(change)) violated(quietBeforeSleep, change.path + " was written");
    }
    // What comes with the announcement itself does not count as a tick's write.
    forEntries(observation, iteration.journalFrom, iteration.journalTo, [&](const JournalEntry& entry) {
      if (isReceived(entry, PowerMessage::systemWillSleep)) since_ = entry.time + wallOffset(observation);
      if (isReceived(entry, PowerMessage::systemHasPoweredOn)) since_.reset();
      return true;
    });
  }

 private:
  static constexpr double quietSeconds = 30;

  static double wallOffset(const Observation& observation) { return observation.machine().system.wallOffset; }

  // Whether ticks must be quiet at this machine time. Once they need not be, a clock that is set back changes
  // nothing. While the system is locked the daemon only observes, so there is nothing to keep quiet.
  void note(double at, const Observation& observation) {
    if (since_ && at + wallOffset(observation) - *since_ >= quietSeconds) since_.reset();
    quietIn_ = since_.has_value() && !gSystemLocked && !wakes(observation);
  }

  // The full wake ends the pause in the same iteration in which the message arrives.
  static bool wakes(const Observation& observation) {
    const std::uint64_t from = observation.processSummary().journalSeen;
    return firstEntry(observation, from, observation.journal().written, [](const JournalEntry& entry) {
             return isReceived(entry, PowerMessage::systemHasPoweredOn);
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

void checkSleepAtEnd(const ProcessEnd& end, const Observation& observation, const Violated& violated) {
  // A process that is killed or aborts leaves everything as it is.
  if (!end.status) return;
  forgetUncancelled(observation, end.rest.journalFrom, end.rest.journalTo);
  const bool known = observation.processSummary().foreignWakesKnown;
  if (known && wakesOfThisProcess(observation) > 0)
    violated(oneScheduledWake, "a wake is still scheduled after the exit");
  const std::string fault = unanswered(observation, end.rest.journalFrom, end.rest.journalTo);
  if (!fault.empty()) violated(promptAnswers, fault);
}

}  // namespace brisko::lab
