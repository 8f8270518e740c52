#include "why_proof/judge.h"

#include <algorithm>
#include <functional>
#include <initializer_list>
#include <limits>

namespace brisko::proof {
namespace {

using client::DaemonStatus;
using client::Reason;
using client::UntilKind;

constexpr double never = std::numeric_limits<double>::infinity();
// The daemon may not have seen yet what happened this long before the answer.
constexpr double notSeenYet = 30;
// A state that is left for less than this is on its way from one to another.
constexpr double passing = 60;
// Fully awake, until the daemon must have acted on what came true: the gauge publishes once a minute.
constexpr double longestReaction = 180;

// ---------------------------------------------------------------------------------------------------------
// What an answer claims

using OfMac = std::function<bool(const Observation&)>;
using OfStatus = std::function<bool(const DaemonStatus&)>;

struct Claim {
  OfMac comesTrue;           // what was named
  OfStatus endsOtherwise;    // the state that was described is over
  OfStatus follows;          // what must be the case after it came true
  std::uint32_t voidedBy;    // events, as bits, which make the answer obsolete
  bool canBeUndone = false;  // before the daemon has seen that it came true
};

constexpr std::uint32_t bit(EventKind kind) { return 1U << static_cast<unsigned>(kind); }

constexpr std::uint32_t setOf(std::initializer_list<EventKind> kinds) {
  std::uint32_t set = 0;
  for (const EventKind kind : kinds) set |= bit(kind);
  return set;
}

constexpr std::uint32_t interference =
    setOf({EventKind::service, EventKind::removal, EventKind::restart, EventKind::fault, EventKind::warning});
constexpr std::uint32_t decisions =
    interference | setOf({EventKind::settings, EventKind::macOSLimit, EventKind::expiry});

bool noStatus(const DaemonStatus& /*status*/) { return false; }
bool anyStatus(const DaemonStatus& /*status*/) { return true; }
bool isPlugged(const Observation& seen) { return seen.plugged; }
bool isUnplugged(const Observation& seen) { return !seen.plugged; }
bool reports(const Observation& seen) { return seen.status.has_value(); }

OfMac atLeast(double percent) {
  return [percent](const Observation& seen) { return static_cast<double>(seen.pct) >= percent; };
}
OfMac atMost(double percent) {
  return [percent](const Observation& seen) { return static_cast<double>(seen.pct) <= percent; };
}
OfMac wallClockReaches(double moment) {
  return [moment](const Observation& seen) { return seen.at + seen.clockOffset >= moment; };
}

// Once a percentage is reached macOS may let the state continue: it has a margin of its own.
bool isLeftToMacOS(const DaemonStatus& status) { return status.chargeMode == "macOS"; }

bool isUsual(const DaemonStatus& status) {
  return status.enabled && !status.topUp && status.calibration.phase == CalPhase::idle;
}

Claim chargingTo(double percent) {
  return {.comesTrue = atLeast(percent),
          .endsOtherwise = [](const DaemonStatus& status) { return status.state != ChargeState::allow; },
          .follows =
              [](const DaemonStatus& status) {
                return status.state != ChargeState::allow || !status.plugged || isLeftToMacOS(status);
              },
          .voidedBy = decisions | setOf({EventKind::adapter, EventKind::heat})};
}

// Unplugging ends no hold: the daemon remembers that the limit was reached, and holds again.
Claim heldDownTo(double percent) {
  return {
      .comesTrue = atMost(percent),
      .endsOtherwise =
          [percent](const DaemonStatus& status) {
            return !isUsual(status) || (status.plugged && status.state == ChargeState::allow &&
                                        static_cast<double>(status.pct) > percent);
          },
      .follows = [](const DaemonStatus& status) { return status.state == ChargeState::allow || status.hot; },
      .voidedBy = decisions};
}

Claim heldUntilMacOSCharges() {
  return {.comesTrue =
              [](const Observation& seen) {
                return seen.status && seen.plugged && seen.status->state == ChargeState::allow;
              },
          .endsOtherwise = [](const DaemonStatus& status) { return !isUsual(status); },
          .follows = anyStatus,
          .voidedBy = decisions | bit(EventKind::adapter)};
}

Claim untilMacOSHolds() {
  return {.comesTrue =
              [](const Observation& seen) { return seen.status && seen.status->state != ChargeState::allow; },
          .endsOtherwise = noStatus,
          .follows = anyStatus,
          .voidedBy = decisions | bit(EventKind::adapter)};
}

Claim aboveLimitUntilUnplugged() {
  return {.comesTrue = isUnplugged,
          .endsOtherwise =
              [](const DaemonStatus& status) {
                const bool moves = status.state != ChargeState::hold && !isLeftToMacOS(status);
                return status.plugged && (moves || !isUsual(status) || status.pct <= limitInForce(status));
              },
          .follows = anyStatus,
          .voidedBy = decisions};
}

// What drains it is the load, which is another one while the Mac sleeps.
Claim fallingTo(double percent) {
  return {.comesTrue = atMost(percent),
          .endsOtherwise =
              [](const DaemonStatus& status) {
                return status.state == ChargeState::discharge || !isUsual(status);
              },
          .follows = [](const DaemonStatus& status) { return status.state == ChargeState::hold; },
          .voidedBy = decisions | setOf({EventKind::adapter, EventKind::sleep, EventKind::work})};
}

Claim dischargingTo(double percent) {
  return {.comesTrue = atMost(percent),
          .endsOtherwise =
              [percent](const DaemonStatus& status) {
                return status.state != ChargeState::discharge && static_cast<double>(status.pct) > percent;
              },
          .follows =
              [](const DaemonStatus& status) {
                return status.state != ChargeState::discharge || isLeftToMacOS(status);
              },
          .voidedBy = decisions | setOf({EventKind::adapter, EventKind::heat})};
}

Claim givenUpUntilUnplugged() {
  return {.comesTrue = isUnplugged,
          .endsOtherwise = [](const DaemonStatus& status) { return status.state == ChargeState::discharge; },
          .follows = anyStatus,
          .voidedBy = decisions};
}

Claim waitsForAFullWake() {
  return {.comesTrue = [](const Observation& seen) { return seen.awake; },
          .endsOtherwise = noStatus,
          .follows = [](const DaemonStatus& status) { return status.state == ChargeState::discharge; },
          .voidedBy = decisions | setOf({EventKind::adapter, EventKind::sleep, EventKind::heat})};
}

Claim hotDownTo(double celsius) {
  return {.comesTrue = [celsius](const Observation& seen) { return seen.temperature < celsius + 0.05; },
          // The status contains the temperature by which the daemon decided, rounded to a tenth.
          .endsOtherwise =
              [celsius](const DaemonStatus& status) {
                return !status.hot && status.temperature.value_or(0) >= celsius + 0.05;
              },
          .follows = [](const DaemonStatus& status) { return !status.hot; },
          .voidedBy = decisions | bit(EventKind::adapter)};
}

// Unplugging does not end a phase; it waits, and continues.
Claim phaseUntil(CalPhase phase, OfMac comesTrue) {
  return {.comesTrue = std::move(comesTrue),
          .endsOtherwise = [phase](const DaemonStatus& status) { return status.calibration.phase != phase; },
          .follows = [phase](const DaemonStatus& status) { return status.calibration.phase != phase; },
          .voidedBy = decisions | bit(EventKind::stall)};
}

// Only the time awake and on the adapter counts.
Claim soakUntil(double moment) {
  Claim claim = phaseUntil(CalPhase::soak, wallClockReaches(moment));
  claim.voidedBy |= setOf({EventKind::adapter, EventKind::sleep});
  return claim;
}

// At full charge the soak is counted again; it is not over.
Claim soakUntilFull() {
  Claim claim = phaseUntil(CalPhase::soak, atLeast(100));
  claim.follows = anyStatus;
  return claim;
}

Claim fullOnceUntil(const client::Until& until) {
  const auto isOver = [](const DaemonStatus& status) { return !status.topUp; };
  if (until.kind == UntilKind::percent) {
    return {.comesTrue = atLeast(until.value),
            .endsOtherwise = isOver,
            .follows = anyStatus,
            .voidedBy = decisions | setOf({EventKind::adapter, EventKind::heat})};
  }
  if (until.kind == UntilKind::time) {
    return {.comesTrue = wallClockReaches(until.value),
            .endsOtherwise = isOver,
            .follows = isOver,
            .voidedBy = (decisions & ~bit(EventKind::expiry)) | bit(EventKind::adapter)};
  }
  return {.comesTrue = isUnplugged, .endsOtherwise = isOver, .follows = isOver, .voidedBy = decisions};
}

// While nothing reports.
Claim silentUntil(OfMac comesTrue) {
  return {.comesTrue = std::move(comesTrue),
          .endsOtherwise = noStatus,
          .follows = anyStatus,
          .voidedBy = bit(EventKind::restart)};
}

// The next start ends the silence, also that by a restart of the Mac, and nothing else does.
Claim silentUntilStarted(const Observation& first) {
  return {.comesTrue = [starts = first.starts](
                           const Observation& seen) { return seen.starts > starts && reports(seen); },
          .endsOtherwise = anyStatus,
          .follows = anyStatus,
          .voidedBy = bit(EventKind::removal)};
}

// If the service stays, the daemon logs a warning, or it is started again.
Claim silentUntilRemoved() {
  Claim claim = silentUntil([](const Observation& seen) { return !seen.serviceIsLoaded; });
  claim.voidedBy |= bit(EventKind::warning);
  return claim;
}

// Something that only an event from outside ends, and no restart.
Claim outsideUntil(OfMac comesTrue, OfStatus endsOtherwise, OfStatus follows) {
  return {.comesTrue = std::move(comesTrue),
          .endsOtherwise = std::move(endsOtherwise),
          .follows = std::move(follows),
          .voidedBy = bit(EventKind::fault)};
}

Claim unpluggedUntilPluggedIn() {
  const auto isSeen = [](const DaemonStatus& status) { return status.plugged; };
  Claim claim = outsideUntil(isPlugged, isSeen, isSeen);
  claim.canBeUndone = true;
  return claim;
}

Claim keysClosedUntilUpdated() {
  const auto hasControl = [](const DaemonStatus& status) { return status.chargeMode != "none"; };
  return outsideUntil([](const Observation& seen) { return seen.macOSPermits; }, hasControl, hasControl);
}

Claim offUntilSwitchedOn() {
  return outsideUntil([](const Observation& seen) { return seen.status && seen.status->enabled; },
                      [](const DaemonStatus& status) {
                        return status.calibration.phase == CalPhase::idle &&
                               status.state != ChargeState::allow;
                      },
                      anyStatus);
}

// Something that ends when the adapter comes or goes, or at a moment.
Claim waitsUntil(OfMac comesTrue) {
  return {.comesTrue = std::move(comesTrue),
          .endsOtherwise = noStatus,
          .follows = anyStatus,
          .voidedBy = interference};
}

Claim noCurrentUntil(const client::Until& until) {
  const auto isClosed = [](const DaemonStatus& status) { return status.state != ChargeState::allow; };
  if (until.event == "unplugged") {
    return {.comesTrue = isUnplugged, .endsOtherwise = noStatus, .follows = anyStatus, .voidedBy = decisions};
  }
  return {.comesTrue = [](const Observation& seen) { return seen.currentMA > 0; },
          .endsOtherwise = isClosed,
          .follows = anyStatus,
          .voidedBy = decisions | bit(EventKind::adapter)};
}

Claim calibrationClaim(CalPhase phase, const client::Until& until) {
  if (until.event == "pluggedIn") return waitsUntil(isPlugged);
  if (until.event == "full") return soakUntilFull();
  if (until.kind == UntilKind::time) return soakUntil(until.value);
  const bool rises = phase == CalPhase::fill || phase == CalPhase::refill;
  return phaseUntil(phase, rises ? atLeast(until.value) : atMost(until.value));
}

// `first`: what was observed at the answer.
Claim claimOf(const client::Answer& answer, const client::Until& until, const Observation& first) {
  switch (answer.reason) {
    case Reason::notInstalled:
      return silentUntil([](const Observation& seen) { return seen.serviceIsLoaded; });
    case Reason::starting:
      return silentUntil(reports);
    case Reason::notRunning:
    case Reason::purged:
    case Reason::dormant:
      return silentUntilStarted(first);
    case Reason::released:
      return silentUntilRemoved();
    case Reason::clockSetBack:
      return silentUntil(wallClockReaches(until.value));
    case Reason::keysClosed:
      return keysClosedUntilUpdated();
    case Reason::disobeyed:
      return waitsUntil(
          [](const Observation& seen) { return seen.status && seen.status->gateVerified == true; });
    case Reason::off:
      return offUntilSwitchedOn();
    case Reason::hot:
      return hotDownTo(until.value);
    case Reason::calibrationFill:
      return calibrationClaim(CalPhase::fill, until);
    case Reason::calibrationDrain:
      return calibrationClaim(CalPhase::drain, until);
    case Reason::calibrationRefill:
      return calibrationClaim(CalPhase::refill, until);
    case Reason::calibrationSoak:
      return calibrationClaim(CalPhase::soak, until);
    case Reason::calibrationRestore:
      return calibrationClaim(CalPhase::restore, until);
    case Reason::unplugged:
      return unpluggedUntilPluggedIn();
    case Reason::calibrationDrainWaits:
    case Reason::dischargeUnseen:
      return waitsUntil(isUnplugged);
    case Reason::fullByMacOS:
      return waitsUntil(wallClockReaches(until.value));
    case Reason::fullOnce:
      return fullOnceUntil(until);
    case Reason::discharging:
      return dischargingTo(until.value);
    case Reason::dischargeGivenUp:
      return givenUpUntilUnplugged();
    case Reason::dischargeWaits:
      return waitsForAFullWake();
    case Reason::aboveLimit:
      return until.kind == UntilKind::percent ? fallingTo(until.value) : aboveLimitUntilUnplugged();
    case Reason::atLimit:
    case Reason::insideBand:
      if (until.kind == UntilKind::percent) return heldDownTo(until.value);
      return until.event == "macOSHolds" ? untilMacOSHolds() : heldUntilMacOSCharges();
    case Reason::limitOverridden:
      return untilMacOSHolds();
    case Reason::charging:
      return chargingTo(until.value);
    case Reason::noCurrent:
      break;
  }
  return noCurrentUntil(until);
}

// ---------------------------------------------------------------------------------------------------------
// Judging

const Event* firstOf(std::uint32_t kinds, std::span<const Event> events, double from, double to) {
  const auto found = std::find_if(events.begin(), events.end(), [&](const Event& event) {
    return event.at >= from && event.at <= to && (bit(event.kind) & kinds) != 0;
  });
  return found == events.end() ? nullptr : &*found;
}

std::string momentText(double seconds) {
  return std::to_string(static_cast<long>(seconds / 60)) + " min later";
}

std::string stateText(const Observation& seen) {
  std::string text = std::to_string(seen.pct) + " %, " + (seen.plugged ? "plugged in" : "unplugged");
  if (seen.status) text += std::string(", state ") + stateName(seen.status->state);
  return text;
}

class Judging {
 public:
  Judging(const Question& question, std::span<const Observation> after, std::span<const Event> events)
      : question_(question),
        claim_(claimOf(question.answer, *question.answer.until, after.front())),
        after_(after),
        events_(events),
        voided_(firstOf(claim_.voidedBy, events, question.at - notSeenYet, never)) {}

