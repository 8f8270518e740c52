// tests/fakes/kernel_file_events.h
// The watches of the virtual Mac, which are those of this system's kernel, under names beside those of the
// seam: sim/seam/file_watch.cpp is compiled once more with them.
#pragma once

#include <functional>

#include "platform/file_watch.h"

namespace brisko::platform {

[[nodiscard]] WatchToken watchFileOfKernel(int descriptor, FileEvents wanted,
                                           std::function<void(FileEvents)> fired,
                                           std::function<void()> cancelled);
void cancelWatchOfKernel(WatchToken token);

}  // namespace brisko::platform
