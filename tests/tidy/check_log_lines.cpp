#include <algorithm>
#include <array>
#include <sstream>
#include <utility>

#include "tidy/cpp_text.h"
#include "tidy/tree_check.h"

namespace brisko::test {
namespace {

const std::string documentPath = "docs/log.md";

// A line that begins with one of these is meant for people, wherever it is written.
const std::array<std::string, 2> signs = {"⚠️", "⛔️"};

struct DocumentedLine {
  std::string text;
  std::size_t number;
};

// The items of the document that begin with a line in backticks.
std::vector<DocumentedLine> documentedLines(const std::string& document) {
  std::vector<DocumentedLine> result;
  std::istringstream lines(document);
  std::string line;
  for (std::size_t number = 1; std::getline(lines, line); ++number) {
    if (!line.starts_with("- `")) continue;
    result.push_back({line.substr(3, line.find('`', 3) - 3), number});
  }
  return result;
}

// A documented line, split into its fixed texts and its variable parts, which are written as <name> or ….
struct LineParts {
  std::vector<std::string> fixed;
  std::vector<std::string> variable;
};

LineParts partsOf(std::string_view line) {
  constexpr std::string_view ellipsis = "…";
  LineParts parts{{""}, {}};
  for (std::size_t at = 0; at < line.size();) {
    const std::size_t close = line[at] == '<' ? line.find('>', at) : std::string_view::npos;
    const bool named = close != std::string_view::npos;
    if (!named && !line.substr(at).starts_with(ellipsis)) {
      parts.fixed.back() += line[at++];
      continue;
    }
    parts.variable.emplace_back(named ? line.substr(at + 1, close - at - 1) : "");
    parts.fixed.emplace_back();
    at = named ? close + 1 : at + ellipsis.size();
  }
  return parts;
}

// The document contains a fixed text as the source does, or as one of several values inside a variable part.
bool explains(const DocumentedLine& line, const std::string& text) {
  const LineParts parts = partsOf(line.text);
  return std::find(parts.fixed.begin(), parts.fixed.end(), text) != parts.fixed.end() ||
         std::any_of(parts.variable.begin(), parts.variable.end(),
                     [&](const std::string& part) { return part.find(text) != std::string::npos; });
}

std::string longestFixedText(const DocumentedLine& line) {
  const std::vector<std::string> texts = partsOf(line.text).fixed;
  return *std::max_element(texts.begin(), texts.end(),
                           [](const auto& left, const auto& right) { return left.size() < right.size(); });
}

using Range = std::pair<std::size_t, std::size_t>;

Range parentheses(std::string_view code, std::size_t from) {
  const std::size_t open = code.find('(', from);
  std::size_t depth = 0;
  for (std::size_t at = open; at < code.size(); ++at) {
    if (code[at] == '(') ++depth;
    if (code[at] == ')' && --depth == 0) return {open, at};
  }
  return {open, code.size()};
}

// The text between the parentheses of each call of our log().
std::vector<Range> logCalls(std::string_view code) {
  std::vector<Range> calls;
  forEachName(code, [&](std::string_view name, std::size_t offset) {
    const bool logarithm = offset >= 5 && code.substr(offset - 5, 5) == "std::";
    if (name == "log" && !logarithm && isCalledFreely(code, offset))
      calls.push_back(parentheses(code, offset));
  });
  return calls;
}

// More than a separator between two values, or a unit.
bool hasText(std::string_view text) {
  return std::count_if(text.begin(), text.end(),
                       [](char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }) >= 2;
}

// The literals of a source that are parts of a line for people.
std::vector<Literal> lineTexts(const CppText& source) {
  const std::vector<Range> calls = logCalls(source.code);
  std::vector<Literal> texts;
  for (const Literal& literal : source.literals) {
    const bool logged = std::any_of(calls.begin(), calls.end(), [&](const Range& call) {
      return literal.offset > call.first && literal.offset < call.second;
    });
    const bool signed_ = std::any_of(signs.begin(), signs.end(),
                                     [&](const std::string& sign) { return literal.text.starts_with(sign); });
    if (signed_ || (logged && hasText(literal.text))) texts.push_back(literal);
  }
  return texts;
}

std::string withoutLineFeed(std::string text) {
  if (text.ends_with('\n')) text.pop_back();
  return text;
}

}  // namespace

Findings checkLogLines(const Tree& tree) {
  const auto document = tree.find(documentPath);
  if (document == tree.end()) return {documentPath + ": it is missing; it explains every line of the log"};
  const std::vector<DocumentedLine> lines = documentedLines(document->second);

  Findings findings;
  std::vector<std::string> allLiterals;
  for (const auto& [path, text] : tree) {
    if (!isDaemonSource(path) || inPlatform(path)) continue;
    const CppText source = takeApart(text);
    for (const Literal& literal : source.literals) allLiterals.push_back(literal.text);
    for (const Literal& literal : lineTexts(source)) {
      const std::string wanted = withoutLineFeed(literal.text);
      const bool documented = std::any_of(lines.begin(), lines.end(),
                                          [&](const DocumentedLine& line) { return explains(line, wanted); });
      if (documented) continue;
      findings.push_back(place(path, lineOf(text, literal.offset)) + "\"" + wanted + "\" is in no line of " +
                         documentPath + "; add the line, what it means and what its reader should do");
    }
  }
  for (const DocumentedLine& line : lines) {
    const std::string wanted = longestFixedText(line);
    const bool written = std::any_of(allLiterals.begin(), allLiterals.end(), [&](const std::string& literal) {
      return literal.find(wanted) != std::string::npos;
    });
    if (written) continue;
    findings.push_back(place(documentPath, line.number) + "no source writes \"" + wanted +
                       "\" in one literal; mend the line, or take it out");
  }
  return findings;
}

}  // namespace brisko::test
