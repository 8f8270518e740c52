// hardware/adapter.h
#pragma once

namespace brisko {

// Whether an adapter is plugged in, cut or not: the controller's "AC-W" is 0xFF without one. When it cannot
// be read, what the last power reading said stands in. Read afresh at every call.
[[nodiscard]] bool adapterPresent();

}  // namespace brisko
