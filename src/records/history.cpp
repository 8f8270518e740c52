#include "records/history.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <ctime>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

#include "base/checked.h"
#include "base/files.h"
#include "base/folders.h"
#include "base/json_file.h"
#include "base/log.h"
#include "base/paths.h"
#include "base/process_flags.h"
#include "base/volume_path.h"
#include "hardware/battery.h"
#include "platform/clock.h"
#include "state/tick_observer.h"

namespace brisko {
namespace {

constexpr std::string_view suffix = ".jsonl";

std::optional<Sample> gLastSample;  // of the last line
double gLastSampleTime = 0;         // wall clock; meaningless without a sample
std::string gLastPruneDay;

// "2025-03-14": the local calendar day; none beyond the calendar's range.
std::optional<std::string> dayName(double secondsSince1970) {
  // The time zone may have changed since the last line, because a Mac travels.
  ::tzset();
  const auto moment = static_cast<std::time_t>(checkedInteger(std::floor(secondsSince1970)));
  std::tm local{};
  if (::localtime_r(&moment, &local) == nullptr) return std::nullopt;
  std::array<char, 48> name{};
  static_cast<void>(std::snprintf(name.data(), name.size(), "%04d-%02d-%02d", local.tm_year + 1900,
                                  local.tm_mon + 1, local.tm_mday));
  return name.data();
}

// The value of `text` if it has only digits.
std::optional<int> digits(std::string_view text) {
  int number = 0;
  for (const char digit : text) {
    if (digit < '0' || digit > '9') return std::nullopt;
    number = number * 10 + (digit - '0');
  }
  return number;
}

// The first moment of the day with this name, seconds since 1970; none when the name is not a day.
std::optional<double> startOfDay(const std::string& name) {
  if (name.size() != 10 || name[4] != '-' || name[7] != '-') return std::nullopt;
  const std::string_view text = name;
  const auto year = digits(text.substr(0, 4));
  const auto month = digits(text.substr(5, 2));
  const auto day = digits(text.substr(8, 2));
  if (!year || !month || !day) return std::nullopt;
  const std::chrono::year_month_day date{std::chrono::year(*year),
                                         std::chrono::month(static_cast<unsigned>(*month)),
                                         std::chrono::day(static_cast<unsigned>(*day))};
  if (!date.ok()) return std::nullopt;

  std::tm local{};
  local.tm_year = *year - 1900;
  local.tm_mon = *month - 1;
  local.tm_mday = *day;
  local.tm_isdst = -1;
  const auto start = static_cast<double>(std::mktime(&local));
  // A day whose midnight occurs twice, at the end of summer time, begins with the first one.
  constexpr double hour = 3600.0;
  return dayName(start - hour) == name ? start - hour : start;
}

double degrees(const Sample& sample) { return sample.temp.value_or(0); }

bool isWorthALine(const Sample& sample, double now) {
  constexpr double leastInterval = 55.0;   // seconds
  constexpr double mostInterval = 300.0;   // seconds
  constexpr double temperatureStep = 0.5;  // °C
  if (!gLastSample) return true;
  if (sample.state != gLastSample->state || sample.plugged != gLastSample->plugged) return true;
  const double elapsed = now - gLastSampleTime;
  if (elapsed < leastInterval) return false;
  return sample.pct != gLastSample->pct ||
         std::abs(degrees(sample) - degrees(*gLastSample)) >= temperatureStep || elapsed >= mostInterval;
}

std::int64_t tenths(double value) { return checkedInteger(std::round(value * 10.0)); }

std::optional<double> batteryWatts() {
  const platform::SharedDictionary properties = SmartBattery::properties();
  return properties ? SmartBattery::watts(*properties) : std::nullopt;
}

// Includes the line feed.
std::optional<std::string> lineOf(const Sample& sample, double now) {
  Json object = {
      {"t", checkedInteger(now)},
      {"p", sample.pct},
      {"s", stateName(sample.state)},
      {"g", sample.plugged},
  };
  if (sample.hot) object["hot"] = true;
  if (sample.temp) object["ct"] = tenths(*sample.temp);
  if (const auto watts = batteryWatts()) object["wt"] = tenths(*watts);
  auto line = jsonText(object);
  if (line) *line += '\n';
  return line;
}

void append(const std::string& day, const std::string& line) {
  const std::string path = onVolume(std::string(historyDir) + "/" + day + std::string(suffix));
  Descriptor file = openForAppending(path);
  if (!file) {
    makeFolders(onVolume(historyDir));
    file = openForAppending(path);
  }
  // If the write fails, only this line is lost.
  if (file) static_cast<void>(writeAll(file.number(), line));
}

// Whether the file is ours and its day began before `cutoff`.
bool isExpired(const std::string& name, double cutoff) {
  if (!name.ends_with(suffix)) return false;
  const auto start = startOfDay(name.substr(0, name.size() - suffix.size()));
  return start && *start < cutoff;
}

// The names of the expired files, in order; none when the folder cannot be listed. Only these are kept in
// memory, because the folder may contain years of others.
std::vector<std::string> expiredFiles(double cutoff) {
  std::vector<std::string> names;
  std::error_code failure;
  std::filesystem::directory_iterator entry(onVolume(historyDir), failure);
  for (; !failure && entry != std::filesystem::directory_iterator(); entry.increment(failure)) {
    std::string name = entry->path().filename().string();
    if (isExpired(name, cutoff)) names.push_back(std::move(name));
  }
  std::sort(names.begin(), names.end());
  return names;
}

}  // namespace

void recordSample(const Sample& sample, const Settings& cfg) {
  tickPublished(sample, cfg);
  if (!cfg.history || gPurged) return;
  const double now = platform::wallNow();
  if (!isWorthALine(sample, now)) return;
  const auto day = dayName(now);
  const auto line = lineOf(sample, now);
  if (!day || !line) return;
  append(*day, *line);
  gLastSample = sample;
  gLastSampleTime = now;
  if (*day == gLastPruneDay) return;
  gLastPruneDay = *day;
  pruneHistory(cfg.historyDays);
}

void pruneHistory(std::int64_t days) {
  constexpr std::int64_t fewestDays = 7;
  constexpr double secondsPerDay = 86'400.0;
  const double cutoff = platform::wallNow() - static_cast<double>(std::max(days, fewestDays)) * secondsPerDay;
  for (const std::string& name : expiredFiles(cutoff)) {
    std::error_code ignored;
    // A folder with such a name is removed only when it is empty, because we never create one.
    removeFile(onVolume(std::string(historyDir) + "/" + name), ignored);
    log("history pruned: " + name);
  }
}

}  // namespace brisko
