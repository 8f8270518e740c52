#include "sim/machine/properties.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>

namespace brisko::virtual_mac {
namespace {

using platform::Dictionary;
using platform::List;
using platform::SharedDictionary;
using platform::Value;

constexpr std::int64_t unknownMinutes = 65535;
constexpr std::int64_t designCycles = 1000;
constexpr const char* noSerial = "00000000000000000";
constexpr std::int64_t cells = 3;

// Bits of "NotChargingReason".
constexpr std::int64_t reasonFull = 1U << 0U | 1U << 22U;
constexpr std::int64_t reasonNoCharger = 1U << 7U;
constexpr std::int64_t reasonHeld = 1U << 24U;

// Every value that the properties are built from; while these stay equal, no new dictionaries are needed.
struct Shown {
  Gauge gauge;
  std::int64_t updateTime;  // wall clock
  std::int64_t designMAh;
  std::int64_t fullMAh;
  std::int64_t reserveMAh;
  std::int64_t cycles;
  bool installed;
  bool connected;  // the adapter reaches the battery
  bool plugged;
  bool charging;
  bool full;
  std::int64_t watts;
  std::int64_t loadMW;
  std::int64_t minutesToEmpty;
  std::int64_t minutesToFull;
  RegistryLayout layout;
  std::array<PropertyChange, propertyChanges> faults;

