// sim/machine/client_requirement.h
// Who may talk to the control service. The system decides by the code signatures of the clients and the
// requirement that the daemon sets on them.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

namespace brisko::virtual_mac {

// The identity of a client of the control service, from its code signature.
struct ClientSignature {
  bool signedByApple = false;  // with a certificate issued by Apple
  std::string team = {};       // empty: none
  std::string identifier = {};
  bool operator==(const ClientSignature&) const = default;
};

// Whether the signature meets `requirement`, a text in exactly the one form that the daemon produces; any
// other text admits nobody.
[[nodiscard]] bool meets(const ClientSignature& signature, std::string_view requirement);

// The team that signs the app, and on a fresh machine the daemon.
inline constexpr std::string_view appTeam = "K7Q2XV94TB";

// A client as tests and tools name it.
struct KnownClient {
  std::string_view name;
  ClientSignature signature;
};

// "app", "wrong-team", "wrong-app" and "unsigned", in this order.
[[nodiscard]] std::span<const KnownClient> knownClients();
[[nodiscard]] const KnownClient* findClient(std::string_view name);  // null when there is none
// The client's index in that list; beyond the last when there is no such client.
[[nodiscard]] std::uint32_t clientNumber(std::string_view name);

}  // namespace brisko::virtual_mac
