#include "tidy/tree.h"

#include <algorithm>
#include <cstdio>
#include <numeric>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tidy/tree_check.h"

// The tree that this test was built from.
namespace brisko::test {
namespace {

const Tree& theTree() {
  static const Tree tree = readTree(BRISKO_SOURCES);
  return tree;
}

void expectNone(const Findings& findings) {
  for (const std::string& finding : findings) ADD_FAILURE() << finding;
}

TEST(TheTree, isReadWhole) {
  for (const std::string path :
       {"README.md", "CMakeLists.txt", ".clang-tidy", ".ci/run", "scripts/test.sh", "docs/log.md",
        "man/brisko-daemon.8", "src/daemon/main.cpp", "sim/machine/machine.h", "tests/tidy/tree_test.cpp",
        "tools/CMakeLists.txt"}) {
    EXPECT_TRUE(theTree().contains(path)) << path;
  }
}

TEST(TheTree, includesPointDownwards) { expectNone(checkLayers(theTree())); }

TEST(TheTree, sourcesIncludeTheirOwnHeaderFirst) { expectNone(checkOwnHeaderFirst(theTree())); }

TEST(TheTree, namesChargeKeysOnlyWhereTheyAreWritten) { expectNone(checkChargeKeys(theTree())); }

TEST(TheTree, meetsTheMachineThroughTheSeamAlone) { expectNone(checkSeam(theTree())); }

TEST(TheTree, doesNotAskWhetherItIsSimulated) { expectNone(checkSimulationUnknown(theTree())); }

TEST(TheTree, writesSignsAndBlanksAsTheyAreMeant) { expectNone(checkCharacters(theTree())); }

TEST(TheTree, usesTheFieldsTerms) { expectNone(checkTerms(theTree())); }

TEST(TheTree, documentsEveryLogLine) { expectNone(checkLogLines(theTree())); }

TEST(TheTree, explainsHowToRunTheDaemon) { expectNone(checkManual(theTree())); }

// A campaign names invariants by their numbers, and each is tested with a mutant that it catches.
TEST(TheTree, numbersEachInvariantAndHasAMutantForIt) {
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

TEST(TheTree, hasAManualThatEveryReaderCanShow) {
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
}  // namespace brisko::test