  bool operator==(const Shown&) const = default;
};

Shown shownNow(const Machine& machine) {
  Shown shown{};
  const PowerSource& source = machine.powerSource;
  const bool timed = source.minutes > 0;
  shown.gauge = machine.gauge;
  shown.updateTime = std::llround(std::floor(machine.gauge.publishedAt + machine.system.wallOffset));
  shown.designMAh = std::llround(machine.battery.designMAh);
  shown.fullMAh = std::llround(machine.battery.fullMAh);
  shown.reserveMAh = std::llround(machine.battery.reserveMAh);
  shown.cycles = machine.battery.cycles;
  shown.installed = machine.battery.installed;
  shown.connected = externalIsConnected(machine);
  shown.plugged = machine.adapter.present;
  shown.charging = shown.connected && machine.gauge.charging;
  shown.full = shown.connected && machine.gauge.full;
  shown.watts = std::llround(machine.adapter.watts);
  shown.loadMW = std::llround(machine.surroundings.loadWatts * 1000);
  shown.minutesToEmpty = timed && !source.onAdapter ? source.minutes : unknownMinutes;
  shown.minutesToFull = timed && source.charging ? source.minutes : unknownMinutes;
  shown.layout = machine.layout;
  shown.faults = machine.properties;
  return shown;
}

std::int64_t powerMW(const Gauge& gauge) { return gauge.currentMA * gauge.voltageMV / 1000; }

Value adapterDetails(const Shown& shown) {
  if (!shown.plugged) return Dictionary{{"FamilyCode", 0}};
  // Above 100 W power delivery uses 28 V. Without an identifier there is no name either.
  const std::int64_t millivolts = shown.watts > 100 ? 28000 : 20000;
  const std::int64_t milliamperes = shown.watts * 1000000 / millivolts;
  return Dictionary{{"AdapterID", 0},
                    {"AdapterPowerTier", 2},
                    {"AdapterVoltage", millivolts},
                    {"Current", milliamperes},
                    {"FamilyCode", -536854518},
                    {"IsWireless", false},
                    {"PMUConfiguration", milliamperes},
                    {"Watts", shown.watts}};
}

std::int64_t notChargingReason(const Shown& shown) {
  if (!shown.connected) return reasonNoCharger;
  if (shown.full) return reasonFull;
  return shown.gauge.askedMA > 0 ? 0 : reasonHeld;
}

Dictionary chargerData(const Shown& shown) {
  Dictionary data{{"NotChargingReason", notChargingReason(shown)},
                  {"SlowChargingReason", 0},
                  {"TimeChargingThermallyLimited", 0}};
  if (shown.layout == RegistryLayout::nested) {
    data.emplace("IsCharging", shown.charging);
    return data;
  }
  data.emplace("ChargerID", 14);
  data.emplace("ChargerInhibitReason", 0);
  data.emplace("ChargingCurrent", shown.gauge.askedMA);
  data.emplace("ChargingVoltage", shown.gauge.voltageMV / cells);
  data.emplace("VacVoltageLimit", 4375);
  return data;
}

// The system takes what it needs from the adapter, plus what the battery takes.
Dictionary telemetry(const Shown& shown) {
  const std::int64_t battery = powerMW(shown.gauge);
  const std::int64_t taken = shown.connected ? std::max<std::int64_t>(shown.loadMW + battery, 0) : 0;
  const std::int64_t millivolts = shown.connected ? 20000 : 0;
  return Dictionary{{"BatteryPower", battery},
                    {"SystemCurrentIn", shown.connected ? taken * 1000 / millivolts : 0},
                    {"SystemLoad", taken - battery},
                    {"SystemPowerIn", taken},
                    {"SystemVoltageIn", millivolts}};
}

Dictionary nestedBatteryData(const Shown& shown) {
  return Dictionary{{"AbsoluteCapacity", 0},
                    {"AvgTimeToEmpty", shown.minutesToEmpty},
                    {"BatteryPower", powerMW(shown.gauge)},
                    {"CurrentCapacity", shown.gauge.percent},
                    {"DesignCapacity", shown.designMAh},
                    {"FullChargeCapacity", shown.fullMAh},
                    {"FullyCharged", shown.full},
                    {"MaxCapacity", 100},
                    {"NominalChargeCapacity", shown.fullMAh + shown.reserveMAh},
                    {"RemainingCapacity", shown.gauge.rawMAh}};
}

Dictionary flatBatteryData(const Shown& shown) {
  const std::int64_t cell = shown.gauge.voltageMV / cells;
  return Dictionary{{"CellVoltage", List{cell, cell, cell}},
                    {"CycleCount", shown.cycles},
                    {"DesignCapacity", shown.designMAh},
                    {"MaxCapacity", 100},
                    {"Serial", noSerial},
                    {"StateOfCharge", 100 * shown.gauge.rawMAh / shown.fullMAh},
                    {"Voltage", shown.gauge.voltageMV}};
}

void addFlatCapacities(Dictionary& properties, const Shown& shown) {
  properties.emplace("AbsoluteCapacity", 0);
  properties.emplace("AppleRawCurrentCapacity", shown.gauge.rawMAh);
  properties.emplace("AppleRawMaxCapacity", shown.fullMAh);
  properties.emplace("DesignCapacity", shown.designMAh);
  properties.emplace("NominalChargeCapacity", shown.fullMAh + shown.reserveMAh);
  properties.emplace("PackReserve", shown.reserveMAh);
  properties.emplace("Temperature", shown.gauge.temperatureCentiC);
  properties.emplace("VirtualTemperature", shown.gauge.temperatureCentiC);
}

void addNestedParts(Dictionary& properties, const Shown& shown) {
  const std::int64_t milliwatts = shown.connected ? shown.watts * 1000 : 0;
  properties.emplace("BatteryPackCount", 1);
  properties.emplace("ChargerCount", 1);
  properties.emplace("PowerDistribution", Dictionary{{"IPDChargingAllowed", shown.gauge.askedMA > 0},
                                                     {"IPDInputPower", milliwatts},
                                                     {"IPDInputVoltage", shown.connected ? 20000 : 0}});
}

// A Mac whose battery was removed, or that never had one.
Dictionary withoutBattery(const Shown& shown) {
  return Dictionary{{"AdapterDetails", Dictionary{{"FamilyCode", 0}}},
                    {"Amperage", 0},
                    {"BatteryInstalled", false},
                    {"CurrentCapacity", 0},
                    {"CycleCount", 0},
                    {"ExternalChargeCapable", true},
                    {"ExternalConnected", true},
                    {"IsCharging", false},
                    {"Location", 0},
                    {"MaxCapacity", 0},
                    {"TimeRemaining", 0},
                    {"UpdateTime", shown.updateTime},
                    {"Voltage", 0},
                    {"built-in", true}};
}

Dictionary smartBattery(const Shown& shown) {
  if (!shown.installed) return withoutBattery(shown);
  const bool nested = shown.layout == RegistryLayout::nested;
  const std::int64_t remaining = shown.connected ? shown.minutesToFull : shown.minutesToEmpty;
  Dictionary properties{{"AdapterDetails", adapterDetails(shown)},
                        {"AdapterInfo", 0},
                        {"Amperage", shown.gauge.currentMA},
                        {"AppleRawBatteryVoltage", shown.gauge.voltageMV},
                        {"AppleRawExternalConnected", shown.plugged},
                        {"AtCriticalLevel", false},
                        {"AvgTimeToEmpty", shown.minutesToEmpty},
                        {"AvgTimeToFull", shown.minutesToFull},
                        {"BatteryData", nested ? nestedBatteryData(shown) : flatBatteryData(shown)},
                        {"BatteryInstalled", true},
                        {"ChargerData", chargerData(shown)},
                        {"CurrentCapacity", shown.gauge.percent},
                        {"CycleCount", shown.cycles},
                        {"DesignCycleCount9C", designCycles},
                        {"DeviceName", "bq40z651"},
                        {"ExternalChargeCapable", shown.connected},
                        {"ExternalConnected", shown.connected},
                        {"FullyCharged", shown.full},
                        {"InstantAmperage", shown.gauge.currentMA},
                        {"IsCharging", shown.charging},
                        {"Location", 0},
                        {"MaxCapacity", 100},
                        {"PowerTelemetryData", telemetry(shown)},
                        {"Serial", noSerial},
                        {"TimeRemaining", remaining},
                        {"UpdateTime", shown.updateTime},
                        {"UserVisiblePathUpdated", shown.updateTime},
                        {"Voltage", shown.gauge.voltageMV},
                        {"built-in", true}};
  if (nested) {
    addNestedParts(properties, shown);
  } else {
    addFlatCapacities(properties, shown);
  }
  return properties;
}

Dictionary batteryPack(const Shown& shown) {
  Dictionary data{{"AbsoluteCapacity", 0},
                  {"Amperage", shown.gauge.currentMA},
                  {"AppleRawBatteryVoltage", shown.gauge.voltageMV},
                  {"AppleRawCurrentCapacity", shown.gauge.rawMAh},
                  {"AppleRawMaxCapacity", shown.fullMAh},
                  {"CurrentCapacity", shown.gauge.percent},
                  {"CycleCount", shown.cycles},
                  {"DesignCapacity", shown.designMAh},
                  {"FullyCharged", shown.full},
                  {"InstantAmperage", shown.gauge.currentMA},
                  {"MaxCapacity", 100},
                  {"NominalChargeCapacity", shown.fullMAh + shown.reserveMAh},
                  {"PackReserve", shown.reserveMAh},
                  {"Serial", noSerial},
                  {"StateOfCharge", 100 * shown.gauge.rawMAh / shown.fullMAh},
                  {"Temperature", shown.gauge.temperatureCentiC},
                  {"VirtualTemperature", shown.gauge.temperatureCentiC},
                  {"Voltage", shown.gauge.voltageMV}};
  return Dictionary{{"BankCount", cells}, {"BatteryData", std::move(data)}, {"ID", 0}, {"Serial", noSerial}};
}

std::string textForm(const Value& value) {
  if (const auto boolean = value.asBoolean()) return *boolean ? "Yes" : "No";
  if (const auto integer = value.asWrappedInteger()) return std::to_string(*integer);
  if (const auto* text = value.asText()) return *text;
  return "?";
}

// The number as another type; anything else stays as it is. The registry's own tools show a negative number
// as unsigned, 2^64 - n.
Value otherKind(const Value& value, PropertyFault fault) {
  const auto boolean = value.asBoolean();
  const auto integer = boolean ? std::optional<std::int64_t>(*boolean ? 1 : 0) : value.asWrappedInteger();
  if (!integer) return value;
  if (fault == PropertyFault::real) return static_cast<double>(*integer);
  return static_cast<std::uint64_t>(*integer);
}

void applyFault(Dictionary& dictionary, std::string_view name, PropertyFault fault) {
  const auto entry = dictionary.find(name);
  if (entry != dictionary.end()) {
    switch (fault) {
      case PropertyFault::none:
        break;
      case PropertyFault::missing:
        dictionary.erase(entry);
        break;
      case PropertyFault::text:
        entry->second = textForm(entry->second);
        break;
      case PropertyFault::real:
      case PropertyFault::unsignedInteger:
        entry->second = otherKind(entry->second, fault);
        break;
    }
    return;
  }
  // "BatteryData/DesignCapacity" names a property of a nested dictionary.
  const std::size_t slash = name.find('/');
  if (slash == std::string_view::npos) return;
  const auto outer = dictionary.find(name.substr(0, slash));
  if (outer == dictionary.end() || outer->second.asDictionary() == nullptr) return;
  Dictionary inner = *outer->second.asDictionary();
  applyFault(inner, name.substr(slash + 1), fault);
  outer->second = std::move(inner);
}

SharedDictionary withFaults(Dictionary dictionary,
                            const std::array<PropertyChange, propertyChanges>& faults) {
  for (const PropertyChange& change : faults) applyFault(dictionary, textOf(change.name), change.fault);
  return std::make_shared<const Dictionary>(std::move(dictionary));
}

// Caches the last result until its input changes: properties are read far more often than the gauge
// publishes. Main thread only.
template <typename From, typename Built>
struct Memory {
  From from;
  Built built;
};

// The cache of one call site. It is never destroyed, because the machine may be read until the last moment.
template <typename From, typename Build>
const auto& remembered(const From& from, Build build) {
  using Built = decltype(build(from));
  static auto* const memory = new Memory<From, Built>{from, build(from)};
  if (!(memory->from == from)) *memory = {from, build(from)};
  return memory->built;
}

// Every value that the descriptions of the power sources are built from.
struct ShownSources {
  std::int64_t percent;
  std::int64_t minutes;
  std::int64_t currentMA;
  std::int64_t voltageMV;
  bool installed;
  bool onAdapter;
  bool charging;
  bool full;
  PowerSourceFault fault;
  std::array<PropertyChange, propertyChanges> faults;

