#include "sim/replay/reported_settings.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdlib>
#include <string>

#include "base/settings.h"
#include "policy/charge_bounds.h"
#include "policy/heat.h"

namespace brisko::lab {
namespace {

constexpr double atOnce = 15;  // seconds: a tick and a little more

// --- What the log contains beside the summaries

const LoggedLine* lineBetween(const Trace& trace, std::string_view beginning, double from, double until) {
  const auto after = std::lower_bound(trace.lines.begin(), trace.lines.end(), from,
                                      [](const LoggedLine& line, double time) { return line.time < time; });
  for (auto line = after; line != trace.lines.end() && line->time <= until; ++line) {
    if (line->text.starts_with(beginning)) return &*line;
  }
  return nullptr;
}

// The number that follows the text, if one does.
std::optional<std::int64_t> numberAfter(const std::string& line, std::string_view before) {
  const std::size_t place = line.find(before);
  if (place == line.npos) return std::nullopt;
  const char* begin = line.c_str() + place + before.size();
  char* end = nullptr;
  const long long number = std::strtoll(begin, &end, 10);
  if (end == begin || number < 0 || number > 100000) return std::nullopt;
  return number;
}

// --- The band

struct SeenBand {
  double time;
  Bounds band;
};

// "plage 75–80%", "band 75–80%", "re-armed at 75–80%"
std::optional<Bounds> bandIn(const std::string& line) {
  constexpr std::array beginnings{"(plage ", "(band ", "firmware band re-armed at "};
  for (const char* beginning : beginnings) {
    const auto lower = numberAfter(line, beginning);
    const auto upper = numberAfter(line, "–");
    if (lower && upper && *lower < *upper && *upper <= 100) return Bounds{*upper, *lower};
  }
  return std::nullopt;
}

bool showsBand(const Sighting& sighting) {
  const auto& settings = sighting.settings;
  return settings && settings->enabled && !settings->topUp && settings->phase.empty() && !sighting.hot &&
         sighting.plugged == true;
}

// Charging that begins again while the charge falls shows the lower edge.
std::optional<Bounds> bandBetween(const Sighting& before, const Sighting& after) {
  constexpr double closeTogether = 700;
  if (!showsBand(before) || !showsBand(after) || *before.settings != *after.settings) return std::nullopt;
  const bool begins = before.state == ChargeState::hold && after.state == ChargeState::allow;
  if (!begins || after.time - before.time > closeTogether || before.percent != after.percent + 1)
    return std::nullopt;
  return Bounds{after.settings->limit, after.percent};
}

bool holdsByMacOS(const Trace& trace) {
  return std::any_of(trace.lines.begin(), trace.lines.end(), [](const LoggedLine& line) {
    return isStart(line.text) && line.text.find("charging via macOS") != std::string::npos;
  });
}

std::vector<SeenBand> bandsOf(const Trace& trace) {
  std::vector<SeenBand> bands;
  for (const LoggedLine& line : trace.lines) {
    if (const auto band = bandIn(line.text)) bands.push_back({line.time, *band});
  }
  const bool byMacOS = holdsByMacOS(trace);  // which has a margin of its own
  const Sighting* before = nullptr;
  for (const Sighting& sighting : trace.sightings) {
    if (!sighting.settings || byMacOS) continue;
    const auto band = before == nullptr ? std::nullopt : bandBetween(*before, sighting);
    if (band && band->lower < band->upper) bands.push_back({sighting.time, *band});
    before = &sighting;
  }
  std::stable_sort(bands.begin(), bands.end(),
                   [](const SeenBand& one, const SeenBand& other) { return one.time < other.time; });
  return bands;
}

bool hasLowerOption(const ReportedDays& days) {
  return std::find(days.arguments.begin(), days.arguments.end(), "--lower") != days.arguments.end();
}

// ---------------------------------------------------------------------------------------------------------

class SettingsReader {
 public:
  explicit SettingsReader(const ReportedDays& days)
      : days_(days), last_(days.config ? settingsIn(*days.config) : Settings{}) {}

  SettingsOverTime read() {
    if (days_.config) result_.first = believable(*days_.config);
    startFirst();
    followSummaries();
    followCalibrations();
    followUnpluggedTopUps();
    followClearedRequests();
    if (!hasLowerOption(days_)) followBands();
    followHeat();
    std::stable_sort(result_.edits.begin(), result_.edits.end(),
                     [](const DatedAction& one, const DatedAction& other) { return one.time < other.time; });
    return std::move(result_);
  }

 private:
  // The daemon stops at a number that does not fit, which a stranger may have sent.
  static ScenarioJson believable(const nlohmann::json& config) {
    ScenarioJson kept = ScenarioJson::object();
    const nlohmann::json known = configObject(Settings{});
    for (const auto& [key, value] : known.items()) {
      const auto found = config.find(key);
      if (found == config.end()) continue;
      const bool fits = found->is_number() && std::abs(found->get<double>()) < 1e6;
      if (value.is_boolean() ? found->is_boolean() : fits) kept[key] = *found;
    }
    return kept;
  }

