// policy/top_up.h
// A Top Up charges to full once. It lasts until the adapter is unplugged or its hours are over.
#pragma once

#include <cstdint>

#include "policy/charge_bounds.h"

namespace brisko {

inline constexpr Bounds topUpBand{.upper = 100, .lower = 99};

enum class TopUpOutcome : std::uint8_t { continues, expired, unplugged };

struct TopUpInputs {
  double elapsed = 0;      // seconds since it began
  std::int64_t hours = 0;  // that it may last; below 1: without an end
  bool adapterPresent = false;
};

[[nodiscard]] TopUpOutcome topUpOutcome(const TopUpInputs& inputs);

}  // namespace brisko
