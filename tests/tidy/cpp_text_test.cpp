#include "tidy/cpp_text.h"

#include "support/testing.h"

namespace brisko::test::cpp_text_test {
namespace {

std::vector<std::string> literalsOf(std::string_view source) {
  std::vector<std::string> texts;
  for (const Literal& literal : takeApart(source).literals) texts.push_back(literal.text);
  return texts;
}

std::vector<std::string> namesOf(std::string_view source) {
  std::vector<std::string> names;
  forEachName(takeApart(source).code, [&](std::string_view name, std::size_t) { names.emplace_back(name); });
  return names;
}

TEST(CppText, blanksCommentsAndLiteralsAndKeepsLengthAndLines) {
  EXPECT_EQ(takeApart("a /* b\nc */ d // e\nf(\"g\", 'h');").code, "a     \n     d     \nf(\" \", ' ');");
}

TEST(CppText, findsNoNameInCommentsLiteralsAndNumbers) {
  EXPECT_THAT(namesOf("int a1 = 0x5f; // time\n/* sleep */ f(\"rand\", 'x', 1'000e);"),
              ElementsAre("int", "a1", "f"));
}

TEST(CppText, joinsAdjacentStringsAcrossLinesAndComments) {
  EXPECT_THAT(literalsOf("f(\"one \"  // why\n  \"two\", \"three\");"), ElementsAre("one two", "three"));
}

TEST(CppText, resolvesEscapes) {
  EXPECT_THAT(literalsOf(R"(f("a\"b\\\n", "\xC3\xA9", "\u00e9", "\U0001F50B");)"),
              ElementsAre("a\"b\\\n", "é", "é", "🔋"));
}

TEST(CppText, readsRawStringsToTheirOwnEnd) {
  EXPECT_THAT(literalsOf("f(R\"x(a \"quoted\" )\" \\n)x\", \"b\");"),
              ElementsAre("a \"quoted\" )\" \\n", "b"));
}

TEST(CppText, distinguishesCharactersFromDigitSeparators) {
  EXPECT_THAT(literalsOf("f('\"', 1'000'000, '\\'', \"end\");"), ElementsAre("\"", "'", "end"));
}

TEST(CppText, findsIncludesButNotThoseInComments) {
  const CppText text =
      takeApart("#pragma once\n// #include \"a.h\"\n#include \"b/c.h\"\n# include <vector>\n");
  ASSERT_EQ(text.includes.size(), 2U);
  EXPECT_EQ(text.includes[0].path, "b/c.h");
  EXPECT_FALSE(text.includes[0].angled);
  EXPECT_EQ(text.includes[1].path, "vector");
  EXPECT_TRUE(text.includes[1].angled);
  EXPECT_THAT(text.literals, IsEmpty());
}

TEST(CppText, distinguishesFreeCallsFromMembersMentionsAndDeclarations) {
  EXPECT_TRUE(isCalledFreely("x = time (0)", 4));
  EXPECT_TRUE(isCalledFreely("std::time(0)", 5));
  EXPECT_FALSE(isCalledFreely("row.time(0)", 4));
  EXPECT_FALSE(isCalledFreely("row->time(0)", 5));
  EXPECT_TRUE(isCalledFreely("return time(0)", 7));
  EXPECT_TRUE(isCalledFreely("a > time(0)", 4));
  EXPECT_TRUE(isCalledFreely("(time(0))", 1));
  EXPECT_FALSE(isCalledFreely("double time = 0", 7));
  EXPECT_FALSE(isCalledFreely("double time(0)", 7));
  EXPECT_FALSE(isCalledFreely("hh_mm_ss<seconds> clock(x)", 18));
}

TEST(CppText, countsLinesFromOne) {
  EXPECT_EQ(lineOf("a\nb\n", 0), 1U);
  EXPECT_EQ(lineOf("a\nb\n", 2), 2U);
}

}  // namespace
}  // namespace brisko::test::cpp_text_test
