#include "sim/scenario/line_pattern.h"

#include <algorithm>
#include <limits>

namespace brisko::lab {
namespace {

constexpr std::string_view anything = "…";

std::int64_t countOf(const std::vector<std::string>& lines, const std::string& pattern) {
  return std::count_if(lines.begin(), lines.end(),
                       [&](const std::string& line) { return matches(line, pattern); });
}

std::string times(std::int64_t count) {
  if (count == 0) return "not at all";
  return count == 1 ? "once" : std::to_string(count) + " times";
}

std::string quoted(const std::string& text) { return "\"" + text + "\""; }

void checkOrder(const std::vector<std::string>& lines, const std::vector<std::string>& patterns,
                std::vector<Difference>& found) {
  auto from = lines.begin();
  for (std::size_t index = 0; index < patterns.size(); ++index) {
    from = std::find_if(from, lines.end(),
                        [&](const std::string& line) { return matches(line, patterns[index]); });
    if (from == lines.end()) {
      const std::string after = index == 0 ? "" : " after " + quoted(patterns[index - 1]);
      found.push_back({quoted(patterns[index]) + after, "it stands there " +
                                                            times(countOf(lines, patterns[index])) +
                                                            (index == 0 ? "" : ", but not after that")});
      return;
    }
    ++from;
  }
}

}  // namespace

bool matches(std::string_view line, std::string_view pattern) {
  std::size_t gap = pattern.find(anything);
  if (gap == std::string_view::npos) return line == pattern;
  if (!line.starts_with(pattern.substr(0, gap))) return false;
  line.remove_prefix(gap);
  pattern.remove_prefix(gap + anything.size());
  // The first position where a piece matches is enough, except for the last piece, which must reach the end.
  for (gap = pattern.find(anything); gap != std::string_view::npos; gap = pattern.find(anything)) {
    const std::size_t at = line.find(pattern.substr(0, gap));
    if (at == std::string_view::npos) return false;
    line.remove_prefix(at + gap);
    pattern.remove_prefix(gap + anything.size());
  }
  return line.ends_with(pattern);
}

LineExpectations readLineExpectations(const JsonCursor& place) {
  LineExpectations expectations;
  if (!place.value().is_object()) {
    expectations.has = place.texts();
    return expectations;
  }
  for (const JsonCursor& member : place.members({"has", "hasNot", "inOrder", "count"})) {
    if (member.name() == "has") expectations.has = member.texts();
    if (member.name() == "hasNot") expectations.hasNot = member.texts();
    if (member.name() == "inOrder") expectations.inOrder = member.texts();
    if (member.name() != "count") continue;
    for (const JsonCursor& counted : member.members()) {
      const auto count = counted.integer(0, std::numeric_limits<std::int64_t>::max());
      if (count) expectations.counts[counted.name()] = *count;
    }
  }
  return expectations;
}

std::vector<Difference> differencesOf(const std::vector<std::string>& lines,
                                      const LineExpectations& expectations) {
  std::vector<Difference> found;
  for (const std::string& pattern : expectations.has) {
    if (countOf(lines, pattern) == 0) found.push_back({quoted(pattern), "no such line"});
  }
  for (const std::string& pattern : expectations.hasNot) {
    const auto line = std::find_if(lines.begin(), lines.end(),
                                   [&](const std::string& seen) { return matches(seen, pattern); });
    if (line != lines.end()) found.push_back({"no line like " + quoted(pattern), quoted(*line)});
  }
  for (const auto& [pattern, count] : expectations.counts) {
    const std::int64_t seen = countOf(lines, pattern);
    if (seen != count) found.push_back({quoted(pattern) + " " + times(count), times(seen)});
  }
  checkOrder(lines, expectations.inOrder, found);
  return found;
}

}  // namespace brisko::lab
