#include "policy/adapter_word.h"

#include "support/testing.h"

namespace brisko::adapter_word_test {
namespace {

TEST(AdapterWord, isBelievedWhenItIsPlugged) {
  EXPECT_TRUE(believedPlugged({.plugged = true}));
  EXPECT_TRUE(believedPlugged({.plugged = true, .seen = false}));
}

TEST(AdapterWord, isBelievedUnpluggedWithoutACut) {
  EXPECT_FALSE(believedPlugged({.plugged = false}));
  EXPECT_FALSE(believedPlugged({.plugged = false, .seen = true}));
}

TEST(AdapterWord, isNoUnpluggingForTwoMinutesAfterACutOrItsEnd) {
  for (const std::optional<bool> seen : {std::optional(true), std::optional<bool>()}) {
    EXPECT_TRUE(believedPlugged({.plugged = false, .seen = seen, .sinceCutChanged = 0}));
    EXPECT_TRUE(believedPlugged({.plugged = false, .seen = seen, .sinceCutChanged = 119.9}));
    EXPECT_FALSE(believedPlugged({.plugged = false, .seen = seen, .sinceCutChanged = 120}));
  }
}

TEST(AdapterWord, isBelievedAtOnceWhenTheControllerSeesNoAdapter) {
  EXPECT_FALSE(believedPlugged({.plugged = false, .seen = false, .cut = true, .sinceCutChanged = 1}));
}

TEST(AdapterWord, meansTheCutItselfAsLongAsNobodySeesTheAdapter) {
  EXPECT_TRUE(believedPlugged({.plugged = false, .cut = true, .sinceCutChanged = 5000}));
  EXPECT_FALSE(believedPlugged({.plugged = false, .seen = true, .cut = true, .sinceCutChanged = 5000}));
}

TEST(Cut, isAllowedOnlyWhereTheControllerShowsTheAdapter) {
  EXPECT_TRUE(mayCut(true));
  EXPECT_TRUE(mayCut(false));
  EXPECT_FALSE(mayCut(std::nullopt));
}

}  // namespace
}  // namespace brisko::adapter_word_test
