#include <algorithm>
#include <array>
#include <sstream>

#include "tidy/cpp_text.h"
#include "tidy/tree_check.h"

namespace brisko::test {
namespace {

// Written in pieces, so that the check does not report this file.
const std::array<std::string, 2> bareSigns = {std::string("\xE2\x9A") + "\xA0",
                                              std::string("\xE2\x9B") + "\x94"};
const std::array<std::string, 2> wideBlanks = {std::string("\xC2") + "\xA0",
                                               std::string("\xE2\x80") + "\xAF"};
constexpr std::string_view variationSelector = "\xEF\xB8\x8F";

bool hasBareSign(std::string_view text) {
  for (const std::string& sign : bareSigns) {
    for (std::size_t at = text.find(sign); at != std::string_view::npos; at = text.find(sign, at + 1)) {
      if (!text.substr(at + sign.size()).starts_with(variationSelector)) return true;
    }
  }
  return false;
}

bool hasWideBlank(std::string_view text) {
  return std::any_of(wideBlanks.begin(), wideBlanks.end(),
                     [&](const std::string& blank) { return text.find(blank) != std::string_view::npos; });
}

// The lines of the file, each followed by the literals that begin in it, with escapes resolved.
std::vector<std::string> linesWithLiterals(const std::string& path, const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);) lines.push_back(line);
  if (!isCpp(path)) return lines;
  std::size_t line = 0;
  std::size_t counted = 0;
  for (const Literal& literal : takeApart(text).literals) {
    for (; counted < literal.offset; ++counted) line += text[counted] == '\n' ? 1 : 0;
    lines[line] += ' ' + literal.text;
  }
  return lines;
}

}  // namespace

Findings checkCharacters(const Tree& tree) {
  Findings findings;
  for (const auto& [path, text] : tree) {
    const std::vector<std::string> lines = linesWithLiterals(path, text);
    for (std::size_t index = 0; index < lines.size(); ++index) {
      if (hasBareSign(lines[index])) {
        findings.push_back(place(path, index + 1) +
                           "U+26A0 or U+26D4 without U+FE0F; put it right after the sign");
      }
      if (path.starts_with("src/") && hasWideBlank(lines[index])) {
        findings.push_back(place(path, index + 1) + "U+00A0 or U+202F; write the plain blank");
      }
    }
  }
  return findings;
}

}  // namespace brisko::test
