// diagnostics/firmware_test.h
// A try of the band that some controllers keep by themselves: it is armed below the present charge for 15 s,
// and the battery's current shows whether charging stops.
#pragma once

namespace brisko {

// Needs root. Prints what it does and sees to standard output, and blocks for about 18 s. Returns the exit
// status, 1 only without a controller. A signal that would end the process waits until the band is off again.
[[nodiscard]] int runFirmwareTest();

}  // namespace brisko
