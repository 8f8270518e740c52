// hardware/battery.h
// The sensors: charge, adapter, current, voltage, capacities, temperature, kind of wake. Every reading is
// optional; a missing one is an ordinary outcome that each caller handles.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

#include "platform/value.h"

namespace brisko {

struct PowerState {
  std::int64_t pct = 0;  // percent; not clamped, a gauge may report 102
  bool plugged = false;  // the system reports that the adapter powers the Mac
};

// Of the internal battery, as the system's power-source service publishes it.
[[nodiscard]] std::optional<PowerState> powerState();

// The same from descriptions in the system's order: the first source of type "InternalBattery" counts. None
// too when its percentage does not fit 64 bits.
[[nodiscard]] std::optional<PowerState> powerStateOf(const std::vector<platform::SharedDictionary>& sources);

namespace SmartBattery {

// All properties of the battery's registry entry; null when there is none.
[[nodiscard]] platform::SharedDictionary properties();

// mA, positive while charging. None when missing, not a number, or not below 20,000 mA in either direction,
// because the gauge sometimes shows garbage.
[[nodiscard]] std::optional<std::int64_t> amperageMA(const platform::Dictionary& properties);

// Battery power in watts, signed like the current. Needs a voltage above 0.
[[nodiscard]] std::optional<double> watts(const platform::Dictionary& properties);

// The integer under `key`, at the top level or, on newer systems, inside "BatteryData".
[[nodiscard]] std::optional<std::int64_t> mAh(const platform::Dictionary& properties, std::string_view key);

// Battery voltage in mV; none unless above 0.
[[nodiscard]] std::optional<std::int64_t> voltageMV(const platform::Dictionary& properties);

// What the connected adapter is rated at; none without one, or one that does not say.
[[nodiscard]] std::optional<std::int64_t> adapterWatts(const platform::Dictionary& properties);

}  // namespace SmartBattery

// The battery's present current, with the rules of amperageMA().
[[nodiscard]] std::optional<std::int64_t> amperageNow();

// The battery's temperature, °C, between 0 and 100 exclusive.
[[nodiscard]] std::optional<double> readTemp();

// Whether current flows into the battery. A trickle of up to 100 mA does not count.
[[nodiscard]] std::optional<bool> chargingNow();

inline constexpr std::uint32_t capabilityGraphics = 2;  // the display stack is up: a full wake
[[nodiscard]] std::optional<std::uint32_t> systemCapabilities();
// A maintenance wake leaves the display off. A missing reading counts as fully awake: never discharging again
// would be the worse mistake.
[[nodiscard]] bool isFullWake(const std::optional<std::uint32_t>& capabilities);

}  // namespace brisko
