#include "sim/process/log_lines.h"

#include <utility>

namespace brisko::sim {

std::vector<std::string> linesOf(std::string text) {
  std::vector<std::string> lines = takeWholeLines(text);
  if (!text.empty()) lines.push_back(std::move(text));
  return lines;
}

std::vector<std::string> takeWholeLines(std::string& text) {
  std::vector<std::string> lines;
  std::size_t from = 0;
  for (std::size_t end = 0; (end = text.find('\n', from)) != std::string::npos; from = end + 1) {
    lines.push_back(text.substr(from, end - from));
  }
  text.erase(0, from);
  return lines;
}

std::string withoutStamp(const std::string& line) {
  constexpr std::size_t stampWidth = 22;  // "2026-03-01T08:15:30Z" and two blanks
  return line.size() < stampWidth ? line : line.substr(stampWidth);
}

}  // namespace brisko::sim
