#include <regex>
#include <set>
#include <sstream>
#include <string>

#include "tidy/tree_check.h"

namespace brisko::test {
namespace {

const std::string pagePath = "docs/threat-model.md";

// "Suite.test" of the test that is defined after the word TEST; empty if none is. Searching for a regular
// expression would take seconds in a tree of this size.
std::string nameIn(std::string_view definition) {
  for (const std::string_view kind : {"_F(", "_P(", "("}) {
    if (!definition.starts_with(kind)) continue;
    definition = definition.substr(kind.size(), definition.find(')') - kind.size());
    const std::size_t comma = definition.find(',');
    const std::size_t begin = definition.find_first_not_of(" \n", comma + 1);
    if (comma == std::string_view::npos || begin == std::string_view::npos) return "";
    return std::string(definition.substr(0, comma)) + "." + std::string(definition.substr(begin));
  }
  return "";
}

std::set<std::string> testsOf(const Tree& tree) {
  constexpr std::string_view word = "\nTEST";
  std::set<std::string> tests;
  for (const auto& [path, text] : tree) {
    if (!path.starts_with("tests/")) continue;
    for (std::size_t at = text.find(word); at != std::string::npos; at = text.find(word, at + 1))
      tests.insert(nameIn(std::string_view(text).substr(at + word.size())));
  }
  return tests;
}

bool isTest(const Tree& tree, const std::set<std::string>& tests, const std::string& name) {
  constexpr std::string_view fuzz = "fuzz/";
  if (name.starts_with(fuzz)) return tree.contains("tests/" + name + "_fuzz.cpp");
  return tests.contains(name);
}

// The last cell of a row of a table; empty for other lines, and for the two that begin a table.
std::string lastCell(const std::string& line) {
  if (!line.starts_with("| ") || !line.ends_with(" |") || line.ends_with(" test |")) return "";
  const std::size_t begin = line.rfind(" | ", line.size() - 3);
  return begin == std::string::npos ? "" : line.substr(begin + 3, line.size() - begin - 5);
}

}  // namespace

Findings checkThreatModel(const Tree& tree) {
  const auto page = tree.find(pagePath);
  if (page == tree.end()) return {pagePath + ": it is missing"};
  const std::set<std::string> tests = testsOf(tree);
  const std::regex quoted("`([^`]+)`");
  Findings findings;
  std::istringstream lines(page->second);
  std::string line;
  for (std::size_t number = 1; std::getline(lines, line); ++number) {
    const std::string cell = lastCell(line);
    if (cell.empty()) continue;
    std::size_t named = 0;
    for (std::sregex_iterator found(cell.begin(), cell.end(), quoted), end; found != end; ++found, ++named) {
      const std::string name = (*found)[1];
      if (!isTest(tree, tests, name))
        findings.push_back(place(pagePath, number) + "there is no test " + name +
                           "; name the one that replaced it");
    }
    if (named == 0)
      findings.push_back(place(pagePath, number) + "a row without a test; write one, and name it");
  }
  return findings;
}

}  // namespace brisko::test
