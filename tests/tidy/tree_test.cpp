#include "tidy/tree.h"

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
  for (const std::string path : {"README.md", "CMakeLists.txt", ".clang-tidy", ".ci/run", "scripts/test.sh",
                                 "docs/log.md", "src/core/main.cpp", "src/platform/virtual/machine.h",
                                 "tests/tidy/tree_test.cpp", "tools/CMakeLists.txt"}) {
    EXPECT_TRUE(theTree().contains(path)) << path;
  }
}

TEST(TheTree, includesPointDownwards) { expectNone(checkFloors(theTree())); }

TEST(TheTree, sourcesIncludeTheirOwnHeaderFirst) { expectNone(checkOwnHeaderFirst(theTree())); }

TEST(TheTree, namesChargeKeysOnlyWhereTheyAreWritten) { expectNone(checkChargeKeys(theTree())); }

TEST(TheTree, meetsTheMachineThroughTheSeamAlone) { expectNone(checkSeam(theTree())); }

TEST(TheTree, doesNotAskWhetherItIsSimulated) { expectNone(checkSimulationUnknown(theTree())); }

TEST(TheTree, writesSignsAndBlanksAsTheyAreMeant) { expectNone(checkCharacters(theTree())); }

TEST(TheTree, explainsItself) { expectNone(checkWords(theTree())); }

TEST(TheTree, documentsEveryLogLine) { expectNone(checkLogLines(theTree())); }

}  // namespace
}  // namespace brisko::test
