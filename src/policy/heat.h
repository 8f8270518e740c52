// policy/heat.h
// The pause for heat: charging stops while the battery is too hot.
#pragma once

#include <cstdint>
#include <optional>

namespace brisko {

// Asymmetric on purpose: a battery that was too hot has to cool down properly.
inline constexpr double heatRecovery = 3.0;  // °C below the limit, where the pause ends

struct HeatInputs {
  bool wanted = false;                        // the user wants the pause
  bool plugged = false;                       // by the power-source service
  std::optional<double> temp = std::nullopt;  // °C
  std::int64_t limit = 40;                    // °C from which charging is paused
  bool paused = false;                        // in the previous tick
};

[[nodiscard]] bool pausedForHeat(const HeatInputs& inputs);

}  // namespace brisko
