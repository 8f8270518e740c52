// service/control_service.h
// What the app may request from the daemon: new settings, erasing all data, releasing the charge before the
// service is removed, and a restart. Requests arrive off the main thread and are carried out on it. Each is
// answered exactly once.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "platform/control_listener.h"

namespace brisko {

inline std::int64_t gReleaseToken = 0;  // of the latest release

// The requirement on a client's code signature, in the system's language for requirements: the app's name,
// and the team that signed this daemon. None when the daemon is unsigned: then there is nothing to compare
// with. From any thread.
[[nodiscard]] std::optional<std::string> clientCodeRequirement();

// The handler of each request. May be called on or off the main thread.
[[nodiscard]] platform::ControlRequests controlRequests();

// Listens for the app until the process ends.
void startXPCListener();

}  // namespace brisko
