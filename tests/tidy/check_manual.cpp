#include <algorithm>
#include <set>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "tidy/cpp_text.h"
#include "tidy/tree_check.h"

namespace brisko::test {
namespace {

const std::string manualPath = "man/brisko-daemon.8";

bool consistsOf(std::string_view text, std::string_view characters) {
  return !text.empty() && text.find_first_not_of(characters) == std::string_view::npos;
}

bool isOption(std::string_view text) {
  return text.starts_with("--") && consistsOf(text.substr(2), "abcdefghijklmnopqrstuvwxyz");
}

bool isVariable(std::string_view text) {
  return text.starts_with("BRISKO_") && consistsOf(text, "ABCDEFGHIJKLMNOPQRSTUVWXYZ_");
}

bool isPath(std::string_view text) {
  return text.starts_with("/Library/") || text.starts_with("/Applications/");
}

// More than the sign, so it must be in the manual.
bool isErrorMessage(std::string_view text) {
  constexpr std::string_view sign = "⛔️ ";
  return text.starts_with(sign) && text.size() > sign.size();
}

bool namesOption(const std::string& manual, const std::string& option) {
  const std::string item = ".It Fl " + option.substr(1);
  return manual.find(item + " ") != std::string::npos || manual.find(item + "\n") != std::string::npos;
}

bool isSeam(const std::string& path) { return inPlatform(path) || path.starts_with("sim/seam/"); }

// Whether the manual contains the source's text `text`, or need not contain it.
bool isExplained(const std::string& manual, const std::string& path, const std::string& text) {
  if (isVariable(text)) return manual.find("Ev " + text + "\n") != std::string::npos;
  if (isSeam(path)) return true;
  if (isOption(text)) return namesOption(manual, text);
  if (isPath(text)) return manual.find(text) != std::string::npos;
  return !isErrorMessage(text) || manual.find(text.substr(0, text.find('\n'))) != std::string::npos;
}

// The options that the manual explains, with the line that begins each.
std::vector<std::pair<std::string, std::size_t>> explainedOptions(const std::string& manual) {
  const std::string item = ".It Fl -";
  std::vector<std::pair<std::string, std::size_t>> options;
  std::istringstream lines(manual);
  std::string line;
  for (std::size_t number = 1; std::getline(lines, line); ++number) {
    if (!line.starts_with(item)) continue;
    options.emplace_back("--" + line.substr(item.size(), line.find(' ', item.size()) - item.size()), number);
  }
  return options;
}

}  // namespace

Findings checkManual(const Tree& tree) {
  const auto manual = tree.find(manualPath);
  if (manual == tree.end()) return {manualPath + ": it is missing; it tells how to run the daemon"};

  Findings findings;
  std::set<std::string> options;
  for (const auto& [path, text] : tree) {
    if (!isDaemonSource(path) && !isSeam(path)) continue;
    for (const Literal& literal : takeApart(text).literals) {
      if (!isSeam(path) && isOption(literal.text)) options.insert(literal.text);
      if (isExplained(manual->second, path, literal.text)) continue;
      findings.push_back(place(path, lineOf(text, literal.offset)) + "\"" + literal.text + "\" is not in " +
                         manualPath + "; explain it there");
    }
  }
  for (const auto& [option, line] : explainedOptions(manual->second)) {
    if (options.contains(option)) continue;
    findings.push_back(place(manualPath, line) + "no source knows " + option + "; take it out");
  }
  return findings;
}

}  // namespace brisko::test
