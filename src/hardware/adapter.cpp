#include "hardware/adapter.h"

#include "hardware/smc.h"
#include "state/tick_state.h"

namespace brisko {

bool adapterPresent() { return adapterSeen().value_or(gLastPlugged); }

std::optional<bool> adapterSeen() {
  constexpr std::uint8_t noAdapter = 0xFF;
  const auto wattage = readFirstByte("AC-W");
  if (!wattage) return std::nullopt;
  return *wattage != noAdapter;
}

}  // namespace brisko
