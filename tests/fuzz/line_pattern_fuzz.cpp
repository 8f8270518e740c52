// A pattern matches a line exactly if a table of all prefixes of both says so, and takes no more time than
// that. The input's lines are the pattern and the line; an asterisk represents the gap, which is three bytes
// long.
#include <vector>

#include "fuzz/bytes.h"
#include "fuzz/require.h"
#include "fuzz/target.h"
#include "sim/scenario/line_pattern.h"

namespace brisko::lab::line_pattern_fuzz {
namespace {

constexpr char gap = '*';

bool fits(std::string_view line, std::string_view pattern) {
  // Whether the pattern so far matches each prefix of the line.
  std::vector<bool> reached(line.size() + 1);
  reached[0] = true;
  for (const char wanted : pattern) {
    std::vector<bool> next(line.size() + 1);
    if (wanted == gap) next[0] = reached[0];
    for (std::size_t at = 1; at <= line.size(); ++at) {
      next[at] = wanted == gap ? reached[at] || next[at - 1] : reached[at - 1] && line[at - 1] == wanted;
    }
    reached = std::move(next);
  }
  return reached.back();
}

void tryPattern(std::string_view shortPattern, std::string_view line) {
  if (line.find(gap) != std::string_view::npos) return;
  if (line.find('\0') != std::string_view::npos || shortPattern.find('\0') != std::string_view::npos) return;
  if (line.find('\xE2') != std::string_view::npos || shortPattern.find('\xE2') != std::string_view::npos)
    return;
  std::string pattern;
  for (const char letter : shortPattern) {
    if (letter == gap) {
      pattern += "…";
    } else {
      pattern += letter;
    }
  }
  require(matches(std::string(line), pattern) == fits(line, shortPattern));
}

void tryInput(std::string_view input) {
  Bytes bytes(input);
  const std::string_view pattern = bytes.upTo('\n');
  tryPattern(pattern, bytes.rest());
}

const FuzzTarget target("line_pattern", tryInput);

}  // namespace
}  // namespace brisko::lab::line_pattern_fuzz
