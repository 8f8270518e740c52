// Whatever the registry and the power sources contain, of any type: the readings of the battery equal those
// of a second implementation, or are missing.
#include <cmath>

#include "calibration/calibration_record.h"
#include "fuzz/bytes.h"
#include "fuzz/require.h"
#include "fuzz/served_machine.h"
#include "fuzz/target.h"
#include "hardware/battery.h"

namespace brisko::battery_fuzz {
namespace {

using platform::Dictionary;
using platform::Value;

const Value& at(const Dictionary& properties, const std::string& key) {
  static const Value nothing;
  const auto found = properties.find(key);
  return found == properties.end() ? nothing : found->second;
}

// The same bits, whether signed or unsigned; of a floating-point number the whole part.
std::optional<std::int64_t> wrapped(const Value& value) {
  if (value.asBoolean()) return std::nullopt;
  const auto real = value.asDouble();
  if (!real) return value.asWrappedInteger();
  const bool fits = std::isfinite(*real) && *real >= -0x1p63 && *real < 0x1p63;
  return fits ? std::optional(static_cast<std::int64_t>(*real)) : std::nullopt;
}

bool isText(const Value& value, std::string_view text) {
  const std::string* found = value.asText();
  return found != nullptr && *found == text;
}

std::optional<std::int64_t> expectedCurrent(const Dictionary& properties) {
  const auto current = wrapped(at(properties, "Amperage"));
  return current && *current > -20000 && *current < 20000 ? current : std::nullopt;
}

std::optional<std::int64_t> expectedCapacity(const Dictionary& properties, const std::string& key) {
  if (const auto flat = at(properties, key).asInteger()) return flat;
  const Dictionary* nested = at(properties, "BatteryData").asDictionary();
  return nested == nullptr ? std::nullopt : at(*nested, key).asInteger();
}

void tryProperties(const platform::SharedDictionary& shared) {
  const Dictionary& properties = *shared;
  gServed.registry["AppleSmartBattery"] = shared;
  const auto current = expectedCurrent(properties);
  require(SmartBattery::amperageMA(properties) == current);
  require(amperageNow() == current);
  if (current) require(chargingNow() == (*current > 100));

  const auto voltage = at(properties, "Voltage").asInteger();
  const auto watts = SmartBattery::watts(properties);
  require(watts.has_value() == (current && voltage && *voltage > 0));
  if (watts) {
    const double wanted = static_cast<double>(*current) * static_cast<double>(*voltage) / 1e6;
    require(std::abs(*watts - wanted) <= std::abs(wanted) * 1e-9);
  }

  const auto reading = readCapacity();
  require(reading.has_value());
  require(reading->raw == expectedCapacity(properties, "AppleRawMaxCapacity"));
  require(reading->nominal == expectedCapacity(properties, "NominalChargeCapacity"));
  require(reading->design == expectedCapacity(properties, "DesignCapacity"));
  require(reading->cycles == at(properties, "CycleCount").asInteger());
  gServed.registry.clear();
  require(!amperageNow() && !readCapacity() && !chargingNow());
}

void tryCapabilities(const platform::SharedDictionary& shared) {
  gServed.registry["IOPMrootDomain"] = shared;
  const auto word = wrapped(at(*shared, "System Capabilities"));
  const auto capabilities = systemCapabilities();
  require(capabilities.has_value() == word.has_value());
  if (word) require(*capabilities == (static_cast<std::uint64_t>(*word) & 0xFFFFFFFFU));
  require(isFullWake(capabilities) == (!word || (*word & 2) != 0));
  gServed.registry.clear();
}

// The percentage in long double, which is exact for every integer.
void tryPercentage(const Dictionary& source, const std::optional<PowerState>& state) {
  const std::int64_t current = at(source, "Current Capacity").asInteger().value_or(0);
  const std::int64_t most = at(source, "Max Capacity").asInteger().value_or(100);
  constexpr long double beyond = 9223372036854775808.0L;
  constexpr long double rounding = 1e-14L;  // that of double, with a margin
  const long double percent = most < 1
                                  ? static_cast<long double>(current)
                                  : static_cast<long double>(current) * 100 / static_cast<long double>(most);
  // A percentage that no integer can hold is no reading.
  if (!state) return require(most >= 1 && std::abs(percent) >= beyond * (1 - rounding));
  require(most < 1 || std::abs(percent) <= beyond * (1 + rounding));
  const auto difference = static_cast<long double>(state->pct) - percent;
  require(std::abs(difference) <= 0.5L + std::abs(percent) * rounding);
  require(state->plugged == isText(at(source, "Power Source State"), "AC Power"));
}

void trySources(const std::vector<platform::SharedDictionary>& sources) {
  gServed.sources = sources;
  const std::optional<PowerState> state = powerState();
  for (const platform::SharedDictionary& source : sources) {
    if (isText(at(*source, "Type"), "InternalBattery")) return tryPercentage(*source, state);
  }
  require(!state);
}

void tryInput(std::string_view input) {
  Bytes bytes(input);
  std::vector<platform::SharedDictionary> dictionaries;
  while (!bytes.atEnd() && dictionaries.size() < 4) {
    dictionaries.push_back(std::make_shared<const Dictionary>(takeProperties(bytes)));
  }
  for (const platform::SharedDictionary& dictionary : dictionaries) {
    tryProperties(dictionary);
    tryCapabilities(dictionary);
  }
  trySources(dictionaries);
}

const FuzzTarget target("battery", tryInput);

}  // namespace
}  // namespace brisko::battery_fuzz
