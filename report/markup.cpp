#include "report/markup.h"

#include <array>
#include <cstdint>
#include <cstdio>

namespace brisko::lab {
namespace {

constexpr std::string_view replacement = "\xEF\xBF\xBD";  // U+FFFD

bool continues(char byte) { return (static_cast<unsigned char>(byte) & 0xC0U) == 0x80U; }

// The length of the UTF-8 character at the beginning of the text; 0 when it is invalid.
std::size_t lengthOf(std::string_view text) {
  const auto lead = static_cast<unsigned char>(text.front());
  if (lead < 0x80) return 1;
  const std::size_t length = lead >= 0xC2 && lead < 0xE0   ? 2
                             : lead >= 0xE0 && lead < 0xF0 ? 3
                             : lead >= 0xF0 && lead < 0xF5 ? 4
                                                           : 0;
  if (length == 0 || text.size() < length) return 0;
  std::uint32_t code = lead & (0x7FU >> length);
  for (std::size_t index = 1; index < length; ++index) {
    if (!continues(text[index])) return 0;
    code = code << 6U | (static_cast<unsigned char>(text[index]) & 0x3FU);
  }
  const bool tooLong = (length == 3 && code < 0x800) || (length == 4 && code < 0x10000);
  const bool noCharacter = (code >= 0xD800 && code < 0xE000) || code == 0xFFFE || code == 0xFFFF;
  return tooLong || noCharacter || code > 0x10FFFF ? 0 : length;
}

bool isForbidden(char character) {
  const auto code = static_cast<unsigned char>(character);
  return (code < 0x20 && character != '\t' && character != '\n') || code == 0x7F;
}

void appendAscii(std::string& result, char character) {
  switch (character) {
    case '&':
      result += "&amp;";
      return;
    case '<':
      result += "&lt;";
      return;
    case '>':
      result += "&gt;";
      return;
    case '"':
      result += "&quot;";
      return;
    case '\'':
      result += "&#39;";
      return;
    default:
      if (isForbidden(character)) {
        result += replacement;
      } else {
        result += character;
      }
  }
}

}  // namespace

std::string escaped(std::string_view text) {
  std::string result;
  while (!text.empty()) {
    const std::size_t length = lengthOf(text);
    if (length == 1) {
      appendAscii(result, text.front());
    } else if (length == 0) {
      result += replacement;
    } else {
      result += text.substr(0, length);
    }
    text.remove_prefix(length == 0 ? 1 : length);
  }
  return result;
}

std::string escapedForScript(std::string json) {
  // "</script>" and "<!--" would end the element or change how it is parsed; in JSON a "<" occurs only in
  // strings.
  for (std::size_t at = json.find('<'); at != std::string::npos; at = json.find('<', at)) {
    json.replace(at, 1, "\\u003c");
  }
  return json;
}

std::string fixed(double number, int digits) {
  std::array<char, 64> text{};
  static_cast<void>(std::snprintf(text.data(), text.size(), "%.*f", digits, number));
  std::string result = text.data();
  if (result.find_first_not_of("-0.") == std::string::npos && result.front() == '-') result.erase(0, 1);
  return result;
}

std::string coordinate(double number) {
  std::string text = fixed(number, 1);
  if (text.ends_with(".0")) text.resize(text.size() - 2);
  return text;
}

std::size_t charactersOf(std::string_view text) {
  std::size_t count = 0;
  for (const char byte : text) count += continues(byte) ? 0 : 1;
  return count;
}

std::string shortened(const std::string& text, std::size_t most) {
  if (charactersOf(text) <= most) return text;
  std::size_t kept = 0;
  for (std::size_t index = 0; index < text.size(); ++index) {
    if (!continues(text[index]) && ++kept == most) return text.substr(0, index) + "…";
  }
  return text;
}

}  // namespace brisko::lab
