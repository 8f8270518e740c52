#include "tidy/tree.h"

#include <algorithm>
#include <cstdio>
#include <numeric>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include "support/testing.h"
#include "tidy/tree_check.h"

// The tree from which this test was built.
namespace brisko::test::tree_test {
namespace {

const Tree& theTree() {
  static const Tree tree = readTree(BRISKO_SOURCES);
  return tree;
}

void expectNone(const Findings& findings) {
  for (const std::string& finding : findings) ADD_FAILURE() << finding;
}

TEST(SourceTree, isReadCompletely) {
  for (const std::string path :
       {"README.md", "CMakeLists.txt", ".clang-tidy", ".ci/run", "scripts/test.sh", "docs/log.md",
        "man/brisko-daemon.8", "src/daemon/main.cpp", "sim/machine/machine.h", "tests/tidy/tree_test.cpp",
        "tools/CMakeLists.txt"}) {
    EXPECT_TRUE(theTree().contains(path)) << path;
  }
}

TEST(SourceTree, includesPointDownwards) { expectNone(checkLayers(theTree())); }

TEST(SourceTree, sourcesIncludeTheirOwnHeaderFirst) { expectNone(checkOwnHeaderFirst(theTree())); }

TEST(SourceTree, namesChargeKeysOnlyWhereTheyAreWritten) { expectNone(checkChargeKeys(theTree())); }

TEST(SourceTree, accessesTheMachineOnlyThroughTheSeam) { expectNone(checkSeam(theTree())); }

TEST(SourceTree, doesNotAskWhetherItIsSimulated) { expectNone(checkSimulationUnknown(theTree())); }

TEST(SourceTree, usesPlainBlanksAndCompleteSigns) { expectNone(checkCharacters(theTree())); }

TEST(SourceTree, usesTheFieldsTerms) { expectNone(checkTerms(theTree())); }

TEST(SourceTree, documentsEveryLogLine) { expectNone(checkLogLines(theTree())); }

TEST(SourceTree, hasATestForEveryRowOfTheThreatModel) { expectNone(checkThreatModel(theTree())); }

TEST(SourceTree, explainsHowToRunTheDaemon) { expectNone(checkManual(theTree())); }

// A fuzzer does not start with a dictionary that it cannot read, and other bytes it reads only as \xAB.
TEST(SourceTree, hasFuzzDictionariesOfPrintableLines) {
  const std::regex entry(R"(([A-Za-z0-9_]+=)?"([ !#-\[\]-~]|\\[\\"]|\\x[0-9A-Fa-f]{2})+")");
  int lines = 0;
  for (const auto& [path, text] : theTree()) {
    if (!path.starts_with("tests/fuzz/dictionaries/")) continue;
    std::istringstream content(text);
    for (std::string line; std::getline(content, line);) {
      ++lines;
      EXPECT_TRUE(line.empty() || line.starts_with('#') || std::regex_match(line, entry))
          << path << ": " << line;
    }
  }
  EXPECT_GT(lines, 50);
}

// A campaign names invariants by number, and each invariant is tested with a mutant that it catches.
TEST(SourceTree, numbersEachInvariantAndHasAMutantForIt) {
  const std::regex definition(R"(Invariant \w+\{\s*(\d+),)");
  std::vector<int> defined;
  for (const auto& [path, text] : theTree()) {
    if (!path.starts_with("sim/invariants/")) continue;
    for (std::sregex_iterator found(text.begin(), text.end(), definition), end; found != end; ++found) {
      defined.push_back(std::stoi((*found)[1]));
    }
  }
  std::sort(defined.begin(), defined.end());
  std::vector<int> everyNumber(defined.size());
  std::iota(everyNumber.begin(), everyNumber.end(), 1);
  EXPECT_GT(defined.size(), 30U);
  EXPECT_EQ(defined, everyNumber);

  std::istringstream mutants(theTree().at("tests/mutants/invariant_mutants.txt"));
  std::vector<int> tested;
  for (std::string line; std::getline(mutants, line);) tested.push_back(std::stoi(line));
  EXPECT_EQ(tested, everyNumber);
}

TEST(SourceTree, hasAManualThatEveryReaderCanShow) {
  const std::string command = "mandoc -T lint -W warning '" BRISKO_SOURCES "/man/brisko-daemon.8' 2>&1";
  std::FILE* const lint = ::popen(command.c_str(), "r");
  ASSERT_NE(lint, nullptr);
  std::string diagnostics;
  for (int byte = std::fgetc(lint); byte != EOF; byte = std::fgetc(lint))
    diagnostics += static_cast<char>(byte);
  EXPECT_EQ(::pclose(lint), 0);
  EXPECT_EQ(diagnostics, "");
}

}  // namespace
}  // namespace brisko::test::tree_test
