// sim/seam/call_watch.h
// Reports every call that the daemon makes through the seam or for a file, before the call is carried out,
// and can make it fail. Only a run that makes calls fail uses this. Each call is then reported once, in the
// order of the calls, on any thread.
#pragma once

#include <cstdint>
#include <functional>
#include <string_view>

#include "sim/machine/machine_store.h"

namespace brisko::virtual_mac {

struct WatchedCall {
  std::string_view name;          // "exchangeSmc write", "open"
  std::string_view subject = {};  // the key, the property, the path on this computer
  std::uint32_t key = 0;          // code of the controller's key, if the call is about one

  [[nodiscard]] bool isKeyWrite() const;
};
inline constexpr std::string_view smcReadName = "read of the key";
inline constexpr std::string_view smcInfoName = "size of the key";
inline constexpr std::string_view smcWriteName = "write of the key";

// From now on `before` is called for every call of this process, and returns whether the call fails. Its own
// calls are not reported.
void watchCalls(std::function<bool(const WatchedCall&)> before);
[[nodiscard]] bool callsAreWatched();

// Whether the call that is about to be made fails.
[[nodiscard]] bool callFails(const WatchedCall& call);

// The machine for a call; null without a machine, or if the call fails. A call of the seam treats both alike.
[[nodiscard]] inline MachineStore* machineFor(const WatchedCall& call) {
  return callFails(call) ? nullptr : attachedMachine();
}

// As long as one exists, this thread's calls are not the daemon's.
class UnwatchedCalls {
 public:
  UnwatchedCalls();
  ~UnwatchedCalls();
  UnwatchedCalls(const UnwatchedCalls&) = delete;
  UnwatchedCalls& operator=(const UnwatchedCalls&) = delete;
};

}  // namespace brisko::virtual_mac
