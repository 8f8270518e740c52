// client/real_time.h
// Real time, as opposed to the time of a virtual Mac, which may run faster.
#pragma once

namespace brisko::client {

// Seconds since an arbitrary time; never steps.
[[nodiscard]] double steadyNow();

// Blocks for that many seconds. A handled signal may end it early.
void pauseReally(double seconds);

// From then on Ctrl-C no longer ends the program; it ends pauseReally(), and wasInterrupted() returns true.
void catchInterrupt();
[[nodiscard]] bool wasInterrupted();

}  // namespace brisko::client
