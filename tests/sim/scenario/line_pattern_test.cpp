#include "sim/scenario/line_pattern.h"

#include "support/testing.h"

namespace brisko::lab::line_pattern_test {
namespace {

using namespace test;

TEST(LinePattern, matchesTheWholeLineWithoutAGap) {
  EXPECT_TRUE(matches("→ state: hold", "→ state: hold"));
  EXPECT_FALSE(matches("→ state: hold ", "→ state: hold"));
  EXPECT_FALSE(matches("→ state: hold", "state: hold"));
}

TEST(LinePattern, matchesAnyTextAtAGap) {
  EXPECT_TRUE(matches("cap 80%  batt 79%  ac", "cap …%  batt …%…"));
  EXPECT_TRUE(matches("abc", "abc…"));
  EXPECT_TRUE(matches("abc", "…"));
  EXPECT_TRUE(matches("", "…"));
  EXPECT_TRUE(matches("aab", "…ab"));
  EXPECT_FALSE(matches("ab", "a…b…c"));
  EXPECT_FALSE(matches("xabc", "abc…"));
  EXPECT_FALSE(matches("abcx", "…abc"));
}

TEST(LinePattern, matchesEveryOtherCharacterLiterally) {
  EXPECT_TRUE(matches("/a/.b [1] *? \\x", "/a/…b [1] *? \\x"));
  EXPECT_FALSE(matches("ab", "a*"));
  EXPECT_FALSE(matches("ab", "a?"));
  EXPECT_FALSE(matches("ab", "a[b]"));
  EXPECT_FALSE(matches("a*", "a\\*"));
}

TEST(LinePattern, isFastWithManyGapsThatDoNotMatch) {
  std::string pattern;
  for (int gaps = 0; gaps < 30; ++gaps) pattern += "…a";
  EXPECT_FALSE(matches(std::string(1000, 'a') + "b", pattern));
  EXPECT_TRUE(matches(std::string(1000, 'a'), pattern));
}

TEST(LineExpectations, areCheckedOneByOne) {
  const std::vector<std::string> lines{"a", "b", "a"};
  EXPECT_THAT(differencesOf(lines, {.has = {"a", "b"}, .hasNot = {"c"}}), IsEmpty());
  EXPECT_THAT(differencesOf(lines, {.has = {"c", "d"}}), SizeIs(2));
  EXPECT_THAT(differencesOf(lines, {.hasNot = {"b"}}), SizeIs(1));
  EXPECT_THAT(differencesOf(lines, {.counts = {{"a", 2}, {"c", 0}}}), IsEmpty());
  EXPECT_THAT(differencesOf(lines, {.counts = {{"a", 1}}}), SizeIs(1));
  EXPECT_THAT(differencesOf(lines, {.counts = {{"a", 3}}}), SizeIs(1));
}

TEST(LineExpectations, inOrderMeanDifferentLines) {
  const std::vector<std::string> lines{"a", "b", "a"};
  EXPECT_THAT(differencesOf(lines, {.inOrder = {"a", "b"}}), IsEmpty());
  EXPECT_THAT(differencesOf(lines, {.inOrder = {"a", "a"}}), IsEmpty());
  EXPECT_THAT(differencesOf(lines, {.inOrder = {"b", "b"}}), SizeIs(1));
  EXPECT_THAT(differencesOf(lines, {.inOrder = {"a", "b", "a", "a"}}), SizeIs(1));
}

}  // namespace
}  // namespace brisko::lab::line_pattern_test
