// sim/seam/live/readable.h
// Descriptors that the main run loop waits for besides its own.
#pragma once

#include <functional>

namespace brisko::virtual_mac {

// Calls `take` on the main thread, from inside the loop's wait, whenever the descriptor is readable, for the
// life of the process. When it returns false it can take nothing for now; it is called again no sooner than a
// second of uptime later.
void whenReadable(int descriptor, std::function<bool()> take);

}  // namespace brisko::virtual_mac
