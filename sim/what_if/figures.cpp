#include "sim/what_if/figures.h"

#include <algorithm>
#include <cmath>
#include <ctime>

namespace brisko::lab {
namespace {

constexpr double usualCelsius = 25;

double firstTemperatureOf(const Trace& trace) {
  for (const Sighting& sighting : trace.sightings) {
    if (sighting.temperatureC) return *sighting.temperatureC;
  }
  return usualCelsius;
}

// --- One interval

// In pieces, because a cell ages faster than in proportion to its charge.
void addAgeing(const PlayedMoment& from, const PlayedMoment& until, Ageing& ageing) {
  constexpr double longestPiece = 600;
  const double seconds = until.time - from.time;
  const double pieces = std::max(1.0, std::ceil(seconds / longestPiece));
  for (double piece = 0; piece < pieces; ++piece) {
    const double share = (piece + 0.5) / pieces;
    age(ageing, seconds / pieces / 86400, from.percent + share * (until.percent - from.percent),
        from.temperatureC + share * (until.temperatureC - from.temperatureC));
  }
}

void addInterval(const PlayedMoment& from, const PlayedMoment& until, Figures& figures) {
  const double seconds = until.time - from.time;
  if (from.percent > 80) figures.above80 += seconds;
  if (from.percent >= 100) figures.at100 += seconds;
  if (from.hot) figures.hot += seconds;
  figures.meanPercent += (from.percent + until.percent) / 2 * seconds;
  figures.cycles += std::max(0.0, from.percent - until.percent) / 100;
  addAgeing(from, until, figures.ageing);
}

// --- On the battery

void addUnpluggings(const std::vector<PlayedMoment>& moments, Figures& figures) {
  std::vector<double> charges;
  for (std::size_t index = 1; index < moments.size(); ++index) {
    if (moments[index - 1].plugged && !moments[index].plugged) charges.push_back(moments[index].percent);
  }
  if (charges.empty()) return;
  std::sort(charges.begin(), charges.end());
  const std::size_t middle = charges.size() / 2;
  figures.unplugged = charges.size();
  figures.leastUnplugged = charges.front();
  figures.medianUnplugged =
      charges.size() % 2 == 1 ? charges[middle] : (charges[middle - 1] + charges[middle]) / 2;
}

void addEmptyTimes(const std::vector<PlayedMoment>& moments, Figures& figures) {
  std::optional<double> emptySince;
  for (const PlayedMoment& moment : moments) {
    if (!emptySince && !moment.plugged && moment.percent <= emptyPercent) {
      emptySince = moment.time;
      ++figures.timesEmpty;
    }
    if (emptySince && moment.plugged) {
      figures.secondsEmpty += moment.time - *emptySince;
      emptySince.reset();
    }
  }
  if (emptySince) figures.secondsEmpty += moments.back().time - *emptySince;
}

}  // namespace

std::vector<PlayedMoment> momentsOf(const Trace& trace) {
  std::vector<PlayedMoment> moments;
  double temperature = firstTemperatureOf(trace);
  for (const Sighting& sighting : trace.sightings) {
    if (!sighting.plugged) continue;
    temperature = sighting.temperatureC.value_or(temperature);
    moments.push_back({.time = sighting.time,
                       .percent = static_cast<double>(sighting.percent),
                       .temperatureC = temperature,
                       .state = sighting.state,
                       .plugged = *sighting.plugged,
                       .hot = sighting.hot});
  }
  return moments;
}

bool isNight(double time) {
  const auto seconds = static_cast<std::time_t>(time);
  std::tm parts{};
  ::localtime_r(&seconds, &parts);
  return parts.tm_hour >= 22 || parts.tm_hour < 7;
}

Figures figuresOf(const PlayedDays& days) {
  const std::vector<PlayedMoment>& moments = days.moments;
  Figures figures{.seconds = moments.back().time - moments.front().time, .nightWakes = days.nightWakes};
  for (std::size_t index = 1; index < moments.size(); ++index)
    addInterval(moments[index - 1], moments[index], figures);
  if (figures.seconds > 0) figures.meanPercent /= figures.seconds;
  addUnpluggings(moments, figures);
  addEmptyTimes(moments, figures);
  return figures;
}

}  // namespace brisko::lab
