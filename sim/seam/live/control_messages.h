// sim/seam/live/control_messages.h
// The protocol between the control service of a live machine and its clients, over a stream socket in the
// machine's folder that has the service's name.
//
// A message is one line of JSON. First the client identifies itself, in place of the code signature that a
// kernel would verify. Then it sends requests, each with a number that it chooses, and reads the replies,
// which come in any order and contain that number:
//
//   {"apple":true,"identifier":"com.brisko.Brisko","team":"K7Q2XV94TB"}
//   {"id":1,"request":"applySettings","bytes":12}
// {"limit":70} the bytes unchanged, without a line feed
//   {"done":true,"id":1}
//   {"id":2,"request":"purgeAllData"}
//   {"done":false,"error":"…","id":2}
//
// A client that sends anything else, or exceeds the limits below, is disconnected.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "sim/machine/client_requirement.h"

namespace brisko::virtual_mac {

inline constexpr std::size_t longestControlLine = 4096;                // bytes, without the line feed
inline constexpr std::size_t largestSettings = std::size_t{1} << 22U;  // bytes

enum class ControlRequestKind : std::uint8_t { applySettings, purgeAllData, releaseCharge, restart };

struct ControlRequest {
  ControlRequestKind kind = ControlRequestKind::applySettings;
  std::int64_t id = 0;
  std::size_t bytes = 0;  // of the settings that follow; 0 for the other requests
};

struct ControlReply {
  std::int64_t id = 0;
  bool done = false;
  std::optional<std::string> error = std::nullopt;
};

// The messages as lines, with their line feeds. Bytes that are not valid UTF-8 are replaced.
[[nodiscard]] std::string lineOf(const ClientSignature& client);
[[nodiscard]] std::string lineOf(const ControlRequest& request);
[[nodiscard]] std::string lineOf(const ControlReply& reply);

// Parses a line without its line feed; none when it is not such a message or exceeds a limit.
[[nodiscard]] std::optional<ClientSignature> parseClient(std::string_view line);
[[nodiscard]] std::optional<ControlRequest> parseRequest(std::string_view line);
[[nodiscard]] std::optional<ControlReply> parseReply(std::string_view line);

}  // namespace brisko::virtual_mac
