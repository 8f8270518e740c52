// sim/scenario/line_pattern.h
// Searches the log and the journal for lines by patterns: the text of the line, with "…" for any varying
// part, which may be empty.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "sim/scenario/strict_json.h"

namespace brisko::lab {

// Neither contains a zero byte.
[[nodiscard]] bool matches(const std::string& line, std::string_view pattern);

// The expectations for a list of lines.
struct LineExpectations {
  std::vector<std::string> has = {};      // each at least once
  std::vector<std::string> hasNot = {};   // none of them
  std::vector<std::string> inOrder = {};  // in this order, with other lines between
  std::map<std::string, std::int64_t> counts = {};
};

// Reads a list of patterns (short for `has`), or an object with "has", "hasNot", "inOrder" and "count".
[[nodiscard]] LineExpectations readLineExpectations(const Json& value);

// A mismatch as "expected …" and "seen …"; the list is empty when everything matches.
struct Difference {
  std::string expected;
  std::string seen;
};
[[nodiscard]] std::vector<Difference> differencesOf(const std::vector<std::string>& lines,
                                                    const LineExpectations& expectations);

}  // namespace brisko::lab