  Verdict verdict() const {
    double endedSince = never;
    for (std::size_t index = 0; index < after_.size(); ++index) {
      const Observation& seen = after_[index];
      if (claim_.comesTrue(seen)) return afterItCameTrue(index);
      if (voided_ != nullptr && voided_->at <= seen.at) return notJudged(textOf(voided_->kind));
      if (!seen.awake || !seen.status || !claim_.endsOtherwise(*seen.status)) {
        endedSince = never;
      } else {
        endedSince = std::min(endedSince, seen.at);
        if (seen.at - endedSince >= passing) return brokenUnlessExcused("ended otherwise", seen);
      }
    }
    return notJudged("the scenario ended first");
  }

 private:
  static Verdict notJudged(std::string reason) {
    return {.outcome = Outcome::notJudged, .reason = std::move(reason)};
  }

  // Work and weather void no answer, but they may drain a battery that is held.
  Verdict brokenUnlessExcused(const std::string& what, const Observation& seen) const {
    if (question_.faultIsInEffect) return notJudged("a fault was in effect");
    if (firstOf(bit(EventKind::work), events_, question_.at, seen.at) != nullptr && drains(seen))
      return notJudged(textOf(EventKind::work));
    return {.outcome = Outcome::broken,
            .reason = what + " " + momentText(seen.at - question_.at) + ": " + stateText(seen)};
  }

