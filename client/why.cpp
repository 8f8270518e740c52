#include "client/why.h"

#include <algorithm>
#include <cmath>

#include "client/local_time.h"
#include "policy/heat.h"

namespace brisko::client {
namespace {

constexpr double staleSeconds = 70;
constexpr double wakeGrace = 15;   // seconds
constexpr double startGrace = 90;  // seconds after the start of the Mac
constexpr double clockTolerance = 5;
constexpr double settlingTime = 150;  // seconds until the battery's current shows in the history
constexpr const char* viaMacOS = "macOS";
constexpr const char* viaNothing = "none";

Until untilPercent(std::int64_t value) {
  return {.kind = UntilKind::percent, .value = static_cast<double>(value)};
}
Until untilEvent(const char* name) { return {.kind = UntilKind::event, .event = name}; }
Until untilTime(double moment) { return {.kind = UntilKind::time, .value = moment}; }

// With "about N minutes" where the recent slope leads there.
Until untilReached(std::int64_t target, const Situation& situation) {
  Until until = untilPercent(target);
  const auto slope = slopeOf(situation.recent);
  const auto minutes =
      slope ? minutesUntil(static_cast<double>(target), *slope, situation.now) : std::nullopt;
  constexpr double longest = 48 * 60.0;
  if (minutes && *minutes <= longest) until.aboutMinutes = std::max<std::int64_t>(std::llround(*minutes), 1);
  return until;
}

std::string inAbout(const Until& until) {
  return until.aboutMinutes ? ", in about " + durationText(static_cast<double>(*until.aboutMinutes) * 60)
                            : "";
}

// --- No daemon, or none that does anything

std::optional<Answer> withoutDaemon(const Situation& situation) {
  const Freshness freshness = freshnessOf(situation);
  // A daemon that was started by hand is no job, but its status is fresh.
  const bool stopped = situation.installed && situation.running == false && !situation.asleep;
  if (freshness == Freshness::fresh && !stopped) return std::nullopt;
  if (!situation.installed) {
    return Answer{Reason::notInstalled, "The daemon is not installed: nothing limits the charge.",
                  untilEvent("installed")};
  }
  const double startedSince = situation.now - situation.bootedAt.value_or(0);
  if (situation.bootedAt && startedSince >= 0 && startedSince < startGrace) {
    return Answer{Reason::starting, "The Mac has just started, and the daemon is starting too.",
                  untilEvent("started")};
  }
  if (stopped) {
    return Answer{Reason::notRunning, "The daemon is not running: nothing limits the charge.",
                  untilEvent("started")};
  }
  switch (situation.resting) {
    case Resting::purged:
      return Answer{
          Reason::purged,
          "All data was erased, so the daemon keeps no records until it is restarted (brisko restart).",
          untilEvent("restarted")};
    case Resting::dormant:
      return Answer{
          Reason::dormant,
          "The app was removed, so the daemon gave the charge back and does nothing. Put the app back and "
          "restart the daemon, or uninstall it.",
          untilEvent("restarted")};
    case Resting::released:
      return Answer{Reason::released,
                    "The app released the charge because it is about to remove the service.",
                    untilEvent("removed")};
    case Resting::no:
      break;
  }
  if (freshness == Freshness::fromTheFuture) {
    return Answer{
        Reason::clockSetBack,
        "The status is from " + timeText(situation.status->ts, situation.now) +
            ", which is still to come: the clock was set back. It is current again from then on, or after "
            "brisko restart.",
        untilTime(situation.status->ts)};
  }
  const std::string age = situation.status
                              ? "its status is " + durationText(situation.now - situation.status->ts) + " old"
                              : "it has written no status";
  return Answer{Reason::notRunning, "The daemon does not report: " + age + ". Try brisko restart.",
                untilEvent("started")};
}

std::optional<Answer> withoutControl(const Situation& situation) {
  const DaemonStatus& status = *situation.status;
  if (status.chargeMode == viaNothing) {
    return Answer{
        Reason::keysClosed,
        "This version of macOS closes the keys that stop charging, and has no limit of its own: the daemon "
        "only observes.",
        untilEvent("macOSUpdated")};
  }
  if (status.gateVerified == false) {
    return Answer{
        Reason::disobeyed,
        status.chargeMode == viaMacOS
            ? "macOS does not enforce the limit that the daemon set. Check the limit in System Settings."
            : "The Mac does not obey: charging continues although it was stopped. Check whether another "
              "program controls charging, then restart the Mac.",
        untilEvent("verified")};
  }
  return std::nullopt;
}

// --- A calibration

Answer calibrationAnswer(Reason reason, const char* phase, std::int64_t target, const Situation& situation,
                         bool rises) {
  const DaemonStatus& status = *situation.status;
  if (rises && !status.plugged) {
    return {reason, std::string("Calibration, ") + phase + ": it waits for the adapter.",
            untilEvent("pluggedIn")};
  }
  Until until = untilReached(target, situation);
  return {reason,
          std::string("Calibration, ") + phase + ": from " + percentText(status.pct) + " to " +
              percentText(target) + inAbout(until) + ".",
          until};
}

// The adapter is not cut where that could not be seen.
std::optional<Answer> waitingDrain(const Situation& situation, const char* phase) {
  const DaemonStatus& status = *situation.status;
  if (!status.dischargeUnseen || !status.plugged) return std::nullopt;
  return Answer{Reason::calibrationDrainWaits,
                std::string("Calibration, ") + phase + ": at " + percentText(status.pct) +
                    ". This Mac does not show its adapter, so the daemon does not cut it off. Unplug it to "
                    "continue.",
                untilEvent("unplugged")};
}

Answer soakAnswer(const Situation& situation) {
  const CalibrationStatus& calibration = situation.status->calibration;
  // Not as integers: in a damaged file they may be any.
  const double left = std::max(
      static_cast<double>(calibration.soakSeconds) - static_cast<double>(calibration.soakBanked), 0.0);
  if (!situation.status->plugged || situation.status->pct < 100) {
    return {Reason::calibrationSoak,
            "Calibration, soak: the battery has to rest at full charge on the adapter for another " +
                durationText(left) + ".",
            untilEvent(situation.status->plugged ? "full" : "pluggedIn")};
  }
  // Counted up to the status, and no further while the Mac sleeps.
  Until until = untilTime(situation.status->ts + left);
  until.aboutMinutes = std::max<std::int64_t>(std::llround(left / 60), 1);
  return {Reason::calibrationSoak,
          "Calibration, soak: the battery rests at full charge for about " + durationText(left) + " more.",
          until};
}

std::optional<Answer> duringCalibration(const Situation& situation) {
  const CalibrationStatus& calibration = situation.status->calibration;
  switch (calibration.phase) {
    case CalPhase::fill:
      return calibrationAnswer(Reason::calibrationFill, "first charge", 100, situation, true);
    case CalPhase::drain:
      if (auto waits = waitingDrain(situation, "discharge")) return waits;
      return calibrationAnswer(Reason::calibrationDrain, "discharge", calibration.drainTarget, situation,
                               false);
    case CalPhase::refill:
      return calibrationAnswer(Reason::calibrationRefill, "second charge", 100, situation, true);
    case CalPhase::soak:
      return soakAnswer(situation);
    case CalPhase::restore:
      if (auto waits = waitingDrain(situation, "back to the limit")) return waits;
      return calibrationAnswer(Reason::calibrationRestore, "back to the limit", situation.settings.limit,
                               situation, false);
    case CalPhase::idle:
      break;
  }
  return std::nullopt;
}

// --- The user's requests

std::optional<Answer> whileOff(const Situation& situation) {
  const DaemonStatus& status = *situation.status;
  if (status.enabled || status.calibration.phase != CalPhase::idle) return std::nullopt;
  const std::string text = "Limiting is off: the Mac charges as macOS decides";
  return Answer{Reason::off,
                text + (status.chargeMode == viaMacOS ? ", and a full charge once has no effect." : ".") +
                    " brisko on switches it on.",
                untilEvent("switchedOn")};
}

std::optional<Answer> whileHot(const Situation& situation) {
  const DaemonStatus& status = *situation.status;
  if (!status.hot) return std::nullopt;
  const double resume = static_cast<double>(situation.settings.thermalLimit) - heatRecovery;
  const std::string temperature =
      status.temperature ? degreesText(*status.temperature) : std::string("over its limit");
  return Answer{Reason::hot,
                "Charging is paused because the battery is hot (" + temperature + "). It resumes below " +
                    degreesText(resume) + ".",
                Until{.kind = UntilKind::temperature, .value = resume}};
}

std::optional<Answer> whileUnplugged(const Situation& situation) {
  if (situation.status->plugged) return std::nullopt;
  return Answer{Reason::unplugged,
                "The Mac runs on its battery: there is nothing to limit until it is plugged in.",
                untilEvent("pluggedIn")};
}

std::optional<Answer> duringFullOnce(const Situation& situation) {
  const DaemonStatus& status = *situation.status;
  if (!status.topUp) return std::nullopt;
  const std::int64_t hours = situation.settings.topUpHours;
  std::optional<double> end;
  if (hours >= 1 && situation.topUpSince > 0) end = situation.topUpSince + static_cast<double>(hours) * 3600;
  const std::string ends =
      end ? "at " + timeText(*end, situation.now) + " or when you unplug" : "when you unplug";
  if (status.pct < 100) {
    Until until = untilReached(100, situation);
    const bool tooLate =
        end && until.aboutMinutes && situation.now + static_cast<double>(*until.aboutMinutes) * 60 > *end;
    if (tooLate) until = untilTime(*end);
    return Answer{Reason::fullOnce,
                  "Charging to full once, now " + percentText(status.pct) + inAbout(until) +
                      ". The limit returns " + ends + ".",
                  until};
  }
  return Answer{Reason::fullOnce,
                "Full, as you asked. The limit of " + percentText(status.upper) + " returns " + ends + ".",
                end ? untilTime(*end) : untilEvent("unplugged")};
}

std::optional<Answer> duringFullChargeByMacOS(const Situation& situation) {
  const DaemonStatus& status = *situation.status;
  if (!status.fullUntil || *status.fullUntil <= situation.now) return std::nullopt;
  return Answer{Reason::fullByMacOS,
                "macOS charges to full, as you asked in the Battery menu, now " + percentText(status.pct) +
                    ". The limit of " + percentText(limitInForce(status)) + " returns at " +
                    timeText(*status.fullUntil, situation.now) + ".",
                untilTime(*status.fullUntil)};
}

// --- The band

std::optional<Answer> whileDischarging(const Situation& situation) {
  const DaemonStatus& status = *situation.status;
  const std::int64_t limit = limitInForce(status);
  if (status.state == ChargeState::discharge) {
    const Until until = untilReached(limit, situation);
    return Answer{Reason::discharging,
                  "Discharging from " + percentText(status.pct) + " to the limit of " + percentText(limit) +
                      inAbout(until) + ", with the adapter connected.",
                  until};
  }
  if (!situation.settings.discharge || status.pct <= limit) return std::nullopt;
  if (status.dischargeFailed) {
    return Answer{
        Reason::dischargeGivenUp,
        "Held at " + percentText(status.pct) +
            ": discharging to the limit was given up because the Mac did not follow. It is tried again after "
            "you unplug the adapter or change the limit.",
        untilEvent("unplugged")};
  }
  if (status.dischargeUnseen) {
    return Answer{Reason::dischargeUnseen,
                  "Held at " + percentText(status.pct) +
                      ": this Mac does not show its adapter, so the daemon does not cut it off to discharge. "
                      "Unplug it to go below the limit of " +
                      percentText(limit) + ".",
                  untilEvent("unplugged")};
  }
  // Through macOS's own limit nothing waits for a wake, and a Mac that still charges waits for nothing.
  const bool waits = status.discharge && status.state == ChargeState::hold && status.chargeMode != viaMacOS;
  if (!waits) return std::nullopt;
  return Answer{Reason::dischargeWaits,
                "Held at " + percentText(status.pct) + ": discharging to " + percentText(limit) +
                    " waits until the Mac is fully awake.",
                untilEvent("fullWake")};
}

// Into the battery, by the newest sample. None before the current can have settled.
std::optional<double> settledWatts(const std::vector<RecentSample>& recent) {
  const auto samples = sinceLastChange(recent);
  if (samples.empty() || samples.back().time - samples.front().time < settlingTime) return std::nullopt;
  return samples.back().watts;
}

std::optional<bool> currentFlows(const std::vector<RecentSample>& recent) {
  const auto watts = settledWatts(recent);
  return watts ? std::optional(*watts > 0) : std::nullopt;
}

// Above the limit nothing stops a battery that helps a weak adapter, whoever holds the charge.
std::optional<Answer> whileFalling(const Situation& situation) {
  constexpr double leastLoss = 1;  // watts; less is no more than the noise of a charge that is held
  const DaemonStatus& status = *situation.status;
  const std::int64_t limit = limitInForce(status);
  const bool drains = settledWatts(situation.recent).value_or(0) <= -leastLoss;
  if (!drains || status.pct <= limit) return std::nullopt;
  const Until until = untilReached(limit, situation);
  return Answer{Reason::aboveLimit,
                "Falling from " + percentText(status.pct) + " to the limit of " + percentText(limit) +
                    inAbout(until) + ": the adapter may be too weak for what the Mac is doing.",
                until};
}

// How and when charging starts again after a hold.
struct Resumption {
  std::string text;
  Until until;
};
Resumption resumptionOf(const Situation& situation) {
  const DaemonStatus& status = *situation.status;
  if (status.chargeMode == viaMacOS) {
    // macOS decides within a margin of its own, which is wider than the band.
    return {"macOS starts charging again a few points below.", untilEvent("macOSCharges")};
  }
  return {"Charging starts again at " + percentText(situation.band.lower) + ".",
          untilPercent(situation.band.lower)};
}

std::optional<Answer> whileHeld(const Situation& situation) {
  const DaemonStatus& status = *situation.status;
  if (status.state != ChargeState::hold) return std::nullopt;
  const std::int64_t limit = limitInForce(status);
  const Resumption resumption = resumptionOf(situation);
  const std::string held = "Held at " + percentText(status.pct) + ": ";
  if (status.pct > limit) {
    return Answer{Reason::aboveLimit,
                  held + "above the limit of " + percentText(limit) +
                      ". It stays there until you unplug or discharge (brisko discharge on).",
                  untilEvent("unplugged")};
  }
  if (status.pct == limit)
    return Answer{Reason::atLimit, held + "this is the limit. " + resumption.text, resumption.until};
  return Answer{Reason::insideBand, held + "the limit was reached before. " + resumption.text,
                resumption.until};
}

// Only a dark wake shows it: awake, nothing is scheduled.
std::string nextWakeText(const Situation& situation) {
  const std::optional<double> wake = situation.status->nextWake;
  if (!wake || *wake <= situation.now) return "";
  return " The Mac wakes at " + timeText(*wake, situation.now) + " to stop at the limit.";
}

// macOS charges, or may, although the limit is reached.
std::optional<Answer> whileMacOSCharges(const Situation& situation) {
  const DaemonStatus& status = *situation.status;
  const std::int64_t limit = limitInForce(status);
  if (status.chargeMode != viaMacOS || status.pct < limit || limit >= 100) return std::nullopt;
  const bool flows = currentFlows(situation.recent).value_or(false);
  if (flows && status.gateVerified != true) {
    return Answer{Reason::limitOverridden,
                  "macOS charges beyond its own limit of " + percentText(limit) +
                      ", because you asked for a full charge in the Battery menu or moved the slider.",
                  untilEvent("macOSHolds")};
  }
  if (status.pct == limit) {
    return Answer{Reason::atLimit, "This is the limit of " + percentText(limit) + ": macOS stops charging.",
                  untilEvent("macOSHolds")};
  }
  // macOS was given the present charge as its limit, and makes up for what the battery loses.
  return Answer{Reason::aboveLimit,
                "Above the limit of " + percentText(limit) +
                    ": macOS keeps the charge about where it is until you unplug or discharge (brisko "
                    "discharge on).",
                untilEvent("unplugged")};
}

Answer whileAllowed(const Situation& situation) {
  const DaemonStatus& status = *situation.status;
  const std::int64_t limit = limitInForce(status);
  const bool flows = currentFlows(situation.recent).value_or(true);
  if (status.pct >= 100) {
    return {Reason::noCurrent, "The battery is full, and a limit of 100 % means no limit.",
            untilEvent("unplugged")};
  }
  if (!flows) {
    return {Reason::noCurrent,
            "Charging is allowed up to " + percentText(limit) +
                ", but no current flows: the adapter may be too weak for what the Mac is doing.",
            untilEvent("currentFlows")};
  }
  const Until until = untilReached(limit, situation);
  return {Reason::charging,
          "Charging from " + percentText(status.pct) + " to the limit of " + percentText(limit) +
              inAbout(until) + "." + nextWakeText(situation),
          until};
}

}  // namespace

const char* codeOf(Reason reason) {
  switch (reason) {
    case Reason::notInstalled:
      return "notInstalled";
    case Reason::starting:
      return "starting";
    case Reason::notRunning:
      return "notRunning";
    case Reason::clockSetBack:
      return "clockSetBack";
    case Reason::purged:
      return "purged";
    case Reason::dormant:
      return "dormant";
    case Reason::released:
      return "released";
    case Reason::keysClosed:
      return "keysClosed";
    case Reason::disobeyed:
      return "disobeyed";
    case Reason::off:
      return "off";
    case Reason::hot:
      return "hot";
    case Reason::calibrationFill:
      return "calibrationFill";
    case Reason::calibrationDrain:
      return "calibrationDrain";
    case Reason::calibrationDrainWaits:
      return "calibrationDrainWaits";
    case Reason::calibrationRefill:
      return "calibrationRefill";
    case Reason::calibrationSoak:
      return "calibrationSoak";
    case Reason::calibrationRestore:
      return "calibrationRestore";
    case Reason::unplugged:
      return "unplugged";
    case Reason::fullOnce:
      return "fullOnce";
    case Reason::fullByMacOS:
      return "fullByMacOS";
    case Reason::discharging:
      return "discharging";
    case Reason::dischargeGivenUp:
      return "dischargeGivenUp";
    case Reason::dischargeUnseen:
      return "dischargeUnseen";
    case Reason::dischargeWaits:
      return "dischargeWaits";
    case Reason::atLimit:
      return "atLimit";
    case Reason::aboveLimit:
      return "aboveLimit";
    case Reason::insideBand:
      return "insideBand";
    case Reason::limitOverridden:
      return "limitOverridden";
    case Reason::charging:
      return "charging";
    case Reason::noCurrent:
      return "noCurrent";
  }
  return "";
}

Freshness freshnessOf(const Situation& situation) {
  if (!situation.status) return Freshness::stale;
  const double written = situation.status->ts;
  if (written > situation.now + clockTolerance) return Freshness::fromTheFuture;
  if (situation.asleep) return Freshness::fresh;
  double since = written;
  if (situation.wokeAt && *situation.wokeAt <= situation.now)
    since = std::max(since, *situation.wokeAt + wakeGrace);
  return situation.now - since > staleSeconds ? Freshness::stale : Freshness::fresh;
}

std::int64_t limitInForce(const DaemonStatus& status) {
  if (status.chargeMode != viaMacOS || !status.nativeFloor) return status.upper;
  return std::max(status.upper, *status.nativeFloor);
}

Answer why(const Situation& situation) {
  using Rule = std::optional<Answer> (*)(const Situation&);
  constexpr Rule rules[] = {withoutDaemon,     withoutControl, whileOff,       whileHot,
                            duringCalibration, whileUnplugged, duringFullOnce, duringFullChargeByMacOS,
                            whileDischarging,  whileFalling,   whileHeld,      whileMacOSCharges};
  for (const Rule rule : rules) {
    if (auto answer = rule(situation)) return *answer;
  }
  return whileAllowed(situation);
}

}  // namespace brisko::client
