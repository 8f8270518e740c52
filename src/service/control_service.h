// service/control_service.h
// What the app may ask of the daemon: new settings, that all data be erased, that the charge be released
// before the service is removed, and a restart. Requests come in off the main thread; what they do happens on
// it. Each is answered exactly once.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "platform/control_listener.h"

namespace brisko {

inline std::int64_t gReleaseToken = 0;  // of the latest release

// What the code signature of a client has to say, in the system's language for requirements: the app's name,
// and the team that signed this daemon. None when nobody signed it: then there is nothing to compare with.
// From any thread.
[[nodiscard]] std::optional<std::string> clientCodeRequirement();

// What is done for each request. To be called off the main thread or on it.
[[nodiscard]] platform::ControlRequests controlRequests();

// Listens for the app for the life of the process.
void startXPCListener();

}  // namespace brisko
