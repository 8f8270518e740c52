#include "replay_proof/agreement.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "report/scale.h"

namespace brisko::proof {
namespace {

constexpr double stateGoal = 0.97;
constexpr double chargeGoal = 0.95;
constexpr double nearEnough = 600;  // seconds
constexpr std::size_t worstShown = 10;
constexpr std::array allStates{ChargeState::allow, ChargeState::hold, ChargeState::discharge};

std::string percentText(double share) {
  std::array<char, 16> text{};
  static_cast<void>(std::snprintf(text.data(), text.size(), "%.1f %%", share * 100));
  return text.data();
}

std::string number(double value) {
  std::array<char, 24> text{};
  static_cast<void>(std::snprintf(text.data(), text.size(), "%.1f", value));
  return text.data();
}

}  // namespace

void Agreement::add(std::uint64_t seed, const lab::Comparison& comparison) {
  Week week{.seed = seed, .states = {}, .charge = comparison.chargeShare(), .departure = "none"};
  for (std::size_t index = 0; index < states_.size(); ++index) {
    const lab::StateAgreement& agreement = comparison.states[index];
    states_[index].reported += agreement.reported;
    states_[index].replayed += agreement.replayed;
    states_[index].agreed += agreement.agreed;
    week.states[index] = agreement.canBeJudged() ? agreement.share() : 1;
  }
  points_ += comparison.charge.size();
  within_ += comparison.withinThree;
  if (!comparison.departures.empty()) {
    const lab::Departure& first = comparison.departures.front();
    week.departure = lab::momentText(first.time) + ": " + first.words;
  }
  weeks_.push_back(std::move(week));
}

void Agreement::addUnreplayed(std::uint64_t seed, const std::string& reason) {
  unreplayed_.push_back("seed " + std::to_string(seed) + ": " + reason);
}

double Agreement::chargeShare() const {
  return points_ == 0 ? 1 : static_cast<double>(within_) / static_cast<double>(points_);
}

std::string Agreement::worstWeeks() const {
  std::vector<Week> weeks = weeks_;
  const auto worst = [](const Week& week) {
    return std::min(*std::min_element(week.states.begin(), week.states.end()), week.charge);
  };
  std::stable_sort(weeks.begin(), weeks.end(),
                   [&](const Week& one, const Week& other) { return worst(one) < worst(other); });
  weeks.resize(std::min(weeks.size(), worstShown));
  std::string text = "the weeks that agree least (allow, hold, discharge, charge; the first departure):\n";
  for (const Week& week : weeks) {
    text += "  seed " + std::to_string(week.seed) + ": ";
    for (const double share : week.states) text += percentText(share) + ", ";
    text += percentText(week.charge) + "; " + week.departure + "\n";
  }
  return text;
}

std::string Agreement::text() const {
  std::string text = std::to_string(weeks_.size()) + " reports replayed, " +
                     std::to_string(unreplayed_.size()) + " could not be\n";
  for (const ChargeState state : allStates) {
    const lab::StateAgreement& agreement = states_[static_cast<std::size_t>(state)];
    text += std::string(stateName(state)) + ": " + number(agreement.reported / 3600) + " h reported, " +
            number(agreement.replayed / 3600) + " h replayed, " +
            (agreement.canBeJudged() ? percentText(agreement.share()) + " agrees" : "too little to judge") +
            "\n";
  }
  text += "charge within three points: " + percentText(chargeShare()) + " of " + std::to_string(points_) +
          "\n" + worstWeeks();
  for (const std::string& line : unreplayed_) text += "not replayed: " + line + "\n";
  return text;
}

std::vector<std::string> Agreement::missedGoals() const {
  std::vector<std::string> missed;
  for (const ChargeState state : allStates) {
    const lab::StateAgreement& agreement = states_[static_cast<std::size_t>(state)];
    if (!agreement.canBeJudged() || agreement.share() >= stateGoal) continue;
    missed.push_back(std::string(stateName(state)) + " agrees for " + percentText(agreement.share()) +
                     " of its time");
  }
  if (chargeShare() < chargeGoal) missed.push_back("the charge agrees for " + percentText(chargeShare()));
  return missed;
}

void Departures::add(std::uint64_t seed, const std::string& fault, const FaultTrace& trace,
                     std::optional<lab::Departure> departure) {
  const std::string line = "  seed " + std::to_string(seed) + ", " + fault + ": ";
  if (!departure) {
    ++(trace.visible ? late_ : small_);
    lines_.push_back(line + "nothing departs" + (trace.visible ? "" : "; it is too small to see"));
    return;
  }
  const double distance = departure->time - trace.first;
  const bool isGradual = trace.visible && *trace.visible - trace.first > nearEnough &&
                         distance > nearEnough && departure->time <= *trace.visible + nearEnough;
  if (std::abs(distance) <= nearEnough) {
    ++named_;
  } else if (distance < 0) {
    ++early_;
  } else {
    ++(isGradual ? gradual_ : late_);
  }
  lines_.push_back(
      line + number(distance / 60) + " min, " + departure->words +
      (isGradual ? "; it can be seen after " + number((*trace.visible - trace.first) / 60) + " min" : ""));
}

double Departures::namedShare() const {
  const std::size_t all = named_ + early_ + late_;
  return all == 0 ? 1 : static_cast<double>(named_) / static_cast<double>(all);
}

std::string Departures::text() const {
  std::string text = "the first departure, minutes after the fault's first trace in the report:\n";
  for (const std::string& line : lines_) text += line + "\n";
  return text + std::to_string(named_) + " within ten minutes (" + percentText(namedShare()) + "), " +
         std::to_string(early_) + " earlier, " + std::to_string(late_) + " later or not at all; " +
         std::to_string(gradual_) + " showed later and were named then, " + std::to_string(small_) +
         " were too small to see; " + std::to_string(traceless_) + " faults left no trace\n";
}

std::vector<std::string> Departures::missedGoals() const {
  if (early_ + late_ == 0) return {};
  return {std::to_string(early_ + late_) + " faults were not named within ten minutes"};
}

}  // namespace brisko::proof
