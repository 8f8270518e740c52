#include "client/output.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <nlohmann/json.hpp>
#include <utility>

#include <sys/ioctl.h>
#include <unistd.h>

#include "report/terminal_text.h"

namespace brisko::client {
namespace {

bool isSet(const char* name) {
  const char* value = std::getenv(name);
  return value != nullptr && *value != '\0';
}

// The first of these variables that is set decides, as in the C library.
bool localeIsUtf8() {
  for (const char* name : {"LC_ALL", "LC_CTYPE", "LANG"}) {
    if (!isSet(name)) continue;
    const std::string_view value = std::getenv(name);
    return value.find("UTF-8") != std::string_view::npos || value.find("utf8") != std::string_view::npos;
  }
  return false;
}

std::size_t terminalWidth() {
  winsize size{};
  if (::ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0) return size.ws_col;
  const char* columns = std::getenv("COLUMNS");
  const long number = columns == nullptr ? 0 : std::strtol(columns, nullptr, 10);
  return number > 0 && number < 1000 ? static_cast<std::size_t>(number) : 80;
}

constexpr std::array<std::pair<std::string_view, std::string_view>, 12> similar{{
    {"–", "-"},
    {"—", "-"},
    {"→", "->"},
    {"°", ""},
    {"…", "..."},
    {"⚠️", "!"},
    {"⛔️", "!"},
    {"·", "-"},
    {"é", "e"},
    {"è", "e"},
    {"à", "a"},
    {"É", "E"},
}};

constexpr std::string_view bold = "\x1b[1m";
constexpr std::string_view usual = "\x1b[0m";

// Without control characters but these two.
std::string cleaned(std::string_view text, bool keepsBold) {
  std::string clean;
  while (keepsBold && !text.empty()) {
    const std::size_t at = std::min(text.find(bold), text.find(usual));
    if (at == std::string_view::npos) break;
    clean += lab::forTerminal(text.substr(0, at));
    clean += text.substr(at, bold.size());
    text.remove_prefix(at + bold.size());
  }
  return clean + lab::forTerminal(text);
}

bool continues(char byte) { return (static_cast<unsigned char>(byte) & 0xC0U) == 0x80U; }

std::size_t lengthOfCharacter(std::string_view text) {
  std::size_t length = 1;
  while (length < text.size() && continues(text[length])) ++length;
  return length;
}

}  // namespace

OutputStyle styleOfStandardOutput(bool noColor) {
  const bool terminal = ::isatty(STDOUT_FILENO) != 0;
  return {.color = terminal && !noColor && !isSet("NO_COLOR"),
          .unicode = localeIsUtf8(),
          .width = terminalWidth(),
          .terminal = terminal};
}

std::string inAscii(std::string_view text) {
  std::string plain;
  while (!text.empty()) {
    std::size_t taken = lengthOfCharacter(text);
    std::string_view written = taken == 1 ? text.substr(0, 1) : std::string_view("?");
    for (const auto& [character, replacement] : similar) {
      if (!text.starts_with(character)) continue;
      taken = character.size();
      written = replacement;
    }
    plain += written;
    text.remove_prefix(taken);
  }
  return plain;
}

std::size_t columnsOf(std::string_view text) {
  std::size_t columns = 0;
  for (const char byte : text) {
    if (!continues(byte)) ++columns;
  }
  return columns;
}

std::string wrapped(const std::string& text, std::size_t width, std::size_t indent) {
  std::string result;
  std::size_t column = 0;
  std::size_t begin = 0;
  while (begin < text.size()) {
    const std::size_t end = std::min(text.find(' ', begin), text.size());
    const std::string_view word = std::string_view(text).substr(begin, end - begin);
    if (column > indent && column + 1 + columnsOf(word) > width) {
      result += "\n" + std::string(indent, ' ');
      column = indent;
    } else if (begin > 0) {
      result += ' ';
      ++column;
    }
    result += word;
    column += columnsOf(word);
    begin = end + 1;
  }
  return result;
}

std::string highlighted(const std::string& text) { return std::string(bold) + text + std::string(usual); }

void Output::write(std::string_view bytes) const {
  if (error_ == 0 && std::fwrite(bytes.data(), 1, bytes.size(), stdout) != bytes.size()) error_ = errno;
}

void Output::raw(std::string_view bytes) const {
  write(style_.terminal ? lab::forTerminal(bytes) : std::string(bytes));
}

void Output::clearTerminal() const { write("\x1b[H\x1b[2J"); }

void Output::line(const std::string& text) const { lines(text + "\n"); }

void Output::lines(const std::string& text) const {
  const std::string clean = cleaned(text, style_.color);
  write(style_.unicode ? clean : inAscii(clean));
}

void Output::remark(const std::string& text) const {
  if (!quiet_) line(text);
}

void Output::json(const Json& object) const {
  raw(object.dump(-1, ' ', false, Json::error_handler_t::replace) + "\n");
}

void Output::complain(const std::string& text) const {
  const std::string complaint = "brisko: " + lab::forTerminal(text) + "\n";
  // Keeps the order if both streams go to the same place.
  static_cast<void>(std::fflush(stdout));
  static_cast<void>(std::fputs((style_.unicode ? complaint : inAscii(complaint)).c_str(), stderr));
}

bool Output::isClosed() const {
  if (error_ == 0 && std::fflush(stdout) != 0) error_ = errno;
  return error_ == EPIPE;
}

bool Output::flush() const { return isClosed() || error_ == 0; }

}  // namespace brisko::client
