// client/real_time.h
// The time that a person waits, also at a virtual Mac whose own time runs faster.
#pragma once

namespace brisko::client {

// Seconds from an arbitrary moment on; never steps.
[[nodiscard]] double steadyNow();

// Blocks for that many seconds. A handled signal may end it early.
void pauseReally(double seconds);

}  // namespace brisko::client