  bool operator==(const ShownSources&) const = default;
};

ShownSources sourcesNow(const Machine& machine) {
  const PowerSource& source = machine.powerSource;
  return {.percent = source.percent,
          .minutes = source.minutes,
          .currentMA = machine.gauge.currentMA,
          .voltageMV = machine.gauge.voltageMV,
          .installed = machine.battery.installed,
          .onAdapter = source.onAdapter,
          .charging = source.charging,
          .full = source.full,
          .fault = machine.powerSourceFault,
          .faults = machine.properties};
}

Dictionary internalBattery(const ShownSources& shown) {
  return Dictionary{{"Battery Provides Time Remaining", true},
                    {"BatteryHealth", "Good"},
                    {"BatteryHealthCondition", ""},
                    {"Current", shown.currentMA},
                    {"Current Capacity", shown.percent},
                    {"Hardware Serial Number", noSerial},
                    {"Is Charged", shown.full},
                    {"Is Charging", shown.charging},
                    {"Is Finishing Charge", shown.charging && shown.percent >= 99},
                    {"Is Present", true},
                    {"LPM Active", false},
                    {"Max Capacity", 100},
                    {"Name", "InternalBattery-0"},
                    {"Optimized Battery Charging Engaged", false},
                    {"Power Source ID", 22610019},
                    {"Power Source State", shown.onAdapter ? "AC Power" : "Battery Power"},
                    {"Time to Empty", shown.onAdapter ? 0 : shown.minutes},
                    {"Time to Full Charge", shown.charging ? shown.minutes : 0},
                    {"Transport Type", "Internal"},
                    {"Type", "InternalBattery"},
                    {"Voltage", shown.voltageMV}};
}

Dictionary ups() {
  return Dictionary{{"Current Capacity", 93},
                    {"Is Charging", false},
                    {"Is Present", true},
                    {"Max Capacity", 100},
                    {"Name", "Back-UPS 700"},
                    {"Power Source ID", 22610020},
                    {"Power Source State", "AC Power"},
                    {"Time to Empty", 48},
                    {"Transport Type", "USB"},
                    {"Type", "UPS"}};
}

std::vector<SharedDictionary> sourceList(const ShownSources& shown) {
  std::vector<SharedDictionary> list;
  if (shown.fault == PowerSourceFault::emptyList) return list;
  const bool hasUps =
      shown.fault == PowerSourceFault::upsFirst || shown.fault == PowerSourceFault::noInternalBattery;
  if (hasUps) list.push_back(std::make_shared<const Dictionary>(ups()));
  if (shown.installed && shown.fault != PowerSourceFault::noInternalBattery) {
    list.push_back(withFaults(internalBattery(shown), shown.faults));
  }
  return list;
}

struct ShownDomain {
  std::uint32_t capabilities;
  bool readable;
  std::array<PropertyChange, propertyChanges> faults;

