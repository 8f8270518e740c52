// tests/stand_ins/system.h
// What the stand-ins share of the system below the frameworks.
#pragma once

#include <cstdint>

namespace brisko::stand_ins {

// One tick is as short as the virtual Mac's own clock can tell, so that nothing is lost between the two.
[[nodiscard]] std::uint64_t ticksOfSeconds(double uptime);
[[nodiscard]] double secondsOfTicks(std::uint64_t ticks);

[[nodiscard]] bool hasLostItsName(int descriptor);

}  // namespace brisko::stand_ins
