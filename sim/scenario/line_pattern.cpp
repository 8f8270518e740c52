#include "sim/scenario/line_pattern.h"

#include <algorithm>

#include <fnmatch.h>

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
      found.push_back({quoted(patterns[index]) + after, "it is there " +
                                                            times(countOf(lines, patterns[index])) +
                                                            (index == 0 ? "" : ", but not after that")});
      return;
    }
    ++from;
  }
}

}  // namespace

bool matches(const std::string& line, std::string_view pattern) {
  std::string glob;
  for (std::size_t at = 0; at < pattern.size(); ++at) {
    if (pattern.substr(at).starts_with(anything)) {
      glob += '*';
      at += anything.size() - 1;
      continue;
    }
    if (std::string_view("*?[\\").find(pattern[at]) != std::string_view::npos) glob += '\\';
    glob += pattern[at];
  }
  return ::fnmatch(glob.c_str(), line.c_str(), 0) == 0;
}

LineExpectations readLineExpectations(const Json& value) {
  if (!value.is_object()) return {.has = textsOf(value)};
  const auto texts = [&](const char* key) { return textsOf(value.value(key, Json::array())); };
  return {.has = texts("has"),
          .hasNot = texts("hasNot"),
          .inOrder = texts("inOrder"),
          .counts = value.value("count", std::map<std::string, std::int64_t>())};
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
