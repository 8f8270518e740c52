#include "client/service.h"

#include <cstdlib>

#include "tools/vmac/control_client.h"

namespace brisko::client {
namespace {

using virtual_mac::ControlRequestKind;

// Signed as packaging signs this program: by the app's team, with the identifier that the daemon demands.
const virtual_mac::ClientSignature& ownSignature() { return virtual_mac::knownClients().front().signature; }

ServiceReply ask(ControlRequestKind kind, const std::string& settings) {
  const char* folder = std::getenv("BRISKO_VIRTUAL_MAC");
  if (folder == nullptr || *folder == '\0') return {};
  const auto client = vmac::ControlClient::connect(folder, ownSignature());
  if (client == nullptr || !client->send(kind, settings)) return {};
  const auto reply = client->nextReply();
  if (!reply) return {};
  if (reply->done) return {.answer = ServiceAnswer::done};
  return {.answer = ServiceAnswer::refused, .error = reply->error.value_or("")};
}

}  // namespace

// The socket has a time limit of its own.
ServiceReply applySettings(const std::string& json, double /*seconds*/) {
  return ask(ControlRequestKind::applySettings, json);
}

ServiceReply requestRestart(double /*seconds*/) { return ask(ControlRequestKind::restart, ""); }

}  // namespace brisko::client
