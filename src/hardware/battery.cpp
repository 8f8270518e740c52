#include "hardware/battery.h"

#include <cmath>
#include <cstring>
#include <string>

#include "base/checked.h"
#include "hardware/smc.h"
#include "platform/power_sources.h"
#include "platform/registry.h"

namespace brisko {
namespace {

bool hasText(const platform::Dictionary& properties, std::string_view key, std::string_view text) {
  const platform::Value* value = platform::find(properties, key);
  const std::string* found = value == nullptr ? nullptr : value->asText();
  return found != nullptr && *found == text;
}

std::optional<std::int64_t> integerProperty(const platform::Dictionary& properties, std::string_view key) {
  const platform::Value* value = platform::find(properties, key);
  return value == nullptr ? std::nullopt : value->asInteger();
}

// Of a floating-point number the fraction is dropped.
std::optional<std::int64_t> wholeNumber(const platform::Value& value) {
  if (const auto integer = value.asWrappedInteger()) return integer;
  const auto number = value.asDouble();
  return number ? fittingInteger(*number) : std::nullopt;
}

// None beyond 64 bits.
std::optional<std::int64_t> percentOf(std::int64_t current, std::int64_t max) {
  if (max < 1) return current;
  return fittingInteger(std::round(static_cast<double>(current) / static_cast<double>(max) * 100.0));
}

}  // namespace

std::optional<PowerState> powerState() {
  const auto sources = platform::powerSources();
  return sources ? powerStateOf(*sources) : std::nullopt;
}

std::optional<PowerState> powerStateOf(const std::vector<platform::SharedDictionary>& sources) {
  for (const platform::SharedDictionary& source : sources) {
    if (!source || !hasText(*source, "Type", "InternalBattery")) continue;
    const std::int64_t current = integerProperty(*source, "Current Capacity").value_or(0);
    const std::int64_t max = integerProperty(*source, "Max Capacity").value_or(100);
    const auto pct = percentOf(current, max);
    if (!pct) return std::nullopt;
    return PowerState{*pct, hasText(*source, "Power Source State", "AC Power")};
  }
  return std::nullopt;
}

platform::SharedDictionary SmartBattery::properties() {
  return platform::registryProperties("AppleSmartBattery");
}

std::optional<std::int64_t> SmartBattery::amperageMA(const platform::Dictionary& properties) {
  constexpr std::int64_t garbage = 20'000;
  const platform::Value* value = platform::find(properties, "Amperage");
  if (value == nullptr) return std::nullopt;
  const auto amperage = wholeNumber(*value);
  if (!amperage || *amperage <= -garbage || *amperage >= garbage) return std::nullopt;
  return amperage;
}

std::optional<double> SmartBattery::watts(const platform::Dictionary& properties) {
  const auto amperage = amperageMA(properties);
  const auto voltage = voltageMV(properties);
  if (!amperage || !voltage) return std::nullopt;
  return (static_cast<double>(*amperage) / 1000.0) * (static_cast<double>(*voltage) / 1000.0);
}

std::optional<std::int64_t> SmartBattery::mAh(const platform::Dictionary& properties, std::string_view key) {
  if (const auto value = integerProperty(properties, key)) return value;
  const platform::Value* data = platform::find(properties, "BatteryData");
  const platform::Dictionary* nested = data == nullptr ? nullptr : data->asDictionary();
  return nested == nullptr ? std::nullopt : integerProperty(*nested, key);
}

std::optional<std::int64_t> SmartBattery::voltageMV(const platform::Dictionary& properties) {
  const auto voltage = integerProperty(properties, "Voltage");
  return voltage && *voltage > 0 ? voltage : std::nullopt;
}

std::optional<std::int64_t> SmartBattery::adapterWatts(const platform::Dictionary& properties) {
  const platform::Value* value = platform::find(properties, "AdapterDetails");
  const platform::Dictionary* details = value == nullptr ? nullptr : value->asDictionary();
  const auto watts = details == nullptr ? std::nullopt : integerProperty(*details, "Watts");
  return watts && *watts > 0 ? watts : std::nullopt;
}

std::optional<std::int64_t> amperageNow() {
  const platform::SharedDictionary properties = SmartBattery::properties();
  return properties ? SmartBattery::amperageMA(*properties) : std::nullopt;
}

std::optional<double> readTemp() {
  const auto bytes = readKey("TB0T");
  float celsius = 0;
  if (!bytes || bytes->size() < sizeof celsius) return std::nullopt;
  std::memcpy(&celsius, bytes->data(), sizeof celsius);
  // Written so that a NaN is rejected too.
  if (!(celsius > 0.0F && celsius < 100.0F)) return std::nullopt;
  return static_cast<double>(celsius);
}

std::optional<bool> chargingNow() {
  constexpr std::int64_t trickle = 100;  // mA
  if (const auto amperage = amperageNow()) return *amperage > trickle;
  const auto charging = readFirstByte("CHSC");
  if (!charging) return std::nullopt;
  return *charging != 0;
}

std::optional<std::uint32_t> systemCapabilities() {
  const auto value = platform::registryProperty("IOPMrootDomain", "System Capabilities");
  const auto word = value ? wholeNumber(*value) : std::nullopt;
  if (!word) return std::nullopt;
  return static_cast<std::uint32_t>(*word);
}

bool isFullWake(const std::optional<std::uint32_t>& capabilities) {
  return !capabilities || (*capabilities & capabilityGraphics) != 0;
}

}  // namespace brisko
