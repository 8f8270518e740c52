// sim/machine/client_requirement.h
// Who may talk to the control service, as the system judges it: by the code signatures of its clients and the
// requirement that the daemon sets on them.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

namespace brisko::virtual_mac {

// Who a client of the control service is, as its code signature says.
struct ClientSignature {
  bool signedByApple = false;  // with a certificate that Apple gave out
  std::string team = {};       // empty: none
  std::string identifier = {};
  bool operator==(const ClientSignature&) const = default;
};

// Whether the signature meets `requirement`, a text of exactly the one form that the daemon produces; any
// other text lets nobody in.
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
// Its place among them; beyond the last when there is none.
[[nodiscard]] std::uint32_t clientNumber(std::string_view name);

}  // namespace brisko::virtual_mac
