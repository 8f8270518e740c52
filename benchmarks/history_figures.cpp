#include <algorithm>
#include <array>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <system_error>
#include <vector>

#include "base/paths.h"
#include "figures.h"
#include "report/local_days.h"
#include "running.h"
#include "sim/process/scratch.h"

namespace brisko::bench {
namespace {

constexpr int days = 365;
constexpr int linesADay = 210;  // a Mac that is awake for 16 hours, and some changes

// A day at a desk: up in the morning, at the limit, an hour on the battery, and a warm evening.
std::string lineOf(double midnight, int number) {
  const int percent = number < 60 ? 50 + number / 2 : number < 100 ? 80 : number < 130 ? 180 - number : 80;
  const bool plugged = number < 100 || number >= 130;
  const auto time = static_cast<long long>(midnight) + 7 * 3600 + number * 270;
  return "{\"ct\":" + std::to_string(270 + number / 3) + ",\"g\":" + (plugged ? "true" : "false") +
         ",\"p\":" + std::to_string(percent) + ",\"s\":\"" + (plugged && percent == 80 ? "hold" : "allow") +
         "\",\"t\":" + std::to_string(time) + ",\"wt\":" + std::to_string(plugged ? 43 : -71) + "}\n";
}

void writeDays(const std::string& volume, lab::Date date, int count) {
  const std::string folder = volume + historyDir;
  std::error_code ignored;
  std::filesystem::create_directories(folder, ignored);
  for (int day = 0; day < count; ++day, date = lab::dateAfter(date, 1)) {
    std::ofstream file(folder + "/" + lab::isoText(date) + ".jsonl");
    for (int number = 0; number < linesADay; ++number) file << lineOf(lab::beginOf(date), number);
  }
}

// Whether the page was drawn of every line.
bool isWhole(const std::string& page) {
  std::ifstream file(page);
  const std::string text{std::istreambuf_iterator<char>(file), {}};
  return text.find(std::to_string(days * linesADay) + " samples") != std::string::npos;
}

}  // namespace

std::vector<Figure> historyFigures() {
  constexpr std::size_t times = 9;
  const sim::ScratchFolder scratch("brisko-bench");
  const std::string page = scratch.path("year.html");
  writeDays(scratch.path(), *lab::dateIn("2025-01-01"), days);
  std::array<double, times> seconds{};
  std::array<double, times> megabytes{};
  for (std::size_t count = 0; count < times; ++count) {
    Running drawing({sibling("brisko"), "history", "--volume", scratch.path(), "--from", "2025-01-01", "--to",
                     "2025-12-31", "--html", page},
                    "");
    const auto usage = drawing.wait();
    if (!usage || !isWhole(page)) return {};
    seconds.at(count) = usage->cpuSeconds;
    megabytes.at(count) = usage->megabytes;
  }
  std::sort(seconds.begin(), seconds.end());
  std::sort(megabytes.begin(), megabytes.end());
  return {{"a year of history drawn, processor time", seconds.at(times / 2), "s", Target::atMost, 1},
          {"a year of history drawn, memory", megabytes.at(times / 2), "MB"}};
}

std::vector<Figure> whatIfFigures() {
  constexpr int month = 30;
  const sim::ScratchFolder scratch("brisko-bench");
  const lab::Date today = lab::dateOf(static_cast<double>(std::time(nullptr)));
  writeDays(scratch.path(), lab::dateAfter(today, -month), month);
  const auto timed = [&](std::vector<std::string> words, const std::string& name, double target) {
    words.insert(words.begin(), sibling("brisko"));
    words.insert(words.end(), {"--volume", scratch.path(), "--days", std::to_string(month + 1)});
    const double start = realNow();
    Running playing(words, "");
    const bool isDone = playing.wait().has_value();
    return Figure{name, isDone ? realNow() - start : 1e9, "s", Target::atMost, target};
  };
  return {timed({"what-if", "limit=70"}, "thirty days with another limit", 3),
          timed({"advise"}, "thirty days with nine limits", 30)};
}

}  // namespace brisko::bench
