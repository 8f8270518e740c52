#include "tidy/cpp_text.h"

#include <algorithm>
#include <array>
#include <cstdint>

namespace brisko::test {
namespace {

bool isDigit(char character) { return character >= '0' && character <= '9'; }

bool isNamePart(char character) {
  return isDigit(character) || (character >= 'a' && character <= 'z') ||
         (character >= 'A' && character <= 'Z') || character == '_';
}

int hexValue(char character) {
  if (isDigit(character)) return character - '0';
  if (character >= 'a' && character <= 'f') return character - 'a' + 10;
  if (character >= 'A' && character <= 'F') return character - 'A' + 10;
  return -1;
}

// The name that begins at `offset`; empty when none begins there.
std::string_view nameAt(std::string_view code, std::size_t offset) {
  if (offset >= code.size() || isDigit(code[offset])) return {};
  if (offset > 0 && isNamePart(code[offset - 1])) return {};
  std::size_t end = offset;
  while (end < code.size() && isNamePart(code[end])) ++end;
  return code.substr(offset, end - offset);
}

void appendUtf8(std::string& text, std::uint32_t point) {
  const auto add = [&](std::uint32_t byte) { text += static_cast<char>(static_cast<unsigned char>(byte)); };
  if (point < 0x80) {
    add(point);
  } else if (point < 0x800) {
    add(0xC0U | (point >> 6U));
    add(0x80U | (point & 0x3FU));
  } else if (point < 0x10000) {
    add(0xE0U | (point >> 12U));
    add(0x80U | ((point >> 6U) & 0x3FU));
    add(0x80U | (point & 0x3FU));
  } else {
    add(0xF0U | (point >> 18U));
    add(0x80U | ((point >> 12U) & 0x3FU));
    add(0x80U | ((point >> 6U) & 0x3FU));
    add(0x80U | (point & 0x3FU));
  }
}

// True if `before` ends with what can only be a type, so that a name after it is being declared.
bool endsWithType(std::string_view before) {
  constexpr std::array<std::string_view, 5> notTypes = {"return", "else", "do", "case", "throw"};
  const std::size_t last = before.find_last_not_of(" \n");
  if (last == std::string_view::npos || last + 1 == before.size()) return false;
  before = before.substr(0, last + 1);
  if (before.ends_with('>')) return !before.ends_with(" >");
  std::size_t begin = before.size();
  while (begin > 0 && isNamePart(before[begin - 1])) --begin;
  const std::string_view word = before.substr(begin);
  return !word.empty() && !isDigit(word[0]) &&
         std::find(notTypes.begin(), notTypes.end(), word) == notTypes.end();
}

// Reads a source once, from beginning to end.
class Reader {
 public:
  explicit Reader(std::string_view source) : source_(source) { result_.code = source; }

  CppText read() {
    while (at_ < source_.size()) step();
    return std::move(result_);
  }

 private:
  [[nodiscard]] char peek(std::size_t ahead = 0) const {
    return at_ + ahead < source_.size() ? source_[at_ + ahead] : '\0';
  }

  // Skips characters that are not code.
  void blank(std::size_t count) {
    for (; count > 0 && at_ < source_.size(); --count, ++at_) {
      if (source_[at_] != '\n') result_.code[at_] = ' ';
    }
  }

  void step() {
    if (peek() == '/' && peek(1) == '/') return comment("\n", 0);
    if (peek() == '/' && peek(1) == '*') return comment("*/", 2);
    if (peek() == '#') return directive();
    if (peek() == '"') return string();
    if (peek() == '\'') return character();
    if (isNamePart(peek())) return word();
    if (peek() > ' ') afterString_ = false;
    ++at_;
  }

  // Up to `end`, of which `taken` characters still belong to the comment.
  void comment(std::string_view end, std::size_t taken) {
    const std::size_t found = source_.find(end, at_ + 2);
    blank(found == std::string_view::npos ? source_.size() : found + taken - at_);
  }

  // Reads names and numbers as a whole, so that the ' in 1'000 opens no character and R" is recognised.
  void word() {
    const std::size_t begin = at_;
    const bool number = isDigit(peek());
    while (isNamePart(peek()) || (number && peek() == '\'' && isNamePart(peek(1)))) ++at_;
    const std::string_view name = source_.substr(begin, at_ - begin);
    if (peek() == '"' && (name == "R" || name == "u8R" || name == "LR")) return rawString();
    const bool prefix = name == "u8" || name == "u" || name == "U" || name == "L";
    if (!prefix || (peek() != '"' && peek() != '\'')) afterString_ = false;
  }

