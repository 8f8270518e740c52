#include "sim/what_if/agreement.h"

#include <cmath>

#include "report/markup.h"
#include "sim/replay/comparison.h"

namespace brisko::lab {
namespace {

Trace traceOf(const std::vector<PlayedMoment>& moments) {
  Trace trace;
  for (const PlayedMoment& moment : moments) {
    trace.sightings.push_back({.time = moment.time,
                               .percent = std::llround(moment.percent),
                               .state = moment.state,
                               .plugged = moment.plugged,
                               .hot = moment.hot});
  }
  return trace;
}

std::string sentenceOf(Trust trust) {
  switch (trust) {
    case Trust::good:
      return "You can trust the figures as far as the days to come are like these.";
    case Trust::fair:
      return "Trust which of the two is higher, but not by how much.";
    case Trust::poor:
      break;
  }
  return "That is too little to trust these figures: this Mac or its use differs from what was replayed.";
}

}  // namespace

Agreement agreementOf(const Trace& history, const std::vector<PlayedMoment>& played) {
  const Comparison comparison = compare(history, traceOf(played));
  Agreement agreement{.withinThree = comparison.chargeShare()};
  double apart = 0;
  for (const ChargePoint& point : comparison.charge) apart += std::abs(point.reported - point.replayed);
  if (!comparison.charge.empty()) agreement.meanApart = apart / static_cast<double>(comparison.charge.size());
  double agreed = 0;
  double all = 0;
  for (const StateAgreement& state : comparison.states) {
    agreed += state.agreed;
    all += state.reported;
  }
  if (all > 0) agreement.sameState = agreed / all;
  return agreement;
}

Trust trustIn(const Agreement& agreement) {
  if (agreement.withinThree >= 0.95) return Trust::good;
  return agreement.withinThree >= 0.80 ? Trust::fair : Trust::poor;
}

const char* trustWord(Trust trust) {
  switch (trust) {
    case Trust::good:
      return "good";
    case Trust::fair:
      return "fair";
    case Trust::poor:
      break;
  }
  return "poor";
}

std::string agreementText(const Agreement& agreement) {
  return "With unchanged settings the charge is within three points of the history for " +
         fixed(100 * agreement.withinThree, 1) + " % of the time (" + fixed(agreement.meanApart, 1) +
         " points apart on average), and the state is the same for " + fixed(100 * agreement.sameState, 1) +
         " %. " + sentenceOf(trustIn(agreement));
}

}  // namespace brisko::lab
