// sim/scenario/line_pattern.h
// Lines of the log and of the journal, looked for by patterns: the line as it stands, with "…" for whatever
// varies, also nothing.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "sim/scenario/strict_json.h"

namespace brisko::lab {

[[nodiscard]] bool matches(std::string_view line, std::string_view pattern);

// What is asked of a list of lines.
struct LineExpectations {
  std::vector<std::string> has = {};      // each at least once
  std::vector<std::string> hasNot = {};   // none of them
  std::vector<std::string> inOrder = {};  // these one after the other, with others between
  std::map<std::string, std::int64_t> counts = {};
};

// From a list of patterns (what `has`), or an object with "has", "hasNot", "inOrder" and "count".
[[nodiscard]] LineExpectations readLineExpectations(const JsonCursor& place);

// What is not as wished, each as "expected …" and "seen …"; empty when all is.
struct Difference {
  std::string expected;
  std::string seen;
};
[[nodiscard]] std::vector<Difference> differencesOf(const std::vector<std::string>& lines,
                                                    const LineExpectations& expectations);

}  // namespace brisko::lab
