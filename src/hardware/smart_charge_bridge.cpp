#include "hardware/smart_charge_bridge.h"

#include <algorithm>

#include "platform/preferences.h"
#include "platform/smart_charge_client.h"

namespace brisko {
namespace {

constexpr std::int64_t leastOfClient = 80;
constexpr std::int64_t stepOfClient = 5;

using NativeLimit::domain;

constexpr const char* temporaryEndKey = "MCLTempDisabledUntilDate";

bool haveClient() {
  static const bool made = platform::makeSmartChargeClient("brisko");
  return made;
}

std::int32_t triState(std::optional<bool> answer) { return answer ? (*answer ? 1 : 0) : -1; }

// The client switches the feature on. Otherwise macOS would not read a value that the client itself refuses.
void switchFeatureOn(bool prime) {
  if (!prime && CKMCLEnabled() == 1) return;
  static_cast<void>(CKMCLSetLimit(leastOfClient));  // the limit that macOS then holds shows the result
}

// Also clears the date of a full charge.
bool storePreferences() {
  platform::setPreference(domain, temporaryEndKey, std::nullopt);
  const bool stored = platform::synchronizePreferences(domain);
  platform::postNotification("com.apple.smartcharging.defaultschanged");
  return stored;
}

bool writePreferences(std::int64_t pct) {
  platform::setPreference(domain, "MCLFeatureState", 1);
  platform::setPreference(domain, "mclLimitValue", pct);
  return storePreferences();
}

}  // namespace

std::int32_t CKMCLSupported() {
  if (!haveClient()) return -1;
  return triState(platform::smartChargeLimitSupported());
}

std::int32_t CKMCLEnabled() {
  if (!haveClient()) return -1;
  return triState(platform::smartChargeLimitEnabled());
}

std::int32_t CKMCLLimit() {
  if (!haveClient()) return -1;
  return static_cast<std::int32_t>(platform::smartChargeLimit().value_or(-1));
}

std::int32_t CKMCLSetLimit(std::int32_t pct) {
  if (!haveClient()) return -1;
  if (pct < leastOfClient || pct > 100 || pct % stepOfClient != 0) return 0;
  return triState(platform::setSmartChargeLimit(pct));
}

bool NativeLimit::write(std::int64_t pct, bool prime) {
  const auto value = std::clamp<std::int64_t>(pct, 1, 100);
  if (pct >= leastOfClient && value % stepOfClient == 0) {
    return CKMCLSetLimit(static_cast<std::int32_t>(value)) == 1;
  }
  switchFeatureOn(prime);
  return writePreferences(value);
}

std::optional<double> NativeLimit::tempDisabledUntil() {
  const auto value = platform::preference(domain, temporaryEndKey);
  const auto date = value ? value->asDate() : std::nullopt;
  if (!date) return std::nullopt;
  return date->secondsSince1970;
}

bool NativeLimit::endFullCharge() { return storePreferences(); }

}  // namespace brisko
