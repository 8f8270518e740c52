#include "why_proof/judge.h"

#include <string>
#include <vector>

#include "support/testing.h"

namespace brisko::proof::judge_test {
namespace {

using namespace test;
using client::DaemonStatus;
using client::Reason;
using client::Until;
using client::UntilKind;

constexpr double begin = 1'772'352'000;

// What is observed from an answer on, once a minute.
class Sequence {
 public:
  Sequence(Reason reason, Until until) {
    question_.at = begin;
    question_.answer = {.reason = reason, .text = "", .until = until};
  }

  // `minutes` more, each with this charge and state.
  Sequence& then(int minutes, std::int64_t pct, ChargeState state, bool plugged = true) {
    for (int minute = 0; minute < minutes; ++minute) {
      Observation seen{.at = next(), .plugged = plugged, .pct = pct, .publishedAt = next()};
      seen.status = DaemonStatus{.state = state, .pct = pct, .ts = next(), .plugged = plugged};
      observations_.push_back(seen);
    }
    return *this;
  }
  // Minutes in which the daemon reports nothing.
  Sequence& silence(int minutes) {
    then(minutes, 50, ChargeState::allow);
    for (std::size_t index = observations_.size() - static_cast<std::size_t>(minutes);
         index < observations_.size(); ++index)
      observations_[index].status.reset();
    return *this;
  }
  // Of the latest minutes.
  template <typename Change>
  Sequence& with(int minutes, Change change) {
    for (auto seen = observations_.end() - minutes; seen != observations_.end(); ++seen) change(*seen);
    return *this;
  }
  // Of the latest minute.
  Observation& last() { return observations_.back(); }
  Sequence& event(EventKind kind) {
    events_.push_back({next() - 30, kind});
    return *this;
  }
  Question& question() { return question_; }

  [[nodiscard]] Verdict verdict() const { return judge(question_, observations_, events_); }
  [[nodiscard]] Outcome outcome() const { return verdict().outcome; }

 private:
  [[nodiscard]] double next() const { return begin + 60 * static_cast<double>(observations_.size()); }

