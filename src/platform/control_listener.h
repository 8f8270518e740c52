// platform/control_listener.h
// The service that the app talks to. The listener transports requests, replies and the requirement on
// clients; what a request does is decided elsewhere.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace brisko::platform {

// The reply to one request: whether it was done, and a text for the user when it was not. Called exactly
// once, from any thread.
using Reply = std::function<void(bool done, std::optional<std::string> error)>;

// The requests, delivered off the main thread.
struct ControlRequests {
  std::function<void(std::vector<std::uint8_t> settings, Reply reply)> applySettings;
  std::function<void(Reply reply)> purgeAllData;
  std::function<void(Reply reply)> releaseCharge;
  std::function<void(Reply reply)> restart;
};

// Offers the service `name` until the process ends. `requirement` is called for every new connection, off the
// main thread, possibly for several at once. Messages of a client whose signature does not meet it are
// dropped; none admits every client.
void listenForControl(const std::string& name, std::function<std::optional<std::string>()> requirement,
                      ControlRequests requests);

}  // namespace brisko::platform