  bool operator==(const ShownDomain&) const = default;
};

SharedDictionary rootDomain(const ShownDomain& shown) {
  Dictionary properties;
  if (shown.readable) properties.emplace("System Capabilities", std::uint64_t{shown.capabilities});
  return withFaults(std::move(properties), shown.faults);
}

bool isMissing(const Machine& machine, std::string_view entry) {
  return std::any_of(machine.properties.begin(), machine.properties.end(),
                     [entry](const PropertyChange& change) {
                       return change.fault == PropertyFault::missing && textOf(change.name) == entry;
                     });
}

}  // namespace

std::optional<std::vector<SharedDictionary>> powerSourceList(const Machine& machine) {
  if (machine.powerSourceFault == PowerSourceFault::noSnapshot) return std::nullopt;
  return remembered(sourcesNow(machine), [](const ShownSources& shown) { return sourceList(shown); });
}

SharedDictionary entryProperties(const Machine& machine, std::string_view entry) {
  if (isMissing(machine, entry)) return nullptr;
  if (entry == "AppleSmartBattery") {
    return remembered(shownNow(machine),
                      [](const Shown& shown) { return withFaults(smartBattery(shown), shown.faults); });
  }
  if (entry == "AppleSmartBatteryPack") {
    if (machine.layout != RegistryLayout::nested || !machine.battery.installed) return nullptr;
    return remembered(shownNow(machine),
                      [](const Shown& shown) { return withFaults(batteryPack(shown), shown.faults); });
  }
  if (entry == "IOPMrootDomain") {
    const System& system = machine.system;
    return remembered(ShownDomain{.capabilities = system.capabilities,
                                  .readable = system.capabilitiesReadable,
                                  .faults = machine.properties},
                      [](const ShownDomain& shown) { return rootDomain(shown); });
  }
  return nullptr;
}

}  // namespace brisko::virtual_mac
