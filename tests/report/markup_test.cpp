#include "report/markup.h"

#include "report/xml.h"
#include "support/testing.h"

namespace brisko::lab::markup_test {
namespace {

using namespace test;

TEST(Markup, escapesMarkupCharacters) {
  EXPECT_EQ(escaped(R"(a < b & c > "d" 'e')"), "a &lt; b &amp; c &gt; &quot;d&quot; &#39;e&#39;");
  EXPECT_EQ(escaped("</script><b>"), "&lt;/script&gt;&lt;b&gt;");
}

TEST(Markup, keepsEveryValidCharacter) {
  EXPECT_EQ(escaped("veille à 80 % → ⚠️ 🔋\n\t"), "veille à 80 % → ⚠️ 🔋\n\t");
}

TEST(Markup, replacesCharactersThatXmlForbids) {
  EXPECT_EQ(escaped(std::string_view("a\0b\x1b\x7f", 5)), "a\uFFFDb\uFFFD\uFFFD");
  EXPECT_EQ(escaped("\xC3"), "\uFFFD") << "cut short";
  EXPECT_EQ(escaped("\xC0\xAF"), "\uFFFD\uFFFD") << "longer than needed";
  EXPECT_EQ(escaped("\xE0\x9F\xBF"), "\uFFFD\uFFFD\uFFFD") << "likewise";
  EXPECT_EQ(escaped("\xE0\xA0\x80"), "\xE0\xA0\x80") << "the first of three bytes";
  EXPECT_EQ(escaped("\xED\xA0\x80"), "\uFFFD\uFFFD\uFFFD") << "half of a pair";
  EXPECT_EQ(escaped("\xEF\xBF\xBE"), "\uFFFD\uFFFD\uFFFD") << "no character";
  EXPECT_EQ(escaped("\xF4\x90\x80\x80"), "\uFFFD\uFFFD\uFFFD\uFFFD") << "beyond the last";
}

TEST(Markup, isReadBackUnchanged) {
  const std::string text = "\"<&>'\" à ⚠️";
  EXPECT_THAT(textsAt("<a b=\"" + escaped(text) + "\">" + escaped(text) + "</a>", "//a | //@b"),
              ::testing::Optional(ElementsAre(text, text)));
}

TEST(Markup, endsNoScriptEarly) {
  EXPECT_EQ(escapedForScript(R"(["</script>","<!--"])"), R"(["\u003c/script>","\u003c!--"])");
}

TEST(Markup, neverWritesMinusZero) {
  EXPECT_EQ(fixed(-0.04, 1), "0.0");
  EXPECT_EQ(fixed(-0.06, 1), "-0.1");
  EXPECT_EQ(fixed(-0.4, 0), "0");
  EXPECT_EQ(coordinate(12.04), "12");
  EXPECT_EQ(coordinate(12.06), "12.1");
  EXPECT_EQ(coordinate(-0.01), "0");
}

TEST(Markup, shortensByCharacters) {
  EXPECT_EQ(shortened("größer", 6), "größer");
  EXPECT_EQ(shortened("größer", 5), "größ…");
  EXPECT_EQ(shortened("größer", 1), "…");
  EXPECT_EQ(charactersOf("größer"), 6U);
}

}  // namespace
}  // namespace brisko::lab::markup_test