  Question question_;
  std::vector<Observation> observations_;
  std::vector<Event> events_;
};

constexpr ChargeState allow = ChargeState::allow;
constexpr ChargeState hold = ChargeState::hold;
constexpr ChargeState discharge = ChargeState::discharge;

Until percent(double value) { return {.kind = UntilKind::percent, .value = value}; }
Until event(const char* name) { return {.kind = UntilKind::event, .event = name}; }

Sequence charging() { return {Reason::charging, percent(80)}; }
Sequence held() { return {Reason::insideBand, percent(75)}; }

TEST(WhyJudge, keepsAnAnswerWhosePercentageWasReached) {
  const Verdict verdict = charging().then(10, 79, allow).then(2, 80, hold).verdict();
  EXPECT_EQ(verdict.outcome, Outcome::kept);
  EXPECT_EQ(verdict.seconds, 600);
  EXPECT_TRUE(verdict.isUndisturbed);
}

TEST(WhyJudge, breaksAnAnswerWhoseStateEndedBefore) {
  EXPECT_EQ(charging().then(10, 79, allow).then(2, 79, hold).outcome(), Outcome::broken);
  // On its way from one state to another.
  EXPECT_EQ(charging().then(10, 79, allow).then(1, 79, hold).then(1, 80, hold).outcome(), Outcome::kept);
}

TEST(WhyJudge, breaksAnAnswerAfterWhichNothingFollowed) {
  EXPECT_EQ(charging().then(10, 79, allow).then(5, 80, allow).outcome(), Outcome::broken);
  EXPECT_EQ(charging().then(10, 79, allow).then(4, 80, allow).then(1, 80, hold).outcome(), Outcome::kept);
}

TEST(WhyJudge, judgesNoAnswerThatAnEventMadeObsolete) {
  const Verdict verdict =
      charging().then(5, 79, allow).event(EventKind::settings).then(5, 79, hold).verdict();
  EXPECT_EQ(verdict.outcome, Outcome::notJudged);
  EXPECT_EQ(verdict.reason, "the settings were changed");
  // An event that is over before, or comes after, or concerns something else.
  EXPECT_EQ(charging().event(EventKind::work).then(5, 79, allow).then(5, 79, hold).outcome(),
            Outcome::broken);
  EXPECT_EQ(
      charging().then(5, 79, allow).then(2, 80, hold).event(EventKind::settings).then(1, 80, hold).outcome(),
      Outcome::kept);
}

TEST(WhyJudge, judgesNoAnswerWhenTheScenarioEndedFirst) {
  EXPECT_EQ(charging().then(10, 79, allow).verdict().reason, "the scenario ended first");
}

TEST(WhyJudge, noticesThatAnEventCameBetweenAlthoughTheAnswerWasKept) {
  const Verdict verdict =
      charging().then(5, 79, allow).event(EventKind::work).then(5, 79, allow).then(2, 80, hold).verdict();
  EXPECT_EQ(verdict.outcome, Outcome::kept);
  EXPECT_FALSE(verdict.isUndisturbed);
}

TEST(WhyJudge, expectsAHoldToContinueWhileTheMacIsUnpluggedInBetween) {
  EXPECT_EQ(held().then(2, 78, hold).then(5, 77, allow, false).then(5, 77, hold).then(2, 75, allow).outcome(),
            Outcome::kept);
  EXPECT_EQ(held().then(2, 78, hold).then(5, 77, allow, false).then(5, 77, allow).outcome(), Outcome::broken);
  EXPECT_EQ(held().then(2, 78, hold).then(5, 75, hold).outcome(), Outcome::broken);
}

TEST(WhyJudge, knowsThatABatteryMayDrainUnderLoad) {
  const auto drained = [](EventKind kind) {
    Sequence sequence(Reason::aboveLimit, event("unplugged"));
    sequence.then(2, 82, hold).event(kind).then(2, 80, hold);
    sequence.last().currentMA = -500;
    return sequence.verdict();
  };
  EXPECT_EQ(drained(EventKind::work).outcome, Outcome::notJudged);
  EXPECT_EQ(drained(EventKind::sleep).outcome, Outcome::broken);
}

TEST(WhyJudge, expectsABatteryThatFallsToBeHeldAtTheLimit) {
  const auto falling = [] {
    return Sequence(Reason::aboveLimit, percent(80)).then(2, 82, allow).then(2, 81, allow);
  };
  EXPECT_EQ(falling().then(5, 80, hold).outcome(), Outcome::kept);
  EXPECT_EQ(falling().then(5, 80, allow).outcome(), Outcome::broken);
  EXPECT_EQ(falling().then(2, 81, discharge).outcome(), Outcome::broken);
  EXPECT_EQ(falling().event(EventKind::work).then(5, 82, hold).outcome(), Outcome::notJudged);
}

TEST(WhyJudge, blamesAFaultThatWasInEffectBefore) {
  Sequence sequence = charging();
  sequence.question().faultIsInEffect = true;
  EXPECT_EQ(sequence.then(2, 79, hold).verdict().reason, "a fault was in effect");
}

TEST(WhyJudge, followsADischargeDownToTheLimit) {
  const auto discharging = [] { return Sequence(Reason::discharging, percent(80)); };
  EXPECT_EQ(discharging().then(5, 82, discharge).then(1, 80, hold).outcome(), Outcome::kept);
  EXPECT_EQ(discharging().then(5, 82, discharge).then(3, 82, hold).outcome(), Outcome::broken);
  EXPECT_EQ(discharging().then(5, 82, discharge).then(5, 79, discharge).outcome(), Outcome::broken);
}

TEST(WhyJudge, comparesTheTemperatureAtWhichAPauseEnds) {
  const auto paused = [](double endsAt) {
    Sequence sequence(Reason::hot, {.kind = UntilKind::temperature, .value = 35});
    sequence.then(1, 70, hold);
    sequence.last().temperature = 40;
    for (int minute = 0; minute < 3; ++minute) {
      sequence.then(1, 70, allow);
      sequence.last().temperature = endsAt;
      sequence.last().status->temperature = endsAt;
    }
    return sequence.outcome();
  };
  EXPECT_EQ(paused(34.9), Outcome::kept);
  EXPECT_EQ(paused(35.1), Outcome::broken);
}

TEST(WhyJudge, expectsAFullChargeToEndAtTheMomentThatWasNamed) {
  const auto topUp = [](int minutes) {
    Sequence sequence(Reason::fullOnce, {.kind = UntilKind::time, .value = begin + 600});
    for (int minute = 0; minute < minutes; ++minute) {
      sequence.then(1, 100, allow);
      sequence.last().status->topUp = true;
    }
    return sequence.then(3, 100, hold).outcome();
  };
  EXPECT_EQ(topUp(5), Outcome::broken);
  EXPECT_EQ(topUp(11), Outcome::kept);
  EXPECT_EQ(topUp(20), Outcome::broken);
}

Sequence unplugged() { return {Reason::unplugged, event("pluggedIn")}; }

TEST(WhyJudge, expectsAMacToRunOnItsBatteryUntilItIsPluggedIn) {
  // Whatever happens to the daemon in between.
  for (const EventKind kind : {EventKind::settings, EventKind::service, EventKind::restart}) {
    EXPECT_EQ(unplugged()
                  .then(5, 70, allow, false)
                  .event(kind)
                  .then(5, 70, allow, false)
                  .then(2, 70, allow)
                  .outcome(),
              Outcome::kept)
        << textOf(kind);
  }
  EXPECT_EQ(unplugged().then(5, 70, allow, false).verdict().reason, "the scenario ended first");
}

TEST(WhyJudge, breaksAnAnswerWhenTheDaemonDoesNotSeeTheAdapterAsItIs) {
  const auto seesPlugged = [](bool sees) {
    return [sees](Observation& seen) { seen.status->plugged = sees; };
  };
  EXPECT_EQ(unplugged().then(5, 70, allow, false).with(2, seesPlugged(true)).outcome(), Outcome::broken);
  // Unplugged again before the daemon had to see it.
  EXPECT_EQ(unplugged()
                .then(5, 70, allow, false)
                .then(2, 70, allow)
                .with(2, seesPlugged(false))
                .then(5, 70, allow, false)
                .outcome(),
            Outcome::kept);
  EXPECT_EQ(unplugged().then(5, 70, allow, false).then(5, 70, allow).with(5, seesPlugged(false)).outcome(),
            Outcome::broken);
}

TEST(WhyJudge, expectsASilentDaemonToReportAfterItsNextStartAlone) {
  const auto silent = [] { return Sequence(Reason::dormant, event("restarted")).silence(5); };
  const auto starts = [](Observation& seen) { seen.starts = 1; };
  EXPECT_EQ(silent().event(EventKind::restart).then(2, 70, hold).with(2, starts).outcome(), Outcome::kept);
  EXPECT_EQ(silent().then(2, 70, hold).outcome(), Outcome::broken);
  EXPECT_EQ(silent().silence(5).with(5, starts).verdict().reason, "the scenario ended first");
  EXPECT_EQ(silent().event(EventKind::removal).silence(1).then(2, 70, hold).with(2, starts).verdict().reason,
            "the service was removed");
}

TEST(WhyJudge, expectsAReleasedServiceToBeRemoved) {
  const auto released = [] { return Sequence(Reason::released, event("removed")).silence(1); };
  const auto removed = [](Observation& seen) { seen.serviceIsLoaded = false; };
  EXPECT_EQ(released().silence(1).with(1, removed).outcome(), Outcome::kept);
  EXPECT_EQ(released().event(EventKind::warning).then(2, 70, hold).verdict().reason, "a warning in the log");
  EXPECT_EQ(released().then(2, 70, hold).outcome(), Outcome::notJudged);
}

TEST(WhyJudge, expectsControlWhenMacOSPermitsItAndNotBefore) {
  const auto mode = [](bool permits, const char* text) {
    return [permits, text](Observation& seen) {
      seen.macOSPermits = permits;
      seen.status->chargeMode = text;
    };
  };
  const auto after = [&](bool permits, const char* text) {
    return Sequence(Reason::keysClosed, event("macOSUpdated"))
        .then(5, 70, allow)
        .with(5, mode(false, "none"))
        .event(EventKind::restart)
        .then(5, 70, allow)
        .with(5, mode(permits, text))
        .outcome();
  };
  EXPECT_EQ(after(true, "CHTE"), Outcome::kept);
  EXPECT_EQ(after(true, "none"), Outcome::broken);
  EXPECT_EQ(after(false, "CHTE"), Outcome::broken);
  EXPECT_EQ(after(false, "none"), Outcome::notJudged);
}

TEST(WhyJudge, expectsNothingToBeStoppedUntilTheLimitIsSwitchedOn) {
  const auto enabled = [](bool is) { return [is](Observation& seen) { seen.status->enabled = is; }; };
  const auto off = [&] {
    return Sequence(Reason::off, event("switchedOn")).then(5, 90, allow).with(5, enabled(false));
  };
  EXPECT_EQ(off().event(EventKind::restart).then(2, 90, hold).with(2, enabled(true)).outcome(),
            Outcome::kept);
  EXPECT_EQ(off().then(2, 90, hold).with(2, enabled(false)).outcome(), Outcome::broken);
}

TEST(WhyJudge, followsAPhaseOfACalibration) {
  const auto drain = [](std::int64_t endsAt) {
    Sequence sequence(Reason::calibrationDrain, percent(15));
    sequence.then(1, 40, discharge);
    sequence.last().status->calibration.phase = CalPhase::drain;
    sequence.then(3, endsAt, allow);
    return sequence.outcome();
  };
  EXPECT_EQ(drain(15), Outcome::kept);
  EXPECT_EQ(drain(16), Outcome::broken);
}

TEST(WhyJudge, expectsASoakToBeCountedAgainAtFullChargeAndNotToEndThere) {
  const auto soak = [](std::int64_t pct, CalPhase phase) {
    Sequence sequence(Reason::calibrationSoak, event("full"));
    const auto in = [](CalPhase which) {
      return [which](Observation& seen) { seen.status->calibration.phase = which; };
    };
    return sequence.then(5, 99, allow)
        .with(5, in(CalPhase::soak))
        .then(5, pct, allow)
        .with(5, in(phase))
        .outcome();
  };
  EXPECT_EQ(soak(100, CalPhase::soak), Outcome::kept);
  EXPECT_EQ(soak(99, CalPhase::restore), Outcome::broken);
}

}  // namespace
}  // namespace brisko::proof::judge_test