  static bool drains(const Observation& seen) { return seen.plugged && seen.currentMA < 0; }

  Verdict afterItCameTrue(std::size_t index) const {
    const Observation& came = after_[index];
    const Verdict kept{.outcome = Outcome::kept,
                       .seconds = secondsUntil(came),
                       .isUndisturbed = isUndisturbedUntil(came.at)};
    double reactsSince = never;
    for (const Observation& seen : after_.subspan(index)) {
      if (voided_ != nullptr && voided_->at <= seen.at) return kept;
      if (claim_.canBeUndone && !claim_.comesTrue(seen)) return kept;
      if (!seen.awake || !seen.status) {
        reactsSince = never;
        continue;
      }
      if (claim_.follows(*seen.status)) return kept;
      reactsSince = std::min(reactsSince, seen.at);
      if (seen.at - reactsSince > longestReaction)
        return brokenUnlessExcused("it came true, and nothing followed", seen);
    }
    return kept;
  }

  // Of a percentage: until macOS showed it.
  [[nodiscard]] double secondsUntil(const Observation& came) const {
    const bool isPercent = question_.answer.until->kind == UntilKind::percent;
    return std::max((isPercent ? came.publishedAt : came.at) - question_.at, 0.0);
  }

  [[nodiscard]] bool isUndisturbedUntil(double at) const {
    constexpr std::uint32_t all = (1U << eventKinds) - 1;
    return firstOf(all, events_, question_.at, at) == nullptr;
  }

  const Question& question_;
  Claim claim_;
  std::span<const Observation> after_;
  std::span<const Event> events_;
  const Event* voided_;  // the first event that makes the answer obsolete
};

}  // namespace

const char* textOf(EventKind kind) {
  constexpr std::array<const char*, eventKinds> texts{"the settings were changed",
                                                      "the daemon was ended or removed",
                                                      "the service was removed",
                                                      "the Mac was restarted",
                                                      "macOS's own limit was changed",
                                                      "a fault",
                                                      "the adapter was plugged in or unplugged",
                                                      "charging was paused for heat",
                                                      "the time of a full charge was over",
                                                      "the calibration took too long",
                                                      "a warning in the log",
                                                      "the Mac slept",
                                                      "the load or the surroundings changed"};
  return texts[static_cast<std::size_t>(kind)];
}

Verdict judge(const Question& question, std::span<const Observation> after, std::span<const Event> events) {
  if (!question.answer.until || after.empty())
    return {.outcome = Outcome::notJudged, .reason = "it names nothing"};
  return Judging(question, after, events).verdict();
}

}  // namespace brisko::proof