  void directive() {
    afterString_ = false;
    const std::size_t begin = at_;
    ++at_;
    while (peek() == ' ') ++at_;
    const std::string_view name = nameAt(source_, at_);
    at_ += name.size();
    if (name != "include" && name != "import") return;
    while (peek() == ' ') ++at_;
    const bool angled = peek() == '<';
    if (!angled && peek() != '"') return;
    const std::size_t end = source_.find(angled ? '>' : '"', at_ + 1);
    if (end == std::string_view::npos) return;
    result_.includes.push_back({std::string(source_.substr(at_ + 1, end - at_ - 1)), angled, begin});
    blank(end + 1 - at_);
  }

  void string() {
    const std::size_t begin = at_;
    addString(quoted('"'), begin);
  }

  void character() {
    const std::size_t begin = at_;
    result_.literals.push_back({quoted('\''), begin});
    afterString_ = false;
  }

  void rawString() {
    const std::size_t begin = at_;
    const std::size_t open = source_.find('(', at_);
    if (open == std::string_view::npos) return blank(source_.size());
    const std::string closing = ")" + std::string(source_.substr(at_ + 1, open - at_ - 1)) + "\"";
    const std::size_t close = std::min(source_.find(closing, open), source_.size());
    addString(std::string(source_.substr(open + 1, close - open - 1)), begin);
    blank(close + closing.size() - at_);
  }

  void addString(std::string text, std::size_t begin) {
    if (afterString_) {
      result_.literals.back().text += text;
    } else {
      result_.literals.push_back({std::move(text), begin});
    }
    afterString_ = true;
  }

  // From the opening quote to the closing one, or to the end of a line that lacks it.
  std::string quoted(char quote) {
    std::string text;
    ++at_;
    while (at_ < source_.size() && peek() != quote && peek() != '\n') {
      if (peek() == '\\') {
        escape(text);
      } else {
        text += peek();
        blank(1);
      }
    }
    if (peek() == quote) ++at_;
    return text;
  }

  void escape(std::string& text) {
    const char kind = peek(1);
    blank(2);
    switch (kind) {
      case 'n':
        text += '\n';
        return;
      case 't':
        text += '\t';
        return;
      case 'r':
        text += '\r';
        return;
      case 'x':
        text += static_cast<char>(hexNumber(2));
        return;
      case 'u':
        return appendUtf8(text, hexNumber(4));
      case 'U':
        return appendUtf8(text, hexNumber(8));
      default:
        text += kind;
    }
  }

  std::uint32_t hexNumber(int digits) {
    std::uint32_t number = 0;
    for (; digits > 0 && hexValue(peek()) >= 0; --digits, blank(1)) {
      number = number * 16 + static_cast<std::uint32_t>(hexValue(peek()));
    }
    return number;
  }

  std::string_view source_;
  std::size_t at_ = 0;
  bool afterString_ = false;  // only blanks and comments since the last string
  CppText result_;
};

}  // namespace

CppText takeApart(std::string_view source) { return Reader(source).read(); }

void forEachName(std::string_view code, const std::function<void(std::string_view, std::size_t)>& visit) {
  for (std::size_t offset = 0; offset < code.size();) {
    const std::string_view name = nameAt(code, offset);
    if (!name.empty()) visit(name, offset);
    offset += std::max<std::size_t>(name.size(), 1);
  }
}

bool isCalledFreely(std::string_view code, std::size_t offset) {
  const std::string_view before = code.substr(0, offset);
  if (before.ends_with('.') || before.ends_with("->") || endsWithType(before)) return false;
  const std::size_t next = code.find_first_not_of(' ', offset + nameAt(code, offset).size());
  return next != std::string_view::npos && code[next] == '(';
}

std::size_t lineOf(std::string_view text, std::size_t offset) {
  return 1 +
         static_cast<std::size_t>(std::count(text.begin(), text.begin() + static_cast<long>(offset), '\n'));
}

}  // namespace brisko::test
