#include "client/recent_history.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <nlohmann/json.hpp>

#include "base/json_file.h"

namespace brisko::client {
namespace {

constexpr double secondsPerMinute = 60;
constexpr double recentSeconds = 15 * secondsPerMinute;
constexpr double secondsPerDay = 86'400;
constexpr double leastSpan = 3 * secondsPerMinute;  // between the first and the last change of the charge

// Near full a charger lowers the current by e in about this time, and the current would end beyond 100 %,
// because charging ends while some current still flows.
constexpr double taperMinutes = 15.6;
constexpr double taperEnd = 105.4;  // percent

std::vector<std::string_view> linesOf(std::string_view text) {
  std::vector<std::string_view> lines;
  while (!text.empty()) {
    const std::size_t end = std::min(text.find('\n'), text.size());
    if (end > 0) lines.push_back(text.substr(0, end));
    text.remove_prefix(std::min(end + 1, text.size()));
  }
  return lines;
}

// Collects samples from the newest to the oldest. False when no older sample is needed.
class Collector {
 public:
  Collector(double now, RecentHistory& history) : now_(now), history_(history) {}

  bool take(const RecentSample& sample) {
    if (sample.time > now_) return true;
    if (!since_) newest_ = sample.state;
    if (sample.state != newest_) changed_ = true;
    if (!changed_) since_ = sample.time;
    if (changed_ && since_) history_.stateSince = since_;
    const bool recent = sample.time >= now_ - recentSeconds;
    if (recent) history_.samples.push_back(sample);
    return recent || !changed_;
  }

 private:
  double now_;
  RecentHistory& history_;
  ChargeState newest_ = ChargeState::allow;  // once there is a sample
  std::optional<double> since_;
  bool changed_ = false;
};

// Where the charge changed, oldest first: the first sample of each percentage.
std::vector<RecentSample> changesOf(std::span<const RecentSample> samples) {
  std::vector<RecentSample> changes;
  for (std::size_t index = 1; index < samples.size(); ++index) {
    if (samples[index].pct != samples[index - 1].pct) changes.push_back(samples[index]);
  }
  return changes;
}

}  // namespace

std::optional<RecentSample> sampleIn(const std::string& line) {
  const auto object = parseJson(line);
  if (!object || !object->is_object()) return std::nullopt;
  const auto time = numberAt(*object, "t");
  const auto pct = integerAt(*object, "p");
  const auto plugged = booleanAt(*object, "g");
  const auto state = object->find("s");
  if (!time || !pct || !plugged || state == object->end() || !state->is_string()) return std::nullopt;
  const auto known = stateNamed(state->get_ref<const std::string&>());
  if (!known) return std::nullopt;
  RecentSample sample{.time = *time, .pct = *pct, .state = *known, .plugged = *plugged};
  sample.hot = booleanAt(*object, "hot").value_or(false);
  if (const auto watts = numberAt(*object, "wt")) sample.watts = *watts / 10;
  return sample;
}

std::vector<RecentSample> samplesIn(std::string_view text) {
  std::vector<RecentSample> samples;
  for (const std::string_view line : linesOf(text)) {
    if (const auto sample = sampleIn(std::string(line))) samples.push_back(*sample);
  }
  return samples;
}

RecentHistory recentHistory(double now, const std::function<std::string(double)>& dayText) {
  RecentHistory history;
  Collector collector(now, history);
  bool more = true;
  for (int day = 0; day < 2 && more; ++day) {
    const std::string text = dayText(now - day * secondsPerDay);
    const std::vector<std::string_view> lines = linesOf(text);
    for (auto line = lines.rbegin(); line != lines.rend() && more; ++line) {
      const auto sample = sampleIn(std::string(*line));
      if (sample) more = collector.take(*sample);
    }
  }
  std::reverse(history.samples.begin(), history.samples.end());
  return history;
}

std::span<const RecentSample> sinceLastChange(const std::vector<RecentSample>& samples) {
  if (samples.empty()) return {};
  const RecentSample& newest = samples.back();
  auto begin = samples.end() - 1;
  while (begin != samples.begin() && (begin - 1)->state == newest.state &&
         (begin - 1)->plugged == newest.plugged)
    --begin;
  return {begin, samples.end()};
}

std::optional<Slope> slopeOf(const std::vector<RecentSample>& samples) {
  const std::vector<RecentSample> changes = changesOf(sinceLastChange(samples));
  if (changes.size() < 2) return std::nullopt;
  const RecentSample& first = changes.front();
  const RecentSample& last = changes.back();
  const double seconds = last.time - first.time;
  // Not as integers: in a damaged file they may be any.
  const double rise = static_cast<double>(last.pct) - static_cast<double>(first.pct);
  if (seconds < leastSpan || rise == 0) return std::nullopt;
  return Slope{.perMinute = rise / seconds * secondsPerMinute, .lastTime = last.time, .lastPct = last.pct};
}

std::optional<double> minutesUntil(double target, const Slope& slope, double now) {
  const auto level = static_cast<double>(slope.lastPct);
  const double left = target - level;
  if (left == 0 || (left > 0) != (slope.perMinute > 0)) return std::nullopt;
  double minutes = 0;
  if (left < 0) {
    minutes = left / slope.perMinute;
  } else {
    const double taperBegins = std::clamp(taperEnd - slope.perMinute * taperMinutes, level, target);
    minutes = (taperBegins - level) / slope.perMinute +
              taperMinutes * std::log((taperEnd - taperBegins) / (taperEnd - target));
  }
  return std::max(minutes - (now - slope.lastTime) / secondsPerMinute, 0.0);
}

}  // namespace brisko::client
