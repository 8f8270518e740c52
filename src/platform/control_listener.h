// platform/control_listener.h
// The service that the app talks to. The listener carries requests, replies and the requirement on clients;
// what a request does is decided elsewhere.
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

// Listens on the service `name` for the life of the process. `requirement` is asked for every new connection,
// off the main thread, maybe for several at once: messages of a client whose signature does not meet it are
// dropped; none lets every client in.
void listenForControl(const std::string& name, std::function<std::optional<std::string>()> requirement,
                      ControlRequests requests);

}  // namespace brisko::platform
