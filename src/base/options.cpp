#include "base/options.h"

#include <charconv>

namespace brisko {
namespace {

void takeInteger(const std::string& value, std::int64_t& option) {
  option = parseInteger(value).value_or(option);
}

// Applies an option that takes a value; false when `name` is not one.
bool takeWithValue(const std::string& name, const std::string& value) {
  if (name == "--limit") {
    takeInteger(value, gCliLimit);
  } else if (name == "--lower") {
    takeInteger(value, gCliLower);
  } else if (name == "--config") {
    gConfigPath = value;
  } else if (name == "--app") {
    gAppPath = value;
  } else if (name == "--guard") {
    gGuards = guardsIn(value);
  } else {
    return false;
  }
  return true;
}

void takeFlag(const std::string& name) {
  if (name == "--probe") gProbeOnly = true;
  if (name == "--json") gProbeJSON = true;
  if (name == "--selftest") gSelfTest = true;
  if (name == "--version") gPrintVersion = true;
  if (name == "--fwtest") gFwTest = true;
}

}  // namespace

void scanArguments(const std::vector<std::string>& arguments) {
  for (std::size_t index = 0; index < arguments.size(); ++index) {
    const std::string& argument = arguments[index];
    const bool valueFollows = index + 1 < arguments.size();
    // The next argument is always consumed as the value, even if it looks like an option.
    if (valueFollows && takeWithValue(argument, arguments[index + 1])) {
      ++index;
    } else {
      takeFlag(argument);
    }
  }
}

std::optional<std::int64_t> parseInteger(std::string_view text) {
  if (!text.empty() && text.front() == '+') {
    text.remove_prefix(1);
    // from_chars accepts a minus itself; after a plus it would be a second sign.
    if (!text.empty() && text.front() == '-') return std::nullopt;
  }
  std::int64_t value = 0;
  const char* const end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, value);
  if (error != std::errc() || stop != end) return std::nullopt;
  return value;
}

}  // namespace brisko
