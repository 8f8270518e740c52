// tests/stand_ins/system.h
// What the stand-ins share of the system below the frameworks.
#pragma once

#include <cstddef>
#include <cstdint>

namespace brisko::stand_ins {

// One tick is as short as the virtual Mac's own clock can tell, so that nothing is lost between the two.
[[nodiscard]] std::uint64_t ticksOfSeconds(double uptime);
[[nodiscard]] double secondsOfTicks(std::uint64_t ticks);

[[nodiscard]] bool hasLostItsName(int descriptor);

// How many bytes of a successful answer the controller's driver gives. All, unless a test says otherwise.
extern std::size_t gAnswerBytes;

}  // namespace brisko::stand_ins
