#include "fuzz/served_machine.h"

#include <array>
#include <bit>

#include "platform/power_sources.h"
#include "platform/registry.h"
#include "sim/seam/power_source_watch.h"

namespace brisko {

namespace platform {

SmcOpening openSmc() { return {kernelSuccess, 1}; }
KernelStatus closeSmc(SmcConnection) { return kernelSuccess; }
SmcExchange exchangeSmc(SmcConnection, const SmcRecord& input, SmcRecord& output) {
  output.fill(0);
  const KernelStatus status = gServed.exchange ? gServed.exchange(input, output) : kernelNotOpen;
  return {.status = status, .answered = status == kernelSuccess ? output.size() : 0};
}

SharedDictionary registryProperties(std::string_view entry) {
  const auto found = gServed.registry.find(entry);
  return found == gServed.registry.end() ? nullptr : found->second;
}

std::optional<Value> registryProperty(std::string_view entry, std::string_view key) {
  const SharedDictionary properties = registryProperties(entry);
  const Value* value = properties ? find(*properties, key) : nullptr;
  return value == nullptr ? std::nullopt : std::optional(*value);
}

std::optional<std::vector<SharedDictionary>> powerSources() { return gServed.sources; }
bool addPowerSourceNotification(std::function<void()>) { return true; }

}  // namespace platform

namespace virtual_mac {

bool powerSourceChanged(const Machine&) { return false; }
void notifyPowerSourceChange() {}

}  // namespace virtual_mac

namespace {

using platform::Dictionary;
using platform::Value;

constexpr int mostLevels = 3;

constexpr std::array keys{"Amperage",
                          "Voltage",
                          "AppleRawMaxCapacity",
                          "NominalChargeCapacity",
                          "DesignCapacity",
                          "CycleCount",
                          "BatteryData",
                          "Type",
                          "Power Source State",
                          "Max Capacity",
                          "Current Capacity",
                          "System Capabilities",
                          "Temperature",
                          "something else",
                          "amperage",
                          ""};
constexpr std::array texts{"InternalBattery", "AC Power", "Battery Power", "UPS", "-1000", ""};

std::string takeText(Bytes& bytes) {
  const std::uint8_t which = bytes.byte();
  if (which < texts.size()) return texts[which];
  return std::string(bytes.upTo('\0'));
}

// Small numbers, and numbers of every size.
std::int64_t takeSigned(Bytes& bytes, std::uint8_t kind) {
  return kind % 2 == 0 ? bytes.integer<std::int16_t>() : bytes.integer<std::int64_t>();
}

}  // namespace

Value takeValue(Bytes& bytes, int level) {
  const std::uint8_t kind = bytes.byte() % 16;
  switch (kind) {
    case 0:
      return {};
    case 1:
      return bytes.byte() % 2 == 1;
    case 2:
    case 3:
    case 4:
    case 5:
      return takeSigned(bytes, kind);
    case 6:
    case 7:
      // The registry's form of negative numbers.
      return static_cast<std::uint64_t>(takeSigned(bytes, kind));
    case 8:
    case 9:
      return std::bit_cast<double>(bytes.integer<std::uint64_t>());
    case 10:
    case 11:
      return takeText(bytes);
    case 12:
      return platform::Data{{bytes.byte(), bytes.byte()}};
    case 13:
      return platform::Date{static_cast<double>(bytes.integer<std::int32_t>())};
    case 14:
      return level < mostLevels ? Value(platform::List{takeValue(bytes, level + 1)}) : Value();
    default:
      return level < mostLevels ? Value(takeProperties(bytes, level + 1)) : Value();
  }
}

Dictionary takeProperties(Bytes& bytes, int level) {
  Dictionary properties;
  for (int count = bytes.byte() % 8; count > 0 && !bytes.atEnd(); --count) {
    const char* key = keys[bytes.byte() % keys.size()];
    properties.insert_or_assign(key, takeValue(bytes, level));
  }
  return properties;
}

}  // namespace brisko
