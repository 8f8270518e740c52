#include "sim/machine/sleep.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <span>

#include "platform/system_power.h"
#include "sim/machine/journal.h"
#include "sim/machine/physics.h"

namespace brisko::virtual_mac {
namespace {

using platform::KernelStatus;
using platform::PowerMessage;

constexpr double settlingSeconds = 20;  // until the devices of a Mac on battery have settled: 5 to 45 s

bool isFullyAwake(const Machine& machine) {
  return machine.system.poweredOn && !machine.system.asleep && !machine.sleep.dark;
}

// --- Messages

PowerNotice& placeOf(Sleep& sleep, std::uint32_t token) { return sleep.notices[token % noticePlaces]; }

void send(Machine& machine, std::uint32_t type, bool awaitsAnswer) {
  Sleep& sleep = machine.sleep;
  if (sleep.client == 0) return;
  const std::uint32_t token = ++sleep.noticesSent;
  placeOf(sleep, token) = {
      .sentAt = machine.now, .answeredAt = unset, .type = type, .token = token, .awaitsAnswer = awaitsAnswer};
}

// A stage that a message begins lasts until it is answered. If there is no client, or none worth waiting for,
// it ends at once.
void beginStage(Machine& machine, SleepStage stage, PowerMessage message) {
  send(machine, static_cast<std::uint32_t>(message), true);
  Sleep& sleep = machine.sleep;
  sleep.stage = stage;
  sleep.unattendedAt = unset;
  const bool waits = sleep.client != 0 && sleep.lateAnswers < lateTimeout;
  sleep.stageEndsAt = machine.now + (waits ? answerTimeout : 0);
}

void endStage(Sleep& sleep) {
  sleep.stage = SleepStage::none;
  sleep.stageEndsAt = unset;
}

// --- Scheduled events

std::span<ScheduledEvent> eventsOf(Sleep& sleep) { return {sleep.events.data(), sleep.eventPlaces}; }
std::span<const ScheduledEvent> eventsOf(const Sleep& sleep) {
  return {sleep.events.data(), sleep.eventPlaces};
}

bool isWake(const ScheduledEvent& event) {
  const std::string_view type = textOf(event.type);
  return event.pending && !event.over && (type == "wake" || type == "wakepoweron");
}

// As machine time.
double dueAt(const Machine& machine, const ScheduledEvent& event) {
  return event.date - machine.system.wallOffset;
}

double nextScheduledWake(const Machine& machine) {
  double next = never;
  for (const ScheduledEvent& event : eventsOf(machine.sleep)) {
    if (isWake(event)) next = std::min(next, dueAt(machine, event));
  }
  return next;
}

void forgetEvent(Sleep& sleep, ScheduledEvent& event) {
  event = {};
  while (sleep.eventPlaces > 0 && !sleep.events[sleep.eventPlaces - 1].pending) --sleep.eventPlaces;
}

// Of wakes only, or of every type.
void purgePastEvents(Machine& machine, bool wakesOnly) {
  Sleep& sleep = machine.sleep;
  for (ScheduledEvent& event : eventsOf(sleep)) {
    const bool counts = !wakesOnly || textOf(event.type) == "wake";
    if (event.pending && counts && dueAt(machine, event) <= machine.now) forgetEvent(sleep, event);
  }
}

// The wakes that are due have their effect now, once.
void noteDueWakes(Machine& machine) {
  for (ScheduledEvent& event : eventsOf(machine.sleep)) {
    if (isWake(event) && dueAt(machine, event) <= machine.now) event.over = true;
  }
}

bool isEventType(std::string_view type) {
  constexpr std::array<std::string_view, 6> types{"wake",  "poweron",  "wakepoweron",
                                                  "sleep", "shutdown", "restart"};
  return std::find(types.begin(), types.end(), type) != types.end();
}

ScheduledEvent eventOf(double date, std::string_view identifier, std::string_view type) {
  return {.pending = true,
          .over = false,
          .date = date,
          .identifier = shortText(identifier),
          .type = shortText(type)};
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
  auto* place = std::find_if(sleep.events.begin(), sleep.events.end(),
                             [](const ScheduledEvent& other) { return !other.pending; });
  if (place == sleep.events.end()) return platform::kernelNoSpace;
  *place = event;
  // A date in the past is accepted and stays listed until the next purge, but nothing comes of it.
  place->over = dueAt(machine, event) <= machine.now;
  const auto places = static_cast<std::uint32_t>(place - sleep.events.begin()) + 1;
  sleep.eventPlaces = std::max(sleep.eventPlaces, places);
  return platform::kernelSuccess;
}

KernelStatus removeEvent(Sleep& sleep, const ScheduledEvent& event) {
  const auto events = eventsOf(sleep);
  const auto found = std::find_if(events.begin(), events.end(),
                                  [&event](const ScheduledEvent& other) { return same(other, event); });
  if (found == events.end()) return platform::kernelNotFound;
  forgetEvent(sleep, *found);
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

// ---------------------------------------------------------------------------------------------------------
// What wakes the Mac at night

// A number that nobody can foresee but that depends on the moment alone, 0 … below.
std::uint64_t drawnAt(double moment, std::uint64_t salt, std::uint64_t below) {
  std::uint64_t bits = static_cast<std::uint64_t>(moment) + salt * 0x9E3779B97F4A7C15U;
  bits = (bits ^ (bits >> 30U)) * 0xBF58476D1CE4E5B9U;
  bits = (bits ^ (bits >> 27U)) * 0x94D049BB133111EBU;
  return (bits ^ (bits >> 31U)) % below;
}

double nightInterval(const Machine& machine) {
  constexpr std::uint64_t soonest = 300;
  constexpr std::uint64_t latest = 1020;
  if (machine.sleep.nights == Nights::upkeep) return upkeepPeriod;
  return static_cast<double>(soonest + drawnAt(machine.now, 1, latest - soonest + 1));
}

// A dark wake that nothing else holds open.
double darkWakeSeconds(const Machine& machine) {
  return externalIsConnected(machine) ? adapterLinger : machine.sleep.batteryWakeSeconds;
}

double nightWakeSeconds(const Machine& machine) {
  // Seen in the logs of real Macs.
  constexpr std::array<double, 6> lengths{2, 16, 45, 45, 93, 180};
  if (machine.sleep.nights == Nights::upkeep) return darkWakeSeconds(machine);
  return lengths[drawnAt(machine.now, 2, lengths.size())];
}

void planNightWake(Machine& machine) {
  Sleep& sleep = machine.sleep;
  if (sleep.nights == Nights::quiet) {
    sleep.nightWakeAt = unset;
  } else if (sleep.nightWakeAt <= machine.now) {
    sleep.nightWakeAt = machine.now + nightInterval(machine);
  }
}

// ---------------------------------------------------------------------------------------------------------
// Waking up

void showFullWake(Machine& machine) {
  machine.sleep.fullAt = unset;
  machine.system.capabilities = fullWake;
}

void notifyPoweredOn(Machine& machine) {
  Sleep& sleep = machine.sleep;
  sleep.poweredOnAt = unset;
  send(machine, static_cast<std::uint32_t>(PowerMessage::systemHasPoweredOn), false);
  sleep.fullAt = machine.now + sleep.capabilitiesDelay;
  if (sleep.capabilitiesDelay <= 0) showFullWake(machine);
}

// A wake that is still under way is finished first, so that messages keep their order.
void finishWake(Machine& machine) {
  if (machine.sleep.poweredOnAt >= 0) notifyPoweredOn(machine);
  if (machine.sleep.fullAt >= 0) showFullWake(machine);
}

void leaveSleep(Machine& machine) {
  machine.system.asleep = false;
  ++machine.sleep.wakes;
  machine.sleep.wokenAt = machine.now;
  machine.sleep.heldUntil = externalIsConnected(machine) ? machine.now + adapterLinger : unset;
  purgePastEvents(machine, false);
}

void powerOn(Machine& machine) {
  machine.sleep.poweredOnAt = machine.now + poweredOnDelay;
  send(machine, willPowerOn, false);
}

void wakeFully(Machine& machine) {
  Sleep& sleep = machine.sleep;
  if (machine.system.asleep) leaveSleep(machine);
  sleep.dark = false;
  sleep.darkUntil = unset;
  sleep.nightWakeAt = unset;
  powerOn(machine);
}

// Nobody sits before it: a closed Mac goes back to sleep at once, an open one when it has been idle.
void wakeUnattended(Machine& machine) {
  wakeFully(machine);
  Sleep& sleep = machine.sleep;
  sleep.unattendedAt = machine.now + (sleep.lidClosed ? clamshellDelay : poweredOnDelay + idleDelay);
}

void followScheduledWake(Machine& machine) {
  Sleep& sleep = machine.sleep;
  noteDueWakes(machine);
  const bool canLight = !sleep.lidClosed || externalIsConnected(machine);
  if (machine.system.asleep) {
    const bool full = !sleep.lidClosed || (canLight && sleep.promotesScheduledWakes);
    return full ? wakeUnattended(machine) : wakeDark(machine, darkWakeSeconds(machine));
  }
  if (sleep.dark) {
    if (canLight) wakeUnattended(machine);
  } else if (sleep.unattendedAt >= 0 && !sleep.lidClosed) {
    // It counts as use of the Mac.
    sleep.unattendedAt = machine.now + idleDelay;
  }
}

// ---------------------------------------------------------------------------------------------------------
// Falling asleep

void announceSleep(Machine& machine) {
  finishWake(machine);
  beginStage(machine, SleepStage::announced, PowerMessage::systemWillSleep);
}

// What keeps a dark Mac awake for as long as it lasts.
bool isKeptAwake(const Machine& machine) {
  const Sleep& sleep = machine.sleep;
  return sleep.refusal == SleepRefusal::inDarkness ||
         (sleep.preventedByClient && externalIsConnected(machine));
}

void fallAsleep(Machine& machine) {
  Sleep& sleep = machine.sleep;
  sleep.darkUntil = unset;
  if (isKeptAwake(machine)) return;
  machine.system.asleep = true;
  sleep.dark = false;
  sleep.heldUntil = unset;
  planNightWake(machine);
}

// Nobody delays the sleep any more: the display goes dark, and a little later the Mac sleeps. The
// capabilities are those of a dark wake from here on until the next full wake.
void goDark(Machine& machine) {
  Sleep& sleep = machine.sleep;
  endStage(sleep);
  sleep.dark = true;
  sleep.darkUntil = std::max(machine.now + lingerSeconds, sleep.heldUntil);
  machine.system.capabilities = darkWake;
}

// The sleep was announced, and the Mac is still fully awake.
void cancelSleep(Machine& machine) {
  endStage(machine.sleep);
  powerOn(machine);
}

void refuseIdleSleep(Machine& machine) {
  endStage(machine.sleep);
  send(machine, willNotSleep, false);
}

bool isVetoed(const Machine& machine) {
  return machine.sleep.refusal == SleepRefusal::vetoed ||
         nextScheduledWake(machine) - machine.now <= vetoSeconds;
}

// An answer has come, or is no longer waited for.
void leaveStage(Machine& machine) {
  Sleep& sleep = machine.sleep;
  if (sleep.stage == SleepStage::announced) {
    if (sleep.refusal == SleepRefusal::cancelled) return cancelSleep(machine);
    return goDark(machine);
  }
  if (!isVetoed(machine)) return announceSleep(machine);
  refuseIdleSleep(machine);
  sleep.unattendedAt = machine.now + idleDelay;  // the question comes again
}

// The stage ended without an answer.
void countLate(Sleep& sleep) {
  if (sleep.client != 0 && sleep.lateAnswers < lateTimeout) ++sleep.lateAnswers;
}

void returnToSleep(Machine& machine) {
  if (machine.sleep.lidClosed) {
    announceSleep(machine);
  } else {
    askForSleep(machine);
  }
}

// Something that kept a dark Mac awake has ended.
void sleepUnlessKept(Machine& machine) {
  Sleep& sleep = machine.sleep;
  const bool waits = sleep.dark && sleep.darkUntil < 0;
  if (waits && !isKeptAwake(machine)) sleep.darkUntil = machine.now + lingerSeconds;
}

void cancelEverything(Sleep& sleep) {
  endStage(sleep);
  sleep.dark = false;
  for (double* at : {&sleep.darkUntil, &sleep.heldUntil, &sleep.poweredOnAt, &sleep.fullAt, &sleep.wokenAt,
                     &sleep.unattendedAt, &sleep.nightWakeAt}) {
    *at = unset;
  }
}

}  // namespace

Sleep freshSleep() {
  Sleep sleep{};
  cancelEverything(sleep);
  sleep.nights = Nights::upkeep;
  sleep.batteryWakeSeconds = settlingSeconds;
  sleep.adapterWakes = true;
  return sleep;
}

void endSleep(Machine& machine) {
  cancelEverything(machine.sleep);
  forgetPowerClient(machine);
  purgePastEvents(machine, false);
}

double nextSleepEvent(const Machine& machine) {
  const Sleep& sleep = machine.sleep;
  if (!machine.system.poweredOn) return never;
  const double scheduled = nextScheduledWake(machine);
  if (machine.system.asleep) return std::min(scheduled, orNever(sleep.nightWakeAt));
  return std::min({scheduled, orNever(sleep.stageEndsAt), orNever(sleep.darkUntil),
                   orNever(sleep.poweredOnAt), orNever(sleep.fullAt), orNever(sleep.unattendedAt)});
}

void applySleepEvent(Machine& machine) {
  Sleep& sleep = machine.sleep;
  const bool reached = adapterReachesBattery(machine);
  const auto isDue = [&machine](double at) { return orNever(at) <= machine.now; };
  if (nextScheduledWake(machine) <= machine.now) {
    followScheduledWake(machine);
  } else if (machine.system.asleep) {
    wakeDark(machine, nightWakeSeconds(machine));
  } else if (isDue(sleep.poweredOnAt)) {
    notifyPoweredOn(machine);
  } else if (isDue(sleep.fullAt)) {
    showFullWake(machine);
  } else if (isDue(sleep.darkUntil)) {
    fallAsleep(machine);
  } else if (isDue(sleep.unattendedAt)) {
    sleep.unattendedAt = unset;
    returnToSleep(machine);
  } else {
    countLate(sleep);
    leaveStage(machine);
  }
  settle(machine, reached);
}

void closeLid(Machine& machine) {
  machine.sleep.lidClosed = true;
  if (isFullyAwake(machine) && machine.sleep.stage != SleepStage::announced) announceSleep(machine);
}

void openLid(Machine& machine) {
  machine.sleep.lidClosed = false;
  wakeByUser(machine);
}

void commandSleep(Machine& machine) {
  if (machine.sleep.dark) return fallAsleep(machine);
  if (isFullyAwake(machine) && machine.sleep.stage != SleepStage::announced) announceSleep(machine);
}

void askForSleep(Machine& machine) {
  if (!isFullyAwake(machine) || machine.sleep.stage != SleepStage::none) return;
  finishWake(machine);
  purgePastEvents(machine, true);
  beginStage(machine, SleepStage::asked, PowerMessage::canSystemSleep);
}

void wakeByUser(Machine& machine) {
  Sleep& sleep = machine.sleep;
  if (!machine.system.poweredOn) return;
  sleep.unattendedAt = unset;
  if (!isFullyAwake(machine)) return wakeFully(machine);
  if (sleep.stage == SleepStage::announced) return cancelSleep(machine);
  if (sleep.stage == SleepStage::asked) refuseIdleSleep(machine);
}

void wakeDark(Machine& machine, double seconds) {
  if (!machine.system.asleep) return;
  leaveSleep(machine);
  machine.sleep.dark = true;
  machine.sleep.darkUntil = machine.now + seconds;
  machine.system.capabilities = darkWake;
}

void wakeForAdapter(Machine& machine) {
  if (machine.sleep.adapterWakes) wakeDark(machine, darkWakeSeconds(machine));
  sleepUnlessKept(machine);
}

void setRefusal(Machine& machine, SleepRefusal refusal) {
  machine.sleep.refusal = refusal;
  sleepUnlessKept(machine);
}

void setNights(Machine& machine, Nights nights) {
  machine.sleep.nights = nights;
  machine.sleep.nightWakeAt = unset;
  if (machine.system.asleep) planNightWake(machine);
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
  sleep.preventedByClient = false;
  sleepUnlessKept(machine);
  if (sleep.stage != SleepStage::none) sleep.stageEndsAt = machine.now;
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
  if (sleep.stage == SleepStage::none || token != sleep.noticesSent) return;
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

KernelStatus preventSleep(Machine& machine, Journal& journal) {
  const KernelStatus status = machine.sleep.scheduleStatus;
  newEntry(machine, journal, journalPrevented).status = status;
  if (status == platform::kernelSuccess) machine.sleep.preventedByClient = true;
  return status;
}

void allowSleep(Machine& machine, Journal& journal) {
  newEntry(machine, journal, journalReleased);
  machine.sleep.preventedByClient = false;
  sleepUnlessKept(machine);
}

}  // namespace brisko::virtual_mac
