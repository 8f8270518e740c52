#include "sim/dump_import/dump_import.h"

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <system_error>
#include <utility>

#include "sim/dump_import/read_dump.h"
#include "sim/machine/models.h"

namespace brisko {
namespace {

using platform::Dictionary;
using platform::Value;
using virtual_mac::Machine;
using virtual_mac::MachineOptions;
using virtual_mac::Model;
using virtual_mac::RegistryLayout;

std::optional<std::int64_t> integer(const Dictionary& dictionary, std::string_view key) {
  const Value* value = find(dictionary, key);
  return value == nullptr ? std::nullopt : value->asWrappedInteger();
}

std::optional<double> number(const Dictionary& dictionary, std::string_view key) {
  const Value* value = find(dictionary, key);
  if (value == nullptr) return std::nullopt;
  if (const auto real = value->asDouble()) return real;
  if (const auto whole = value->asWrappedInteger()) return static_cast<double>(*whole);
  return std::nullopt;
}

// JSON has 0 and 1 for booleans.
std::optional<bool> flag(const Dictionary& dictionary, std::string_view key) {
  const Value* value = find(dictionary, key);
  if (value == nullptr) return std::nullopt;
  if (const auto boolean = value->asBoolean()) return boolean;
  if (const auto whole = value->asInteger()) return *whole != 0;
  return std::nullopt;
}

const Dictionary& part(const Dictionary& dictionary, std::string_view key) {
  static const auto* const nothing = new Dictionary;
  const Value* value = find(dictionary, key);
  const Dictionary* inner = value == nullptr ? nullptr : value->asDictionary();
  return inner == nullptr ? *nothing : *inner;
}

// The number if it lies within believable limits; none when the dump lacks it or it lies outside.
std::optional<double> believable(std::optional<double> value, double least, double most) {
  return value && *value >= least && *value <= most ? value : std::nullopt;
}

// The readings of a dump in either layout.
struct Reading {
  RegistryLayout layout;
  double percent;
  double fullMAh;
  std::optional<double> chargeMAh, designMAh, nominalMAh, reserveMAh;
  std::optional<double> temperatureCentiC, watts, loadWatts;
  std::int64_t cycles;
  std::int64_t currentMA;
  std::optional<std::int64_t> voltageMV, askedMA;
  std::int64_t minutes;  // to full or to empty; -1 unknown
  bool plugged;
  bool charging;
  bool full;
};

constexpr double mostMAh = 100000;

std::optional<double> capacity(const Dictionary& dictionary, std::string_view key, double least = 1) {
  return believable(number(dictionary, key), least, mostMAh);
}

std::optional<double> readTemperature(const Dictionary& dictionary) {
  return believable(number(dictionary, "Temperature"), -10000, 20000);
}

void readFlat(const Dictionary& dump, Reading& reading) {
  reading.chargeMAh = capacity(dump, "AppleRawCurrentCapacity", 0);
  reading.designMAh = capacity(dump, "DesignCapacity");
  reading.nominalMAh = capacity(dump, "NominalChargeCapacity");
  reading.reserveMAh = capacity(dump, "PackReserve", 0);
  reading.temperatureCentiC = readTemperature(dump);
}

void readNested(const Dictionary& data, const Dictionary* pack, Reading& reading) {
  reading.chargeMAh = capacity(data, "RemainingCapacity", 0);
  reading.designMAh = capacity(data, "DesignCapacity");
  reading.nominalMAh = capacity(data, "NominalChargeCapacity");
  if (pack == nullptr) return;
  const Dictionary& packData = part(*pack, "BatteryData");
  reading.reserveMAh = capacity(packData, "PackReserve", 0);
  reading.temperatureCentiC = readTemperature(packData);
}

// What the Mac consumes: measured at that moment, or averaged, or on battery the power that leaves the
// battery.
std::optional<double> readLoad(const Dictionary& dump, const Reading& reading) {
  const auto watts = believable(number(part(dump, "BatteryData"), "SystemPower"), 0.1, 500);
  if (watts) return watts;
  const auto milliwatts = believable(number(part(dump, "PowerTelemetryData"), "SystemLoad"), 100, 500000);
  if (milliwatts) return *milliwatts / 1000;
  if (reading.plugged || !reading.voltageMV || reading.currentMA >= 0) return std::nullopt;
  return -static_cast<double>(reading.currentMA) * static_cast<double>(*reading.voltageMV) / 1e6;
}

// Minutes to full while charging, minutes to empty on battery, and 0 on the adapter without charging.
std::int64_t readMinutes(const Dictionary& dump, const Reading& reading) {
  constexpr std::int64_t unknown = 65535;
  if (reading.plugged && !reading.charging) return 0;
  const auto minutes = integer(dump, reading.charging ? "AvgTimeToFull" : "AvgTimeToEmpty");
  return minutes && *minutes >= 0 && *minutes < unknown ? *minutes : -1;
}

void readMoment(const Dictionary& dump, Reading& reading) {
  reading.cycles = static_cast<std::int64_t>(believable(number(dump, "CycleCount"), 0, 1e6).value_or(0));
  reading.currentMA =
      static_cast<std::int64_t>(believable(number(dump, "Amperage"), -mostMAh, mostMAh).value_or(0));
  reading.plugged =
      flag(dump, "AppleRawExternalConnected").value_or(flag(dump, "ExternalConnected").value_or(false));
  reading.charging = flag(dump, "IsCharging").value_or(false);
  reading.full = flag(dump, "FullyCharged").value_or(false);
  reading.minutes = readMinutes(dump, reading);
  reading.watts = believable(number(part(dump, "AdapterDetails"), "Watts"), 1, 1000);
  if (const auto voltage = believable(number(dump, "Voltage"), 1000, 20000)) {
    reading.voltageMV = static_cast<std::int64_t>(*voltage);
  }
  reading.loadWatts = readLoad(dump, reading);
  const Dictionary& charger = part(dump, "ChargerData");
  if (const auto asked = believable(number(charger, "ChargingCurrent"), 0, mostMAh)) {
    reading.askedMA = static_cast<std::int64_t>(*asked);
  }
}

std::optional<Reading> read(const Dictionary& dump, const Dictionary* pack, std::string& reason) {
  const auto percent = integer(dump, "CurrentCapacity");
  const auto most = integer(dump, "MaxCapacity");
  if (!percent || !most) {
    reason = "not the properties of AppleSmartBattery (no CurrentCapacity and MaxCapacity)";
    return std::nullopt;
  }
  if (!flag(dump, "BatteryInstalled").value_or(true) || *most == 0) {
    reason = "this Mac has no battery";
    return std::nullopt;
  }
  if (*most != 100 || *percent < 0 || *percent > 100) {
    reason = "CurrentCapacity is not a percentage (an Intel Mac gives mAh there)";
    return std::nullopt;
  }
  const Dictionary& data = part(dump, "BatteryData");
  const auto flatFull = capacity(dump, "AppleRawMaxCapacity");
  const auto full = flatFull ? flatFull : capacity(data, "FullChargeCapacity");
  if (!full) {
    reason = "the dump does not contain the battery's capacity";
    return std::nullopt;
  }
  Reading reading{};
  reading.layout = flatFull ? RegistryLayout::flat : RegistryLayout::nested;
  reading.percent = static_cast<double>(*percent);
  reading.fullMAh = *full;
  if (flatFull) {
    readFlat(dump, reading);
  } else {
    readNested(data, pack, reading);
  }
  readMoment(dump, reading);
  return reading;
}

const Model& nearestModel(double designMAh) {
  const auto models = virtual_mac::models();
  const auto distance = [designMAh](const Model& model) { return std::abs(model.designMAh - designMAh); };
  return *std::min_element(models.begin(), models.end(), [&](const Model& left, const Model& right) {
    return distance(left) < distance(right);
  });
}

// The share of the full charge at which 100 % is shown, worked out from one pair of percentage and charge.
// Near empty the percentage is too coarse for that. At 100 % the charge gives only a lower bound.
double shownFullOf(const Reading& reading, double usual) {
  constexpr double leastPercent = 20;
  constexpr double least = 0.9;
  if (!reading.chargeMAh || reading.percent < leastPercent) return usual;
  const double share = *reading.chargeMAh / reading.fullMAh * 100 / reading.percent;
  const double most = reading.percent >= 100 ? usual : 1.0;
  return std::clamp(share, least, most);
}

Model modelOf(const Reading& reading) {
  const double design = reading.designMAh.value_or(reading.fullMAh);
  Model model = nearestModel(design);
  model.designMAh = design;
  model.fullMAh = reading.fullMAh;
  model.cycles = reading.cycles;
  model.shownFull = shownFullOf(reading, model.shownFull);
  if (reading.reserveMAh) {
    model.reserveMAh = *reading.reserveMAh;
  } else if (reading.nominalMAh && *reading.nominalMAh >= reading.fullMAh) {
    model.reserveMAh = *reading.nominalMAh - reading.fullMAh;
  }
  model.adapterWatts = reading.watts.value_or(model.adapterWatts);
  model.loadWatts = reading.loadWatts.value_or(model.loadWatts);
  return model;
}

// A dump with 100 % shows from which charge on this battery shows them, at the latest.
void setShownAsFull(Machine& machine, const Reading& reading) {
  if (!reading.chargeMAh || reading.percent < 100) return;
  virtual_mac::Battery& battery = machine.battery;
  battery.showsFullFrom = std::min(battery.showsFullFrom, *reading.chargeMAh / battery.fullMAh);
}

// Takes the gauge's own charge, unless that would show another percentage than the dump does.
void setCharge(Machine& machine, const Reading& reading) {
  if (!reading.chargeMAh) return;
  virtual_mac::Battery& battery = machine.battery;
  const double before = battery.chargeMAh;
  battery.chargeMAh = std::min(*reading.chargeMAh, battery.fullMAh);
  if (std::round(virtual_mac::level(machine)) != reading.percent) battery.chargeMAh = before;
}

// Sets what the dump shows of its moment. The readings fall between two publications of the gauge, which may
// lag behind the adapter.
void setMoment(Machine& machine, const Reading& reading) {
  virtual_mac::Gauge& gauge = machine.gauge;
  gauge.percent = static_cast<std::int64_t>(reading.percent);
  gauge.rawMAh = std::llround(reading.chargeMAh.value_or(machine.battery.chargeMAh));
  gauge.currentMA = reading.currentMA;
  gauge.voltageMV = reading.voltageMV.value_or(gauge.voltageMV);
  gauge.charging = reading.charging;
  gauge.full = reading.full;
  gauge.askedMA = reading.askedMA.value_or(gauge.askedMA);
  machine.battery.fullyCharged = reading.full;
  machine.powerSource.percent = gauge.percent;
  machine.powerSource.charging = reading.charging && reading.plugged;
  machine.powerSource.full = reading.full && reading.plugged;
  machine.powerSource.minutes = reading.minutes;
  if (!reading.temperatureCentiC) return;
  gauge.temperatureCentiC = static_cast<std::int64_t>(*reading.temperatureCentiC);
  machine.battery.temperatureC = *reading.temperatureCentiC / 100;
}

// Opens regular files only: reading a pipe would block.
std::optional<Dictionary> readFile(const std::string& path, std::string& reason) {
  std::error_code error;
  std::ifstream file;
  if (std::filesystem::is_regular_file(path, error)) file.open(path, std::ios::binary);
  if (!file.is_open()) {
    reason = "cannot be read";
    return std::nullopt;
  }
  const std::string text{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
  return readDump(text, reason);
}

// Reads the properties of the battery pack from their own file.
std::optional<Dictionary> readPackBeside(const std::string& path) {
  constexpr std::string_view ending = ".json";
  if (!path.ends_with(ending)) return std::nullopt;
  std::string reason;  // unused: the file may be missing
  return readFile(path.substr(0, path.size() - ending.size()) + ".pack.json", reason);
}

}  // namespace

std::optional<Machine> machineFromDump(const Dictionary& dump, const Dictionary* pack,
                                       const MachineOptions& options, std::string& reason) {
  const std::optional<Reading> reading = read(dump, pack, reason);
  if (!reading) return std::nullopt;
  MachineOptions wanted = options;
  wanted.percent = reading->percent;
  wanted.plugged = reading->plugged;
  if (reading->layout == RegistryLayout::nested) wanted.macOS = std::max<std::int64_t>(wanted.macOS, 27);
  const Model model = modelOf(*reading);
  Machine machine = virtual_mac::makeMachine(model, wanted);
  machine.model =
      virtual_mac::shortText("MacBook, " + std::to_string(std::llround(model.designMAh)) + " mAh");
  machine.layout = reading->layout;
  setShownAsFull(machine, *reading);
  setCharge(machine, *reading);
  setMoment(machine, *reading);
  return machine;
}

std::optional<Machine> machineFromDumpFile(const std::string& path, const MachineOptions& options,
                                           std::string& reason) {
  std::optional<Machine> machine;
  if (const auto dump = readFile(path, reason)) {
    const auto pack = readPackBeside(path);
    machine = machineFromDump(*dump, pack ? &*pack : nullptr, options, reason);
  }
  if (!machine) reason = path + ": " + reason;
  return machine;
}

}  // namespace brisko
