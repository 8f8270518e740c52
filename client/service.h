// client/service.h
// The client side of the daemon's control service. Declarations only; mac/ implements them through XPC,
// linux/ through the socket of a virtual Mac. A client that the daemon does not accept gets no answer, so it
// cannot distinguish a daemon that refuses it from one that is not running.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace brisko::client {

enum class ServiceAnswer : std::uint8_t {
  done,
  refused,   // the daemon answered that it did not do it; `error` has its reason
  noAnswer,  // no daemon runs, it does not accept us, or it takes too long
};

struct ServiceReply {
  ServiceAnswer answer = ServiceAnswer::noAnswer;
  std::string error = {};
};

inline constexpr double answerSeconds = 5;  // of real time, that a daemon may take to answer

// Sends settings as the text of a JSON object with just the keys to change. Waits at most `seconds` of real
// time. When done, the daemon has written them to its file and has acted on them.
[[nodiscard]] ServiceReply applySettings(const std::string& json, double seconds);

// Asks the daemon to exit, so that the launch service starts it again.
[[nodiscard]] ServiceReply requestRestart(double seconds);

}  // namespace brisko::client
