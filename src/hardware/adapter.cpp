#include "hardware/adapter.h"

#include "hardware/smc.h"
#include "state/tick_state.h"

namespace brisko {

bool adapterPresent() {
  constexpr std::uint8_t noAdapter = 0xFF;
  const auto wattage = readFirstByte("AC-W");
  return wattage ? *wattage != noAdapter : gLastPlugged;
}

}  // namespace brisko
