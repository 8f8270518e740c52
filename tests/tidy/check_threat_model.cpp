#include <regex>
#include <set>
#include <sstream>
#include <string>

#include "tidy/tree_check.h"

namespace brisko::test {
namespace {

const std::string pagePath = "docs/threat-model.md";

// "Suite.test" of every test in the tree.
std::set<std::string> testsOf(const Tree& tree) {
  const std::regex definition(R"(\nTEST(?:_F|_P)?\((\w+),\s*(\w+)\))");
  std::set<std::string> tests;
  for (const auto& [path, text] : tree) {
    if (!path.starts_with("tests/")) continue;
    for (std::sregex_iterator found(text.begin(), text.end(), definition), end; found != end; ++found)
      tests.insert((*found)[1].str() + "." + (*found)[2].str());
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
