// report/markup.h
// Texts for SVG and HTML. The same values give the same bytes on every computer.
#pragma once

#include <string>
#include <string_view>

namespace brisko::lab {

// For element contents and quoted attributes. What XML does not allow anywhere (most control characters,
// invalid UTF-8) becomes U+FFFD.
[[nodiscard]] std::string escaped(std::string_view text);

// For the contents of a script element.
[[nodiscard]] std::string escapedForScript(std::string json);

// With this many digits after the point, and never "-0".
[[nodiscard]] std::string fixed(double number, int digits);

// A coordinate: a tenth of a unit is accurate enough, and 12.0 is written as "12".
[[nodiscard]] std::string coordinate(double number);

// At most this many characters, the last of them "…" when the text was cut. The text must be valid UTF-8.
[[nodiscard]] std::string shortened(const std::string& text, std::size_t most);
[[nodiscard]] std::size_t charactersOf(std::string_view text);

}  // namespace brisko::lab
