// Numbers are parsed as a second implementation parses them, and each argument changes only its own option.
// The input's lines are the arguments.
#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <set>

#include "base/options.h"
#include "fuzz/require.h"
#include "fuzz/target.h"

namespace brisko::arguments_fuzz {
namespace {

// A second implementation of the same rule.
std::optional<std::int64_t> expectedInteger(const std::string& text) {
  const std::size_t sign = text.empty() || (text[0] != '+' && text[0] != '-') ? 0 : 1;
  const auto isDigit = [](char character) { return character >= '0' && character <= '9'; };
  if (text.size() == sign ||
      !std::all_of(text.begin() + static_cast<std::ptrdiff_t>(sign), text.end(), isDigit)) {
    return std::nullopt;
  }
  errno = 0;
  const long long value = std::strtoll(text.c_str(), nullptr, 10);
  if (errno == ERANGE) return std::nullopt;
  return value;
}

std::vector<std::string> linesOf(std::string_view text) {
  std::vector<std::string> lines(1);
  for (const char character : text) {
    if (character == '\n') {
      lines.emplace_back();
    } else {
      lines.back() += character;
    }
  }
  return lines;
}

void tryArguments(const std::vector<std::string>& arguments) {
  gCliLimit = 80;
  gCliLower = -1;
  gConfigPath = defaultConfigPath;
  gAppPath.reset();
  gProbeOnly = gProbeJSON = gSelfTest = gPrintVersion = gFwTest = false;

  scanArguments(arguments);

  const std::set<std::string> given(arguments.begin(), arguments.end());
  const auto mayFollow = [&given](const char* option) { return given.contains(option); };
  require(gProbeOnly <= mayFollow("--probe") && gProbeJSON <= mayFollow("--json"));
  require(gSelfTest <= mayFollow("--selftest") && gPrintVersion <= mayFollow("--version"));
  require(gFwTest <= mayFollow("--fwtest"));
  require(gCliLimit == 80 || mayFollow("--limit"));
  require(gCliLower == -1 || mayFollow("--lower"));
  require(gConfigPath == defaultConfigPath || (mayFollow("--config") && given.contains(gConfigPath)));
  require(!gAppPath || (mayFollow("--app") && given.contains(*gAppPath)));
}

void tryInput(std::string_view input) {
  const std::vector<std::string> arguments = linesOf(input);
  for (const std::string& argument : arguments) require(parseInteger(argument) == expectedInteger(argument));
  tryArguments(arguments);
}

const FuzzTarget target("arguments", tryInput);

}  // namespace
}  // namespace brisko::arguments_fuzz
