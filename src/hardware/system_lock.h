// hardware/system_lock.h
// Which versions of macOS close the charge-control keys, and whether macOS's own limit is available instead.
// Touches no key itself.
#pragma once

#include <cstdint>

namespace brisko::SystemLock {

// Each is determined on first use and then fixed until the process ends.

// Major version of macOS; the environment variable BRISKO_PRETEND_MACOS overrides it.
[[nodiscard]] std::int64_t macOSMajor();

// macOS 27 and later refuse the keys, even to root.
[[nodiscard]] bool closesKeys();

// Whether the client of macOS's own limit exists. Finding out loads a private framework, so this is called
// only where the keys are closed. The environment variable BRISKO_PRETEND_NO_NATIVE=1 hides the limit.
[[nodiscard]] bool nativeAvailable();

}  // namespace brisko::SystemLock
