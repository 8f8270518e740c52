// client/real_time.h
// The time that a person waits, also at a virtual Mac whose own time runs faster.
#pragma once

namespace brisko::client {

// Seconds from an arbitrary moment on; never steps.
[[nodiscard]] double steadyNow();

// Blocks for that many seconds. A handled signal may end it early.
void pauseReally(double seconds);

// From then on Ctrl-C no longer ends the program; it ends pauseReally(), and wasInterrupted() returns true.
void catchInterrupt();
[[nodiscard]] bool wasInterrupted();

}  // namespace brisko::client
