#include "report/history_files.h"

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <string_view>

#include "base/paths.h"

namespace brisko::lab {
namespace {

namespace fs = std::filesystem;
using Json = nlohmann::json;

constexpr std::string_view suffix = ".jsonl";
constexpr std::size_t skippedShown = 5;
// While the daemon runs and the Mac is awake, a line is written at the latest after 300 s plus one tick.
constexpr double longestSilence = 600;        // seconds
constexpr double farthestZone = 15 * 3600.0;  // the most that a local midnight differs from that in UTC
constexpr std::uintmax_t largestFile = std::uintmax_t{16} << 20U;  // bytes; the daemon writes a tenth of that

// Of a line; the daemon's have about a hundred. In memory a line of nothing but brackets takes a hundred
// times its length.
constexpr std::size_t longestLine = 4096;

// The day in a file's name.
std::optional<Date> dayOf(const std::string& name) {
  if (!name.ends_with(suffix)) return std::nullopt;
  return dateIn(std::string_view(name).substr(0, name.size() - suffix.size()));
}

struct DayFile {
  fs::path path;
  Date day;
};

// Those in the folder, in the order of their days. `error` is set when it cannot be read.
std::vector<DayFile> dayFilesIn(const fs::path& folder, std::error_code& error) {
  std::vector<DayFile> files;
  fs::directory_iterator entry(folder, error);
  for (; !error && entry != fs::directory_iterator(); entry.increment(error)) {
    std::error_code ignored;
    const auto day = dayOf(entry->path().filename().string());
    if (day && entry->is_regular_file(ignored)) files.push_back({entry->path(), *day});
  }
  std::sort(files.begin(), files.end(),
            [](const DayFile& one, const DayFile& other) { return one.day < other.day; });
  return files;
}

// --- A line

// The number under the key divided by `unit`; none when it is not a number within the limits.
std::optional<double> numberAt(const Json& object, const char* key, double unit, double least, double most) {
  const auto found = object.find(key);
  if (found == object.end() || !found->is_number()) return std::nullopt;
  const double number = found->get<double>() / unit;
  return number >= least && number <= most ? std::optional(number) : std::nullopt;
}

std::optional<bool> flagAt(const Json& object, const char* key) {
  const auto found = object.find(key);
  if (found == object.end() || !found->is_boolean()) return std::nullopt;
  return found->get<bool>();
}

std::optional<ChargeState> stateAt(const Json& object) {
  const auto found = object.find("s");
  if (found == object.end() || !found->is_string()) return std::nullopt;
  return stateNamed(found->get_ref<const std::string&>());
}

// --- All of them

void skip(HistoryReading& reading, const std::string& place, const std::string& fault) {
  if (reading.skipped++ < skippedShown) reading.firstSkipped.push_back(place + ": " + fault);
}

void readFile(const DayFile& file, HistoryReading& reading) {
  const std::string name = file.path.filename().string();
  std::error_code error;
  if (fs::file_size(file.path, error) > largestFile && !error) {
    skip(reading, name, "is larger than any file of the daemon");
    return;
  }
  const double day = utcMidnightOf(file.day);
  std::ifstream stream(file.path, std::ios::binary);
  std::string text;
  for (std::size_t number = 1; std::getline(stream, text); ++number) {
    if (text.empty()) continue;
    const HistoryLine line = readHistoryLine(text, day);
    if (line.moment) {
      reading.picture.moments.push_back(*line.moment);
    } else {
      skip(reading, name + ":" + std::to_string(number), line.fault);
    }
  }
  // What was read before an error counts; an empty file contributes nothing.
  ++reading.files;
}

// Sorts by time and marks the gaps.
void arrange(Picture& picture) {
  auto& moments = picture.moments;
  const auto earlier = [](const Moment& one, const Moment& other) { return one.time < other.time; };
  if (!std::is_sorted(moments.begin(), moments.end(), earlier)) {
    std::stable_sort(moments.begin(), moments.end(), earlier);
    picture.notes.emplace_back("Some lines did not stand in the order of time, and were brought into it.");
  }
  for (std::size_t index = 1; index < moments.size(); ++index) {
    moments[index].afterGap = moments[index].time - moments[index - 1].time > longestSilence;
  }
}

std::string counted(std::size_t count, const std::string& one, const std::string& more) {
  return std::to_string(count) + " " + (count == 1 ? one : more);
}

// The notes that every reader needs.
void addNotes(HistoryReading& reading) {
  reading.picture.notes.emplace_back(
      "Where more than ten minutes lie between two samples, the Mac slept, was off, or the daemon did not "
      "run "
      "or kept no history: nothing is drawn there.");
  if (reading.skipped > 0) {
    reading.picture.notes.push_back(counted(reading.skipped, "line was", "lines were") +
                                    " left out, being broken.");
  }
}

}  // namespace

HistoryLine readHistoryLine(const std::string& text, double midnight) {
  if (text.size() > longestLine) return {.fault = "is longer than any line of the daemon"};
  const Json object = Json::parse(text, nullptr, false);
  if (!object.is_object()) return {.fault = "is no JSON object"};
  Moment moment;
  const auto time = numberAt(object, "t", 1, midnight - farthestZone, midnight + 86400 + farthestZone);
  moment.level = numberAt(object, "p", 1, 0, 100);
  moment.state = stateAt(object);
  const auto plugged = flagAt(object, "g");
  if (!time) return {.fault = "\"t\" is no time of that day"};
  if (!moment.level) return {.fault = "\"p\" is no percentage"};
  if (!moment.state) return {.fault = "\"s\" is no state"};
  if (!plugged) return {.fault = "\"g\" is neither true nor false"};
  moment.time = *time;
  moment.supply = !*plugged                                ? Supply::none
                  : moment.state == ChargeState::discharge ? Supply::cut
                                                           : Supply::connected;
  if (flagAt(object, "hot").value_or(false)) moment.occasion = Occasion::heat;
  moment.temperatureC = numberAt(object, "ct", 10, -60, 150);
  moment.watts = numberAt(object, "wt", 10, -1000, 1000);
  return {.moment = moment};
}

std::optional<HistoryReading> readHistory(const std::string& folder, std::string& reason) {
  std::vector<DayFile> files;
  for (const fs::path& place :
       {fs::path(folder), fs::path(folder) / "history", fs::path(folder + historyDir)}) {
    std::error_code ignored;
    if (files.empty()) files = dayFilesIn(place, ignored);
  }
  std::error_code ignored;
  if (files.empty()) {
    reason =
        fs::is_directory(folder, ignored)
            ? "there is no history here, nor in \"history\" below: no file is named like 2026-03-01.jsonl"
            : "is no folder that can be read";
    return std::nullopt;
  }
  HistoryReading reading;
  for (const DayFile& file : files) readFile(file, reading);
  if (reading.picture.moments.empty()) {
    reason = "its " + counted(files.size(), "day file holds", "day files hold") + " no line that can be read";
    return std::nullopt;
  }
  arrange(reading.picture);
  reading.picture.title = "The charge, as the daemon kept it";
  reading.picture.facts = counted(reading.picture.moments.size(), "line", "lines") + " of " +
                          counted(reading.files, "day file", "day files");
  addNotes(reading);
  return reading;
}

HistoryReading readHistory(const std::string& folder, double from, double until, std::error_code& error) {
  HistoryReading reading;
  const std::vector<DayFile> files = dayFilesIn(folder, error);
  if (files.empty()) return reading;
  reading.firstDay = files.front().day;
  reading.lastDay = files.back().day;
  for (const DayFile& file : files) {
    const double midnight = utcMidnightOf(file.day);
    if (midnight + 86400 + farthestZone > from && midnight - farthestZone < until) readFile(file, reading);
  }
  std::erase_if(reading.picture.moments,
                [&](const Moment& moment) { return moment.time < from || moment.time >= until; });
  arrange(reading.picture);
  addNotes(reading);
  return reading;
}

}  // namespace brisko::lab
