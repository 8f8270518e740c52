// sim/seam/live/readable.h
// Further descriptors that the main run loop waits for.
#pragma once

#include <functional>

namespace brisko::virtual_mac {

// Calls `take` on the main thread, during the loop's wait, whenever the descriptor is readable, until the
// process ends. If `take` returns false it cannot take anything for now, and is called again a second of
// uptime later at the earliest.
void whenReadable(int descriptor, std::function<bool()> take);

}  // namespace brisko::virtual_mac
