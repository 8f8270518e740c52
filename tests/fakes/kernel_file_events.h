// tests/fakes/kernel_file_events.h
// The virtual Mac's file watches, which use this system's kernel, under other names than the seam's:
// sim/seam/file_watch.cpp is compiled a second time with these names.
#pragma once

#include <functional>

#include "platform/file_watch.h"

namespace brisko::platform {

[[nodiscard]] WatchToken watchFileOfKernel(int descriptor, FileEvents wanted,
                                           std::function<void(FileEvents)> fired,
                                           std::function<void()> cancelled);
void cancelWatchOfKernel(WatchToken token);

}  // namespace brisko::platform
