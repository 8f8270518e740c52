#include "report/terminal_text.h"

#include "support/testing.h"

namespace brisko::lab::terminal_text_test {
namespace {

using namespace test;

TEST(TextsForATerminal, containNothingThatCommandsIt) {
  struct Case {
    std::string text;
    std::string clean;
  };
  for (const auto& [text, clean] :
       {Case{"a \x1b[31mred\x1b]0;title\x07", "a ?[31mred?]0;title?"},
        Case{std::string("\0\x01\x1f\x7f", 4), "????"}, Case{"a\rb\bc", "a?b?c"},
        Case{"one\n\ttwo\n", "one\n\ttwo\n"},
        Case{"\xC2\x80 \xC2\x9B"
             "31m \xC2\x9F \xC2\xA0",
             "? ?31m ? \xC2\xA0"},
        Case{"\xE2\x80\xAA\xE2\x80\xAE\xE2\x81\xA6\xE2\x81\xA9", "????"},
        Case{"\xE2\x80\xA9\xE2\x80\xAF\xE2\x81\xA5\xE2\x81\xAA",
             "\xE2\x80\xA9\xE2\x80\xAF\xE2\x81\xA5\xE2\x81\xAA"},
        // Not UTF-8: one byte, a character that is cut off, one in too many bytes, one beyond the last.
        Case{"\x9b"
             "31m \xff",
             "?31m ?"},
        Case{"\xE2\x80", "??"}, Case{"\xE0\x82\x9B \xC1\x80 \xF0\x80\x82\x9B", "??? ?? ????"},
        Case{"\xF4\x90\x80\x80", "????"},
        Case{"⚠️ 70–80 % → „é“ 🔋", "⚠️ 70–80 % → „é“ 🔋"}, Case{"", ""}})
    EXPECT_EQ(forTerminal(text), clean) << text;
}

}  // namespace
}  // namespace brisko::lab::terminal_text_test
