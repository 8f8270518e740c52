#include <algorithm>
#include <map>
#include <optional>
#include <regex>
#include <sstream>

#include "tidy/cpp_text.h"
#include "tidy/tree_check.h"

namespace brisko::test {
namespace {

const std::string wordsPath = "scripts/words.txt";
const std::string allowedPath = "scripts/words-allowed.txt";
constexpr std::size_t mostAllowed = 40;

struct Entry {
  std::string key;    // before the separator
  std::string value;  // after it
  std::size_t line;
};

struct Term {
  std::regex expression;
  std::string letters;                  // letters that every match contains
  std::vector<std::string> beginnings;  // the two characters that a match begins with; empty if not known
  std::string instead;
};

// Regular expressions are slow, so a text is searched for terms in two ways: at each of its words for the
// terms that begin so, and wherever their letters are for the others.
struct Terms {
  std::map<std::string, std::vector<Term>, std::less<>> byBeginning;
  std::vector<Term> others;
};

// A place where a term may stay: a line of the file `path` that contains `text`.
struct Allowed {
  std::string path;
  std::string text;
  std::size_t line;
  bool needed;
};

// The entries of a list, without comments and empty lines. A line without the separator is a finding.
std::vector<Entry> entriesOf(const Tree& tree, const std::string& path, const std::string& separator,
                             Findings& findings) {
  std::vector<Entry> entries;
  std::istringstream lines(tree.at(path));
  std::string line;
  for (std::size_t number = 1; std::getline(lines, line); ++number) {
    if (line.empty() || line.starts_with('#')) continue;
    const std::size_t at = line.find(separator);
    if (at == std::string::npos) {
      findings.push_back(place(path, number) + "there is no \"" + separator + "\" in the line");
      continue;
    }
    entries.push_back({line.substr(0, at), line.substr(at + separator.size()), number});
  }
  return entries;
}

bool isLetter(char character) {
  return (character >= 'a' && character <= 'z') || (character >= 'A' && character <= 'Z');
}

bool isInWord(char character) {
  return isLetter(character) || (character >= '0' && character <= '9') || character == '_';
}

// The longest run of letters that every match of the expression contains: outside groups and brackets, and
// not optional. Empty when the expression has alternatives outside a group.
std::string requiredLetters(const std::string& expression) {
  std::string longest;
  std::string run;
  const auto endRun = [&] {
    if (run.size() > longest.size()) longest = run;
    run.clear();
  };
  int depth = 0;
  for (std::size_t at = 0; at < expression.size(); ++at) {
    const char character = expression[at];
    if (depth == 0 && character == '|') return "";
    if (depth == 0 && isLetter(character)) {
      run += character;
      continue;
    }
    if (!run.empty() && std::string("?*{").find(character) != std::string::npos) run.pop_back();
    endRun();
    if (character == '(' || character == '[') ++depth;
    if (character == ')' || character == ']') --depth;
    if (character == '\\') ++at;
  }
  endRun();
  return longest;
}

// The letters that an element of the expression matches, such as "a" and "[Aa]". Empty for other elements.
// Moves past the element.
std::string takeLetters(const std::string& expression, std::size_t& at) {
  const std::size_t end = expression[at] == '[' ? expression.find(']', at) : at;
  if (end == std::string::npos) return "";
  const std::string letters = end == at ? expression.substr(at, 1) : expression.substr(at + 1, end - at - 1);
  at = end + 1;
  return std::all_of(letters.begin(), letters.end(), isLetter) ? letters : "";
}

// What every match begins with, for an expression that begins with \b and two letters.
std::vector<std::string> beginningsOf(const std::string& expression) {
  const std::string wordBegins = "\\b";
  std::size_t at = wordBegins.size();
  if (!expression.starts_with(wordBegins) || expression.size() < at + 2) return {};
  const std::string first = takeLetters(expression, at);
  if (first.empty() || at == expression.size()) return {};
  const std::string second = takeLetters(expression, at);
  if (at < expression.size() && std::string("?*{").find(expression[at]) != std::string::npos) return {};
  std::vector<std::string> beginnings;
  for (const char one : first)
    for (const char other : second) beginnings.push_back({one, other});
  return beginnings;
}

// A space also matches a line break, with the comment mark that begins the next line.
std::string acrossLines(const std::string& expression) {
  std::string result;
  for (const char character : expression)
    result += character == ' ' ? "\\s+(?:(?://|#)\\s*)?" : std::string(1, character);
  return result;
}

void add(Terms& terms, const Term& term) {
  for (const std::string& beginning : term.beginnings) terms.byBeginning[beginning].push_back(term);
  if (term.beginnings.empty()) terms.others.push_back(term);
}

Terms termsOf(const std::vector<Entry>& entries, Findings& findings) {
  Terms terms;
  for (const Entry& entry : entries) {
    const std::string letters = requiredLetters(entry.key);
    if (letters.size() < 2) {
      findings.push_back(place(wordsPath, entry.line) +
                         "the expression needs two letters in a row outside groups and brackets; split it");
      continue;
    }
    try {
      add(terms, {std::regex(acrossLines(entry.key)), letters, beginningsOf(entry.key), entry.value});
    } catch (const std::regex_error& error) {
      findings.push_back(place(wordsPath, entry.line) + "the expression is invalid: " + error.what());
    }
  }
  return terms;
}

// The offset and the text of a match.
struct Match {
  std::size_t offset;
  std::string text;
};

std::size_t endOfNextLine(const std::string& text, std::size_t offset) {
  const std::size_t lineEnd = text.find('\n', offset);
  return lineEnd == std::string::npos ? text.size() : std::min(text.find('\n', lineEnd + 1), text.size());
}

// The match that contains the offset. It begins on the same line or the previous one, and ends on the same
// line or the next one.
std::optional<Match> matchAround(const std::string& text, std::size_t offset, const std::regex& expression) {
  const std::size_t lineFeed = offset == 0 ? std::string::npos : text.rfind('\n', offset - 1);
  std::size_t begin = 0;
  if (lineFeed != std::string::npos && lineFeed > 0) {
    const std::size_t before = text.rfind('\n', lineFeed - 1);
    begin = before == std::string::npos ? 0 : before + 1;
  }
  const char* const first = text.data() + begin;
  const char* const end = text.data() + endOfNextLine(text, offset);
  for (std::cregex_iterator match(first, end, expression); match != std::cregex_iterator(); ++match) {
    const std::size_t at = begin + static_cast<std::size_t>(match->position());
    if (at > offset) break;
    if (offset < at + static_cast<std::size_t>(match->length())) return Match{at, match->str()};
  }
  return std::nullopt;
}

// The match that begins at the offset and ends on the same line or the next one.
std::optional<Match> matchAt(const std::string& text, std::size_t offset, const std::regex& expression) {
  using namespace std::regex_constants;
  const char* const first = text.data() + offset;
  const char* const end = text.data() + endOfNextLine(text, offset);
  std::cmatch match;
  if (!std::regex_search(first, end, match, expression, match_continuous)) return std::nullopt;
  return Match{offset, match.str()};
}

std::vector<Match> matchesIn(const std::string& text, const Term& term) {
  std::vector<Match> matches;
  for (std::size_t at = text.find(term.letters); at != std::string::npos;
       at = text.find(term.letters, at + 1)) {
    auto match = matchAround(text, at, term.expression);
    if (match && (matches.empty() || matches.back().offset != match->offset))
      matches.push_back(std::move(*match));
  }
  return matches;
}

std::string lineAround(const std::string& text, std::size_t offset) {
  const std::size_t lineFeed = offset == 0 ? std::string::npos : text.rfind('\n', offset - 1);
  const std::size_t begin = lineFeed == std::string::npos ? 0 : lineFeed + 1;
  return text.substr(begin, text.find('\n', offset) - begin);
}

// Whether the line may keep its word. Marks the entries that allow it.
bool isAllowed(std::vector<Allowed>& allowed, const std::string& path, const std::string& line) {
  bool found = false;
  for (Allowed& entry : allowed) {
    if (entry.path != path || line.find(entry.text) == std::string::npos) continue;
    entry.needed = true;
    found = true;
  }
  return found;
}

std::string onOneLine(std::string text) {
  std::replace(text.begin(), text.end(), '\n', ' ');
  return text;
}

// The text of a file, or its path, and where it may use terms.
struct Checked {
  const std::string& path;
  const std::string& text;
  std::vector<Allowed>& allowed;
  Findings& findings;
};

void checkMatch(const Match& match, const Term& term, const Checked& checked) {
  if (isAllowed(checked.allowed, checked.path, lineAround(checked.text, match.offset))) return;
  checked.findings.push_back(place(checked.path, lineOf(checked.text, match.offset)) + "\"" +
                             onOneLine(match.text) + "\"; write: " + term.instead);
}

bool beginsWord(const std::string& text, std::size_t offset) {
  return isLetter(text[offset]) && (offset == 0 || !isInWord(text[offset - 1]));
}

void checkWords(const Terms& terms, const Checked& checked) {
  const std::string& text = checked.text;
  for (std::size_t at = 0; at + 1 < text.size(); ++at) {
    if (!beginsWord(text, at)) continue;
    const auto found = terms.byBeginning.find(std::string_view(text).substr(at, 2));
    if (found == terms.byBeginning.end()) continue;
    for (const Term& term : found->second)
      if (const auto match = matchAt(text, at, term.expression)) checkMatch(*match, term, checked);
  }
}

void checkText(const Terms& terms, const Checked& checked) {
  checkWords(terms, checked);
  for (const Term& term : terms.others)
    for (const Match& match : matchesIn(checked.text, term)) checkMatch(match, term, checked);
}

void checkAllowed(const std::vector<Allowed>& allowed, Findings& findings) {
  if (allowed.size() > mostAllowed) {
    findings.push_back(place(allowedPath, allowed[mostAllowed].line) + "more than " +
                       std::to_string(mostAllowed) + " places; reword some of them");
  }
  for (const Allowed& entry : allowed) {
    if (entry.needed) continue;
    findings.push_back(place(allowedPath, entry.line) + "no such line has a word of " + wordsPath +
                       "; remove the entry");
  }
}

}  // namespace

Findings checkTerms(const Tree& tree) {
  for (const std::string& path : {wordsPath, allowedPath}) {
    if (!tree.contains(path))
      return {path + ": it is missing; it lists words that this project does not use"};
  }
  Findings findings;
  const Terms terms = termsOf(entriesOf(tree, wordsPath, " -> ", findings), findings);
  std::vector<Allowed> allowed;
  for (const Entry& entry : entriesOf(tree, allowedPath, ": ", findings))
    allowed.push_back({entry.key, entry.value, entry.line, false});

  for (const auto& [path, text] : tree) {
    if (path == wordsPath || path == allowedPath) continue;
    checkText(terms, {path, path, allowed, findings});
    checkText(terms, {path, text, allowed, findings});
  }
  checkAllowed(allowed, findings);
  return findings;
}

}  // namespace brisko::test
