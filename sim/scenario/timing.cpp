#include "sim/scenario/timing.h"

#include <array>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <ctime>
#include <utility>

namespace brisko::lab {
namespace {

constexpr double day = 86400;

struct Unit {
  std::string_view name;
  double seconds;
};
constexpr std::array units{Unit{"s", 1}, Unit{"min", 60}, Unit{"h", 3600}, Unit{"day", day},
                           Unit{"days", day}};

void skipBlanks(std::string_view& rest) {
  while (!rest.empty() && rest.front() == ' ') rest.remove_prefix(1);
}

std::optional<std::int64_t> takeDigits(std::string_view& rest) {
  std::int64_t number = 0;
  const auto [end, error] = std::from_chars(rest.data(), rest.data() + rest.size(), number);
  if (error != std::errc{} || number < 0 || rest.front() == '-') return std::nullopt;
  rest.remove_prefix(static_cast<std::size_t>(end - rest.data()));
  return number;
}

bool take(std::string_view& rest, char wanted) {
  if (rest.empty() || rest.front() != wanted) return false;
  rest.remove_prefix(1);
  return true;
}

// Reads "21:30" or "21:30:15" up to the end of the text.
std::optional<double> takeTimeOfDay(std::string_view rest) {
  std::array<std::int64_t, 3> parts{};
  std::size_t count = 0;
  do {
    const std::size_t before = rest.size();
    const auto part = takeDigits(rest);
    if (!part || before - rest.size() != 2 || count == parts.size()) return std::nullopt;
    parts[count++] = *part;
  } while (take(rest, ':'));
  const bool whole = rest.empty() && count >= 2 && parts[0] < 24 && parts[1] < 60 && parts[2] < 60;
  if (!whole) return std::nullopt;
  return static_cast<double>(parts[0] * 3600 + parts[1] * 60 + parts[2]);
}

// "30 min"
std::optional<double> takeSpan(std::string_view& rest) {
  const auto number = takeDigits(rest);
  if (!number || *number > 1000000000) return std::nullopt;
  double factor = 0.1;
  auto amount = static_cast<double>(*number);
  if (take(rest, '.')) {
    for (; !rest.empty() && rest.front() >= '0' && rest.front() <= '9'; rest.remove_prefix(1)) {
      amount += factor * (rest.front() - '0');
      factor /= 10;
    }
  }
  skipBlanks(rest);
  const std::string_view word = rest.substr(0, rest.find(' '));
  for (const Unit& unit : units) {
    if (unit.name != word) continue;
    rest.remove_prefix(word.size());
    skipBlanks(rest);
    return amount * unit.seconds;
  }
  return std::nullopt;
}

}  // namespace

std::optional<Timing> parseTiming(std::string_view text) {
  Timing timing;
  if (!take(text, '+')) {
    timing.timeOfDay = takeTimeOfDay(text);
    return timing.timeOfDay ? std::optional(timing) : std::nullopt;
  }
  while (!text.empty()) {
    if (const auto clock = takeTimeOfDay(text)) {
      timing.timeOfDay = clock;
      return timing;
    }
    const auto span = takeSpan(text);
    if (!span) return std::nullopt;
    timing.seconds += *span;
  }
  return timing.seconds > 0 ? std::optional(timing) : std::nullopt;
}

double secondsUntil(const Timing& timing, double wallClock) {
  if (!timing.timeOfDay) return timing.seconds;
  const double then = wallClock + timing.seconds;
  double wait = *timing.timeOfDay - std::fmod(then, day);
  if (wait <= 0) wait += day;
  return timing.seconds + wait;
}

std::optional<double> parseDate(std::string_view text) {
  constexpr const char* form = "%Y-%m-%d %H:%M:%S";
  std::tm parts{};
  const std::string whole = text.size() == 16 ? std::string(text) + ":00" : std::string(text);
  if (::strptime(whole.c_str(), form, &parts) == nullptr) return std::nullopt;
  const auto moment = static_cast<double>(::timegm(&parts));
  // Formatting it again reveals what strptime should not accept: a blank instead of a digit, or a day that
  // the month does not have.
  std::array<char, 32> again{};
  const std::size_t length = std::strftime(again.data(), again.size(), form, &parts);
  return std::string_view(again.data(), length) == whole ? std::optional(moment) : std::nullopt;
}

std::string spanText(double seconds) {
  auto rest = static_cast<std::int64_t>(std::llround(seconds));
  std::string text;
  int told = 0;
  for (const auto& [name, size] :
       {std::pair<const char*, std::int64_t>{" d", 86400}, {" h", 3600}, {" min", 60}, {" s", 1}}) {
    if (rest < size && !(size == 1 && told == 0)) {
      if (told > 0) break;
      continue;
    }
    text += (told > 0 ? " " : "") + std::to_string(rest / size) + name;
    rest %= size;
    if (++told == 2 || rest == 0) break;
  }
  return text;
}

}  // namespace brisko::lab
