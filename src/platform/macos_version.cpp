#include "platform/macos_version.h"

#include <charconv>
#include <optional>

namespace brisko::platform {
namespace {

struct LeadingNumber {
  std::int64_t value;
  std::string_view rest;
};

std::optional<LeadingNumber> leadingNumber(std::string_view text) {
  std::int32_t value = 0;
  const auto parsed = std::from_chars(text.data(), text.data() + text.size(), value);
  if (parsed.ec != std::errc{} || value < 0) return std::nullopt;
  return LeadingNumber{value, text.substr(static_cast<std::size_t>(parsed.ptr - text.data()))};
}

bool isUpperCase(char character) { return character >= 'A' && character <= 'Z'; }
bool isDigit(char character) { return character >= '0' && character <= '9'; }

// The number that every build begins with counts the kernel's major versions. It continued by one when the
// numbers of macOS jumped from 15 to 26.
std::optional<std::int64_t> majorOfBuild(std::string_view build) {
  constexpr std::int64_t kernelOfMacOS11 = 20;  // earlier versions were counted differently
  constexpr std::int64_t kernelOfMacOS26 = 25;
  const auto kernel = leadingNumber(build);
  if (!kernel || kernel->value < kernelOfMacOS11) return std::nullopt;
  const bool isBuild = kernel->rest.size() >= 2 && isUpperCase(kernel->rest[0]) && isDigit(kernel->rest[1]);
  if (!isBuild) return std::nullopt;
  return kernel->value >= kernelOfMacOS26 ? kernel->value + 1 : kernel->value - 9;
}

}  // namespace

std::int64_t macOSMajor(std::string_view build, std::string_view productVersion) {
  if (const auto major = majorOfBuild(build)) return *major;
  const auto product = leadingNumber(productVersion);
  return product ? product->value : 0;
}

}  // namespace brisko::platform