  static Settings settingsIn(const nlohmann::json& config) {
    return parseConfig(nlohmann::json::parse(believable(config).dump()));
  }

  void edit(double time, ScenarioJson changes) {
    result_.edits.push_back({time, actionOf("settings", std::move(changes))});
  }

  void setFirst(const char* key, const ScenarioJson& value) {
    if (!result_.first) result_.first = ScenarioJson::object();
    (*result_.first)[key] = value;
  }

  // The replay keeps a history all the time.
  void startFirst() {
    if (!result_.first) return;
    for (const char* request : {"topUp", "calibrate", "resetStats"}) setFirst(request, false);
    setFirst("history", true);
    setFirst("historyDays", 365);
  }

  // --- Limit, switch, discharge, Top Up

  [[nodiscard]] bool showsDischarge() const {
    return std::any_of(
        days_.trace.sightings.begin(), days_.trace.sightings.end(),
        [](const Sighting& sighting) { return sighting.settings && sighting.settings->discharge; });
  }

  void followSummaries() {
    const bool followsDischarge = showsDischarge();
    std::optional<SummarySettings> before;
    double beforeTime = 0;
    for (const Sighting& sighting : days_.trace.sightings) {
      if (!sighting.settings) continue;
      SummarySettings now = *sighting.settings;
      // What is not in force is not shown, and stays as it was.
      if (!now.enabled || now.topUp) now.limit = before ? before->limit : 0;
      if (!followsDischarge || now.topUp) now.discharge = before ? before->discharge : last_.discharge;
      if (!before) {
        takeFirst(now, sighting.time);
      } else if (now != *before) {
        noteChange(*before, now, beforeTime, sighting.time);
      }
      before = now;
      beforeTime = sighting.time;
    }
  }

  void takeFirst(const SummarySettings& first, double time) {
    if (!result_.first && first.enabled && !first.topUp) return;  // the defaults, or the option --limit
    setFirst("enabled", first.enabled);
    if (first.limit > 0) setFirst("limit", first.limit);
    setFirst("discharge", first.discharge);
    if (first.topUp) {
      setFirst("topUp", true);
      setFirst("topUpHours", topUpHours(time));
    }
    if (!first.phase.empty()) setFirst("calibrate", true);
  }

  void noteChange(const SummarySettings& before, const SummarySettings& now, double beforeTime, double time) {
    ScenarioJson changes = ScenarioJson::object();
    if (before.enabled != now.enabled) changes["enabled"] = now.enabled;
    if (before.limit != now.limit && now.limit > 0) changes["limit"] = now.limit;
    if (before.discharge != now.discharge && !explainsDischarge(now.discharge, beforeTime, time))
      changes["discharge"] = now.discharge;
    if (now.topUp && !before.topUp) {
      changes["topUp"] = true;
      changes["topUpHours"] = topUpHours(time);
    } else if (before.topUp && !now.topUp && !endsTopUp(now, time)) {
      changes["topUp"] = false;
    }
    if (!changes.empty()) edit(time, std::move(changes));
  }

  // The daemon itself gave the discharge up, or tries it again.
  [[nodiscard]] bool explainsDischarge(bool isOn, double from, double time) const {
    const auto has = [&](std::string_view beginning) {
      return lineBetween(days_.trace, beginning, from - atOnce, time + 1) != nullptr;
    };
    return isOn ? has("forced discharge re-armed")
                : has("⚠️ forced discharge has no effect") || has("no forced discharge");
  }

  [[nodiscard]] bool endsTopUp(const SummarySettings& now, double time) const {
    return !now.phase.empty() || lineBetween(days_.trace, "Top Up ", time - atOnce, time + 1) != nullptr;
  }

  // 0, until unplugged, unless the Top Up that begins now is dropped after that many hours.
  [[nodiscard]] std::int64_t topUpHours(double time) const {
    const LoggedLine* end = lineBetween(days_.trace, "Top Up ", time, days_.end());
    return end == nullptr ? 0 : numberAfter(end->text, "Top Up dropped after ").value_or(0);
  }

  // Without an adapter a Top Up ends in the tick that finds it, before a summary shows it.
  void followUnpluggedTopUps() {
    for (const LoggedLine& line : days_.trace.lines) {
      if (line.text != "Top Up finished (unplugged)") continue;
      const auto& sightings = days_.trace.sightings;
      const auto before = std::find_if(sightings.rbegin(), sightings.rend(), [&](const Sighting& sighting) {
        return sighting.settings && sighting.time < line.time;
      });
      const bool ran = before != sightings.rend() && before->settings->topUp;
      if (!ran) edit(line.time, {{"topUp", true}});
    }
  }

  // --- Calibrations

