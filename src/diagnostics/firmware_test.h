// diagnostics/firmware_test.h
// Tests the band that some controllers enforce themselves: arms it below the present charge for 15 s and
// shows by the battery's current whether charging stops.
#pragma once

namespace brisko {

// Needs root. Prints its actions and observations to standard output, and blocks for about 18 s. Returns the
// exit status, 1 only without a controller. A signal that would end the process is delayed until the band is
// off again.
[[nodiscard]] int runFirmwareTest();

}  // namespace brisko
