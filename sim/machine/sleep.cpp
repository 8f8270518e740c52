#include "sim/machine/sleep.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <limits>

#include "platform/system_power.h"
#include "sim/machine/journal.h"
#include "sim/machine/physics.h"

namespace brisko::virtual_mac {
namespace {

using platform::KernelStatus;
using platform::PowerMessage;

constexpr double none = -1;
constexpr double usualScheduledWake = 45;  // seconds

double orNever(double at) {
  if (at < 0) return never;
  return at;
}

// --- Messages

PowerNotice& placeOf(Sleep& sleep, std::uint32_t token) { return sleep.notices[token % noticePlaces]; }

void send(Machine& machine, PowerMessage message) {
  Sleep& sleep = machine.sleep;
  if (sleep.client == 0) return;
  const std::uint32_t token = ++sleep.noticesSent;
  placeOf(sleep, token) = {.sentAt = machine.now,
                           .answeredAt = none,
                           .type = static_cast<std::uint32_t>(message),
                           .token = token,
                           .awaitsAnswer = message != PowerMessage::systemHasPoweredOn};
}

// A stage that a message begins lasts until it is answered. If there is no client, or none worth waiting for,
// it ends at once.
void beginStage(Machine& machine, SleepStage stage, PowerMessage message) {
  send(machine, message);
  Sleep& sleep = machine.sleep;
  sleep.stage = stage;
  const bool waits = sleep.client != 0 && sleep.lateAnswers < lateTimeout;
  sleep.stageEndsAt = machine.now + (waits ? answerTimeout : 0);
}

void rewriteCapabilities(Machine& machine, std::uint32_t capabilities) {
  machine.system.capabilities = capabilities;
}

// --- Scheduled events

bool endsSleep(const ScheduledEvent& event) {
  const std::string_view type = textOf(event.type);
  return event.pending && (type == "wake" || type == "wakepoweron");
}

// As machine time.
double dueAt(const Machine& machine, const ScheduledEvent& event) {
  return event.date - machine.system.wallOffset;
}

double nextScheduledWake(const Machine& machine) {
  double next = never;
  for (const ScheduledEvent& event : machine.sleep.events) {
    if (endsSleep(event)) next = std::min(next, dueAt(machine, event));
  }
  return next;
}

void purgePastEvents(Machine& machine) {
  for (ScheduledEvent& event : machine.sleep.events) {
    if (event.pending && dueAt(machine, event) <= machine.now) event = {};
  }
}

bool isEventType(std::string_view type) {
  constexpr std::array<std::string_view, 6> types{"wake",  "poweron",  "wakepoweron",
                                                  "sleep", "shutdown", "restart"};
  return std::find(types.begin(), types.end(), type) != types.end();
}

ScheduledEvent eventOf(double date, std::string_view identifier, std::string_view type) {
  return {.pending = true, .date = date, .identifier = shortText(identifier), .type = shortText(type)};
}

bool same(const ScheduledEvent& left, const ScheduledEvent& right) {
  return left.pending == right.pending && left.date == right.date && left.identifier == right.identifier &&
         left.type == right.type;
}

KernelStatus addEvent(Machine& machine, const ScheduledEvent& event) {
  Sleep& sleep = machine.sleep;
  if (sleep.scheduleStatus != platform::kernelSuccess) return sleep.scheduleStatus;
  if (machine.system.pretendedUserId != 0) return platform::kernelNotPrivileged;
  if (!std::isfinite(event.date) || !isEventType(textOf(event.type))) return platform::kernelBadArgument;
  purgePastEvents(machine);
  auto* place = std::find_if(sleep.events.begin(), sleep.events.end(),
                             [](const ScheduledEvent& other) { return !other.pending; });
  if (place == sleep.events.end()) return platform::kernelNoSpace;
  // A date in the past is accepted, and removed together with the other past ones.
  if (dueAt(machine, event) > machine.now) *place = event;
  return platform::kernelSuccess;
}

KernelStatus removeEvent(Sleep& sleep, const ScheduledEvent& event) {
  auto* found = std::find_if(sleep.events.begin(), sleep.events.end(),
                             [&event](const ScheduledEvent& other) { return same(other, event); });
  if (found == sleep.events.end()) return platform::kernelNotFound;
  *found = {};
  return platform::kernelSuccess;
}

// --- The journal

void noteEvent(const Machine& machine, Journal& journal, std::uint8_t command, double date,
               KernelStatus status) {
  JournalEntry& entry = newEntry(machine, journal, command);
  entry.status = status;
  entry.size = sizeof date;
  std::memcpy(entry.bytes.data(), &date, sizeof date);
}

// --- Falling asleep

void announceSleep(Machine& machine) {
  beginStage(machine, SleepStage::announced, PowerMessage::systemWillSleep);
}

// Nobody delays the sleep any more. If something refuses it altogether, no message follows, and only the
// capabilities are written once more.
void beginToFall(Machine& machine) {
  Sleep& sleep = machine.sleep;
  if (sleep.refused) {
    sleep.stage = SleepStage::none;
    sleep.stageEndsAt = none;
    rewriteCapabilities(machine, fullWake);
    return;
  }
  sleep.stage = SleepStage::falling;
  sleep.stageEndsAt = machine.now + fallingSeconds;
}

// The capabilities stay as they were: macOS writes them when a wake ends, not when a sleep begins.
void fallAsleep(Machine& machine) {
  Sleep& sleep = machine.sleep;
  machine.system.asleep = true;
  sleep.stage = SleepStage::none;
  sleep.stageEndsAt = none;
  sleep.dark = false;
  sleep.darkUntil = none;
  purgePastEvents(machine);
}

// An answer has come, or is no longer waited for.
void leaveStage(Machine& machine) {
  switch (machine.sleep.stage) {
    case SleepStage::asked:
      announceSleep(machine);
      break;
    case SleepStage::announced:
      beginToFall(machine);
      break;
    case SleepStage::falling:
      fallAsleep(machine);
      break;
    case SleepStage::none:
      break;
  }
}

// The stage ended without an answer.
void countLate(Sleep& sleep) {
  const bool waited = sleep.stage == SleepStage::asked || sleep.stage == SleepStage::announced;
  if (waited && sleep.client != 0 && sleep.lateAnswers < lateTimeout) ++sleep.lateAnswers;
}

bool isFullyAwake(const Machine& machine) {
  return machine.system.poweredOn && !machine.system.asleep && !machine.sleep.dark;
}

void notifyPoweredOn(Machine& machine) {
  machine.sleep.poweredOnAt = none;
  send(machine, PowerMessage::systemHasPoweredOn);
}

// A wake that is still under way is finished first, so that messages keep their order.
void finishWake(Machine& machine) {
  if (machine.sleep.poweredOnAt >= 0) notifyPoweredOn(machine);
}

void followSchedule(Machine& machine) {
  const double seconds = machine.sleep.scheduledWakeSeconds;
  if (seconds > 0) {
    wakeDark(machine, seconds);
  } else {
    wakeFully(machine);
  }
}

}  // namespace

Sleep freshSleep() {
  Sleep sleep{};
  sleep.stageEndsAt = none;
  sleep.darkUntil = none;
  sleep.poweredOnAt = none;
  sleep.scheduledWakeSeconds = usualScheduledWake;
  return sleep;
}

void endSleep(Machine& machine) {
  Sleep& sleep = machine.sleep;
  sleep.stage = SleepStage::none;
  sleep.stageEndsAt = none;
  sleep.dark = false;
  sleep.darkUntil = none;
  sleep.poweredOnAt = none;
  forgetPowerClient(machine);
  purgePastEvents(machine);
}

double nextSleepEvent(const Machine& machine) {
  const Sleep& sleep = machine.sleep;
  if (machine.system.asleep) return nextScheduledWake(machine);
  return std::min({orNever(sleep.stageEndsAt), orNever(sleep.darkUntil), orNever(sleep.poweredOnAt)});
}

void applySleepEvent(Machine& machine) {
  Sleep& sleep = machine.sleep;
  const bool reached = adapterReachesBattery(machine);
  if (machine.system.asleep) {
    followSchedule(machine);
  } else if (orNever(sleep.poweredOnAt) <= machine.now) {
    notifyPoweredOn(machine);
  } else if (orNever(sleep.darkUntil) <= machine.now) {
    fallAsleep(machine);
  } else {
    countLate(sleep);
    leaveStage(machine);
  }
  settle(machine, reached);
}

void closeLid(Machine& machine) {
  const SleepStage stage = machine.sleep.stage;
  if (!machine.system.poweredOn || machine.system.asleep) return;
  if (machine.sleep.dark) {
    fallAsleep(machine);
  } else if (stage == SleepStage::none || stage == SleepStage::asked) {
    finishWake(machine);
    announceSleep(machine);
  }
}

void askForSleep(Machine& machine) {
  if (!isFullyAwake(machine) || machine.sleep.stage != SleepStage::none) return;
  finishWake(machine);
  beginStage(machine, SleepStage::asked, PowerMessage::canSystemSleep);
}

void wakeFully(Machine& machine) {
  Sleep& sleep = machine.sleep;
  if (!machine.system.asleep && !sleep.dark) return;
  machine.system.asleep = false;
  sleep.dark = false;
  sleep.darkUntil = none;
  sleep.poweredOnAt = machine.now + poweredOnDelay;
  rewriteCapabilities(machine, fullWake);
  purgePastEvents(machine);
}

void wakeDark(Machine& machine, double seconds) {
  if (!machine.system.asleep) return;
  machine.system.asleep = false;
  machine.sleep.dark = true;
  machine.sleep.darkUntil = machine.now + seconds;
  rewriteCapabilities(machine, darkWake);
  purgePastEvents(machine);
}

bool registerPowerClient(Machine& machine, std::int64_t process) {
  if (machine.sleep.refusesClients) return false;
  machine.sleep.client = process;
  machine.sleep.lateAnswers = 0;
  return true;
}

void forgetPowerClient(Machine& machine) {
  Sleep& sleep = machine.sleep;
  sleep.client = 0;
  const bool waits = sleep.stage == SleepStage::asked || sleep.stage == SleepStage::announced;
  if (waits) sleep.stageEndsAt = machine.now;
}

void noteReceived(const Machine& machine, Journal& journal, const PowerNotice& notice) {
  newEntry(machine, journal, journalReceived).key = notice.type;
}

void allowPowerChange(Machine& machine, Journal& journal, std::uint32_t token) {
  Sleep& sleep = machine.sleep;
  PowerNotice& notice = placeOf(sleep, token);
  const bool known = notice.type != 0 && notice.token == token;
  newEntry(machine, journal, journalAnswered).key = known ? notice.type : 0;
  if (!known || !notice.awaitsAnswer || notice.answeredAt >= 0) {
    ++sleep.strayAnswers;
    return;
  }
  notice.answeredAt = machine.now;
  // An answer that comes too late finds that the sleep has proceeded without it.
  const bool waits = sleep.stage == SleepStage::asked || sleep.stage == SleepStage::announced;
  if (!waits || token != sleep.noticesSent) return;
  sleep.lateAnswers = 0;
  leaveStage(machine);
}

KernelStatus scheduleEvent(Machine& machine, Journal& journal, double date, std::string_view identifier,
                           std::string_view type) {
  const KernelStatus status = addEvent(machine, eventOf(date, identifier, type));
  noteEvent(machine, journal, journalScheduled, date, status);
  return status;
}

KernelStatus cancelEvent(Machine& machine, Journal& journal, double date, std::string_view identifier,
                         std::string_view type) {
  const KernelStatus status = removeEvent(machine.sleep, eventOf(date, identifier, type));
  noteEvent(machine, journal, journalCancelled, date, status);
  return status;
}

}  // namespace brisko::virtual_mac
