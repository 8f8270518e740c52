// hardware/system_lock.h
// Which versions of macOS close the charge-control keys, and whether macOS's own limit is there to take over.
// Touches no key itself.
#pragma once

#include <cstdint>

namespace brisko::SystemLock {

// Each is found on first use and then stands for the life of the process.

// Major version of macOS; the environment variable BRISKO_PRETEND_MACOS can stand in for it.
[[nodiscard]] std::int64_t macOSMajor();

// macOS 27 and later refuse the keys, even to root.
[[nodiscard]] bool closesKeys();

// The client of macOS's own limit is there. Finding out loads a private framework, so it is asked only where
// the keys are closed. The environment variable BRISKO_PRETEND_NO_NATIVE=1 takes the limit away.
[[nodiscard]] bool nativeAvailable();

}  // namespace brisko::SystemLock
