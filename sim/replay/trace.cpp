#include "sim/replay/trace.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>

#include "report/history_files.h"
#include "sim/scenario/timing.h"

namespace brisko::lab {
namespace {

constexpr std::size_t stampSize = 20;  // "2026-03-01T08:15:30Z"

// Removes the text from the front.
bool take(std::string_view& rest, std::string_view text) {
  if (!rest.starts_with(text)) return false;
  rest.remove_prefix(text.size());
  return true;
}

// A percentage from 0 to 200, with its sign.
std::optional<std::int64_t> takePercent(std::string_view& rest) {
  constexpr std::size_t mostDigits = 3;
  const std::size_t digits = std::min(rest.find_first_not_of("0123456789"), rest.size());
  if (digits == 0 || digits > mostDigits) return std::nullopt;
  const std::int64_t number = std::strtoll(std::string(rest.substr(0, digits)).c_str(), nullptr, 10);
  rest.remove_prefix(digits);
  return number <= 200 && take(rest, "%") ? std::optional(number) : std::nullopt;
}

bool takeSettings(std::string_view& rest, SummarySettings& settings, bool& hot) {
  settings.enabled = !take(rest, "off");
  if (settings.enabled) {
    const auto limit = takePercent(rest);
    if (!limit) return false;
    settings.limit = *limit;
  }
  settings.topUp = take(rest, "(TopUp)");
  settings.discharge = take(rest, "+discharge");
  hot = take(rest, "+HOT");
  if (!take(rest, "  cal=")) return true;
  const std::size_t arrow = rest.find("→");
  if (arrow == rest.npos) return false;
  settings.phase = rest.substr(0, arrow);
  rest.remove_prefix(arrow + std::string_view("→").size());
  const auto target = takePercent(rest);
  settings.phaseTarget = target.value_or(0);
  return target.has_value();
}

// "31.5°C", or "?" when it is not known.
bool takeTemperature(std::string_view& rest, std::optional<double>& temperature) {
  if (take(rest, "?")) return true;
  const std::size_t end = rest.find("°C");
  if (end == rest.npos || end == 0 || end > 8) return false;
  const std::string digits(rest.substr(0, end));
  char* last = nullptr;
  const double read = std::strtod(digits.c_str(), &last);
  if (*last != '\0' || !std::isfinite(read)) return false;
  temperature = read;
  return take(rest, digits) && take(rest, "°C");
}

template <typename Item>
void sortByTime(std::vector<Item>& items) {
  std::stable_sort(items.begin(), items.end(),
                   [](const Item& one, const Item& other) { return one.time < other.time; });
}

}  // namespace

std::optional<Sighting> readSample(const std::string& line, double midnight) {
  const HistoryLine read = readHistoryLine(line, midnight);
  if (!read.moment) return std::nullopt;
  const Moment& moment = *read.moment;
  return Sighting{.time = moment.time,
                  .percent = std::llround(moment.level.value_or(0)),
                  .state = moment.state.value_or(ChargeState::allow),
                  .plugged = moment.supply != Supply::none,
                  .hot = moment.occasion == Occasion::heat,
                  .temperatureC = moment.temperatureC,
                  .watts = moment.watts,
                  .inHistory = true};
}

std::optional<Sighting> readSummary(std::string_view message, double time) {
  Sighting sighting{.time = time};
  SummarySettings settings;
  std::string_view rest = message;
  if (!take(rest, "cap ") || !takeSettings(rest, settings, sighting.hot)) return std::nullopt;
  if (!take(rest, "  batt ")) return std::nullopt;
  const auto percent = takePercent(rest);
  if (!percent || !take(rest, "  ") || !takeTemperature(rest, sighting.temperatureC)) return std::nullopt;
  sighting.percent = std::min<std::int64_t>(*percent, 100);
  const bool onAdapter = take(rest, "  ac");
  if (!onAdapter && !take(rest, "  battery")) return std::nullopt;
  if (!take(rest, "  state=")) return std::nullopt;
  const auto state = stateNamed(rest.substr(0, rest.find(' ')));
  if (!state) return std::nullopt;
  sighting.state = *state;
  if (onAdapter || *state != ChargeState::discharge) sighting.plugged = onAdapter;
  sighting.settings = settings;
  return sighting;
}

std::optional<double> stampOf(std::string_view line) {
  if (line.size() < stampSize || line[10] != 'T' || line[stampSize - 1] != 'Z') return std::nullopt;
  std::string stamp(line.substr(0, stampSize - 1));
  stamp[10] = ' ';
  return parseDate(stamp);
}

std::size_t readLog(std::string_view text, Trace& trace) {
  std::size_t broken = 0;
  while (!text.empty()) {
    const std::string_view line = text.substr(0, text.find('\n'));
    text.remove_prefix(std::min(line.size() + 1, text.size()));
    if (line.empty()) continue;
    const auto time = stampOf(line);
    const std::size_t begin = line.find_first_not_of(' ', stampSize);
    if (!time || begin == line.npos) {
      ++broken;
      continue;
    }
    const std::string_view message = line.substr(begin);
    if (!message.starts_with("cap ")) {
      trace.lines.push_back({*time, std::string(message)});
    } else if (auto sighting = readSummary(message, *time)) {
      trace.sightings.push_back(std::move(*sighting));
    } else {
      ++broken;
    }
  }
  return broken;
}

void arrange(Trace& trace) {
  sortByTime(trace.sightings);
  sortByTime(trace.lines);
}

std::vector<StateChange> statesOf(const Trace& trace) {
  constexpr std::string_view beginning = "→ state: ";
  std::vector<StateChange> states;
  for (const Sighting& sighting : trace.sightings) states.push_back({sighting.time, sighting.state});
  // After the sightings of the same second: the last change in it is what holds.
  for (const LoggedLine& line : trace.lines) {
    if (!line.text.starts_with(beginning)) continue;
    const std::string_view name = std::string_view(line.text).substr(beginning.size());
    if (const auto state = stateNamed(name.substr(0, name.find(' ')))) states.push_back({line.time, *state});
  }
  sortByTime(states);
  return states;
}

bool isStart(const std::string& message) { return message.starts_with("brisko-daemon started"); }

bool isEnd(const std::string& message) {
  return (message.starts_with("Signal ") && message.ends_with("exiting.")) ||
         message.starts_with("restart requested by the app");
}

std::vector<Span> outagesOf(const Trace& trace, double until) {
  std::vector<Span> outages;
  const LoggedLine* end = nullptr;
  for (const LoggedLine& line : trace.lines) {
    if (isEnd(line.text) && end == nullptr) end = &line;
    if (!isStart(line.text)) continue;
    if (end != nullptr) outages.push_back({end->time, line.time});
    end = nullptr;
  }
  if (end != nullptr && end->time < until) outages.push_back({end->time, until});
  return outages;
}

}  // namespace brisko::lab
