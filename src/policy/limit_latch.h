// policy/limit_latch.h
// Whether the battery has reached the limit. This stays true inside the band, down to the floor, so that the
// charge does not go up and down near the limit.
#pragma once

#include <cstdint>
#include <optional>

namespace brisko {

struct LimitLatchInputs {
  bool enabled = true;
  bool changed = false;  // a setting has changed since the previous tick, so the band is entered from below
  std::int64_t pct = 0;
  std::int64_t target = 80;  // the band in force
  std::int64_t floor = 75;
  std::optional<bool> before = std::nullopt;  // in the previous tick; unknown counts as reached
};

[[nodiscard]] bool limitLatch(const LimitLatchInputs& inputs);

}  // namespace brisko
