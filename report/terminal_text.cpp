#include "report/terminal_text.h"

#include <algorithm>
#include <cstdint>

namespace brisko::lab {
namespace {

std::uint32_t byteAt(std::string_view text, std::size_t index) {
  return index < text.size() ? static_cast<unsigned char>(text[index]) : 0;
}

// How many bytes a character takes that begins with this one; 0 if none does.
std::size_t sizeBehind(std::uint32_t first) {
  if (first < 0x80) return 1;
  if (first < 0xC0 || first >= 0xF8) return 0;
  if (first < 0xE0) return 2;
  return first < 0xF0 ? 3 : 4;
}

// A character at the beginning of a text, and how many bytes it takes; 0 bytes if it is not UTF-8.
struct Character {
  std::uint32_t code = 0;
  std::size_t size = 0;
};

Character characterAt(std::string_view text) {
  const std::uint32_t first = byteAt(text, 0);
  const std::size_t size = sizeBehind(first);
  if (size < 2) return {first, size};
  std::uint32_t code = first & (0x7FU >> size);
  for (std::size_t index = 1; index < size; ++index) {
    const std::uint32_t byte = byteAt(text, index);
    if ((byte & 0xC0U) != 0x80U) return {};
    code = code << 6U | (byte & 0x3FU);
  }
  // More bytes than a character needs are no valid UTF-8.
  const std::uint32_t least = size == 2 ? 0x80 : size == 3 ? 0x800 : 0x10000;
  return code < least || code > 0x10FFFF ? Character{} : Character{code, size};
}

bool isHarmless(std::uint32_t code) {
  if (code < 0x20) return code == '\n' || code == '\t';
  const bool isControl = code >= 0x7F && code < 0xA0;
  const bool turnsTheText = (code >= 0x202A && code <= 0x202E) || (code >= 0x2066 && code <= 0x2069);
  return !isControl && !turnsTheText;
}

}  // namespace

std::string forTerminal(std::string_view text) {
  std::string clean;
  clean.reserve(text.size());
  while (!text.empty()) {
    const Character character = characterAt(text);
    const std::size_t taken = std::max<std::size_t>(character.size, 1);
    if (character.size > 0 && isHarmless(character.code)) {
      clean += text.substr(0, taken);
    } else {
      clean += '?';
    }
    text.remove_prefix(taken);
  }
  return clean;
}

}  // namespace brisko::lab
