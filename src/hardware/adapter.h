// hardware/adapter.h
#pragma once

namespace brisko {

// Whether an adapter is plugged in, cut or not: the controller's "AC-W" is 0xFF without one. If the key
// cannot be read, the last power reading decides. Reads the key again at every call.
[[nodiscard]] bool adapterPresent();

}  // namespace brisko
