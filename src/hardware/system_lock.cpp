#include "hardware/system_lock.h"

#include <optional>

#include "base/options.h"
#include "platform/host.h"
#include "platform/smart_charge_client.h"

namespace brisko::SystemLock {
namespace {

constexpr std::int64_t lastOpenMajor = 26;

std::optional<std::int64_t> pretendedMajor() {
  const auto text = platform::environment("BRISKO_PRETEND_MACOS");
  return text ? parseInteger(*text) : std::nullopt;
}

std::int64_t findMajor() {
  const auto pretended = pretendedMajor();
  return pretended ? *pretended : platform::osMajor();
}

bool findNative() {
  if (platform::environment("BRISKO_PRETEND_NO_NATIVE") == "1") return false;
  return platform::smartChargeClassPresent();
}

}  // namespace

std::int64_t macOSMajor() {
  static const std::int64_t major = findMajor();
  return major;
}

bool closesKeys() { return macOSMajor() > lastOpenMajor; }

bool nativeAvailable() {
  static const bool available = findNative();
  return available;
}

}  // namespace brisko::SystemLock
