#include "sim/what_if/prepared_days.h"

#include <algorithm>
#include <optional>
#include <set>

#include "report/local_days.h"

namespace brisko::lab {
namespace {

std::string loadAssumption(const Trace& history) {
  const bool everOnBattery =
      std::any_of(history.sightings.begin(), history.sightings.end(), [](const Sighting& sighting) {
        return sighting.watts.value_or(0) < 0 &&
               (sighting.plugged == false || sighting.state == ChargeState::discharge);
      });
  if (everOnBattery)
    return "What the Mac takes on the adapter is not known: it is assumed to be what it takes on battery at "
           "the same hour of the day.";
  return "The Mac never ran on its battery in these days, so its load is not known: the load of its model "
         "is assumed.";
}

// The first moment that the log shows.
std::optional<double> logBegin(const Trace& history) {
  std::optional<double> first;
  const auto note = [&first](double time) { first = std::min(first.value_or(time), time); };
  for (const LoggedLine& line : history.lines) note(line.time);
  for (const Sighting& sighting : history.sightings) {
    if (sighting.settings) note(sighting.time);
  }
  return first;
}

}  // namespace

std::string whyTooFew(const Trace& history) {
  std::set<std::string> days;
  for (const Sighting& sighting : history.sightings) {
    if (sighting.inHistory) days.insert(isoText(dateOf(sighting.time)));
  }
  if (days.size() >= fewestDays) return "";
  return "the history has only " + std::to_string(days.size()) + (days.size() == 1 ? " day" : " days") +
         " of those asked for; at least " + std::to_string(fewestDays) + " are needed";
}

Reconstruction prepare(const ReportedDays& days) {
  constexpr double aDay = 86400;
  Reconstruction reconstruction = reconstruct(days, Purpose::otherSettings);
  auto& assumptions = reconstruction.assumptions;
  assumptions.push_back(loadAssumption(days.trace));
  assumptions.emplace_back("Where nothing was recorded, the Mac is assumed to have slept.");
  const auto log = logBegin(days.trace);
  if (log && *log > days.begin() + aDay)
    assumptions.push_back("The log begins on " + dateText(dateOf(*log)) +
                          ": before that the settings are assumed to have been the same as then.");
  const bool hasTemperature =
      std::any_of(days.trace.sightings.begin(), days.trace.sightings.end(),
                  [](const Sighting& sighting) { return sighting.temperatureC.has_value(); });
  if (!hasTemperature) assumptions.emplace_back("The battery's temperature was not recorded.");
  if (days.brokenLines > 0)
    assumptions.push_back(std::to_string(days.brokenLines) +
                          (days.brokenLines == 1 ? " line that is broken is" : " lines that are broken are") +
                          " left out.");
  return reconstruction;
}

}  // namespace brisko::lab