  void followCalibrations() {
    for (const LoggedLine& line : days_.trace.lines) {
      if (line.text.starts_with("calibration started")) {
        edit(line.time, {{"calibrate", true},
                         {"calDrain", drainTarget(line.time)},
                         {"calSoakMinutes", soakMinutes(line.time)}});
      } else if (line.text.starts_with("calibration cancelled")) {
        edit(line.time, {{"calibrate", false}});
      }
    }
  }

  [[nodiscard]] std::int64_t drainTarget(double time) const {
    for (const Sighting& sighting : days_.trace.sightings) {
      if (sighting.time >= time && sighting.settings && sighting.settings->phase == "drain")
        return sighting.settings->phaseTarget;
    }
    return last_.calDrain;
  }

  [[nodiscard]] std::int64_t soakMinutes(double time) const {
    const LoggedLine* soak = lineBetween(days_.trace, "calibration → soak", time, days_.end());
    if (soak == nullptr) return last_.calSoakMinutes;
    const LoggedLine* restore = lineBetween(days_.trace, "calibration → restore", soak->time, days_.end());
    const LoggedLine* cancel = lineBetween(days_.trace, "calibration cancelled", soak->time, days_.end());
    if (cancel != nullptr && (restore == nullptr || cancel->time < restore->time))
      return std::max(last_.calSoakMinutes, static_cast<std::int64_t>((cancel->time - soak->time) / 60) + 1);
    if (restore == nullptr) return last_.calSoakMinutes;
    const auto minutes = static_cast<std::int64_t>((restore->time - soak->time) / 60);
    return minutes < last_.calSoakMinutes ? minutes : last_.calSoakMinutes;
  }

  // --- Requests to a daemon that only observes

  // It leaves a request alone until it is started again, and then clears it.
  void followClearedRequests() {
    double runsUntil = days_.begin();
    bool ended = false;
    for (const LoggedLine& line : days_.trace.lines) {
      if (isEnd(line.text) || (isStart(line.text) && !ended)) runsUntil = line.time - 1;
      if (isEnd(line.text) || isStart(line.text)) ended = isEnd(line.text);
      if (line.text.find(" request cleared") == std::string::npos) continue;
      ScenarioJson requests = ScenarioJson::object();
      if (line.text.find("pending calibration") != std::string::npos) requests["calibrate"] = true;
      if (line.text.find("Top-up request") != std::string::npos) requests["topUp"] = true;
      if (!requests.empty()) edit(runsUntil, std::move(requests));
    }
  }

  // --- The lower edge of the band

  void followBands() {
    const std::vector<SeenBand> bands = bandsOf(days_.trace);
    if (bands.empty()) return;
    std::int64_t now = marginOf(bands.front().band);
    if (now != last_.hysteresis) setFirst("hysteresis", now);
    double confirmed = bands.front().time;
    const auto change = [&](std::int64_t margin) {
      if (margin != now) edit(confirmed + 1, {{"hysteresis", margin}});
      now = margin;
    };
    for (const SeenBand& seen : bands) {
      change(marginOf(seen.band));
      confirmed = seen.time;
    }
    change(last_.hysteresis);
  }

  [[nodiscard]] std::int64_t marginOf(const Bounds& band) const {
    return bounds(band.upper, -1, last_.hysteresis) == band ? last_.hysteresis : band.upper - band.lower;
  }

  // --- Pauses for heat

  // Whether charging would be paused by what is known of the settings, and whether it was.
  void followHeat() {
    constexpr double rounding = 0.05;
    bool wanted = last_.thermal;
    std::int64_t limit = last_.thermalLimit;
    bool hot = false;
    double beforeTime = days_.begin();
    bool isFirst = true;
    result_.heatMatters = wanted;
    result_.heatLimits = {limit};
    for (const Sighting& sighting : days_.trace.sightings) {
      if (!sighting.temperatureC || sighting.plugged != true) continue;
      const double temperature = *sighting.temperatureC;
      const auto expects = [&](double exactly) {
        return pausedForHeat(
            {.wanted = wanted, .plugged = true, .temp = exactly, .limit = limit, .paused = hot});
      };
      // The log and the history have it in tenths.
      const bool fits =
          expects(temperature - rounding) == sighting.hot || expects(temperature + rounding) == sighting.hot;
      hot = sighting.hot;
      if (!fits) {
        wanted = hot;
        if (hot) limit = static_cast<std::int64_t>(std::floor(temperature));
        result_.heatMatters = true;
        result_.heatLimits.push_back(limit);
        ScenarioJson changes{{"thermal", wanted}, {"thermalLimit", limit}};
        if (isFirst) {
          for (const auto& [key, value] : changes.items()) setFirst(key.c_str(), value);
        } else {
          edit(hot ? sighting.time : beforeTime + 1, std::move(changes));
        }
      }
      isFirst = false;
      beforeTime = sighting.time;
    }
  }

  const ReportedDays& days_;
  Settings last_;  // at the end of the report
  SettingsOverTime result_ = {};
};

}  // namespace

SettingsOverTime settingsOf(const ReportedDays& days) { return SettingsReader(days).read(); }

}  // namespace brisko::lab
