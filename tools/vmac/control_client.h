// tools/vmac/control_client.h
// The app's end of the control service of a live machine.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "sim/machine/client_requirement.h"
#include "sim/seam/live/control_messages.h"

namespace brisko::vmac {

class ControlClient {
 public:
  // Connects to the service of the machine in `folder`, without a word. Null when nobody serves there.
  [[nodiscard]] static std::unique_ptr<ControlClient> connect(const std::string& folder);
  // The same, and says who it is.
  [[nodiscard]] static std::unique_ptr<ControlClient> connect(const std::string& folder,
                                                              const virtual_mac::ClientSignature& client);
  // Takes over a connected socket.
  explicit ControlClient(int socket) : socket_(socket) {}
  ~ControlClient();
  ControlClient(const ControlClient&) = delete;
  ControlClient& operator=(const ControlClient&) = delete;

  // Sends a request, numbered from 1 in the order sent. False when the service has hung up. Who sends
  // hundreds without reading the replies is not read from any more.
  [[nodiscard]] bool send(virtual_mac::ControlRequestKind kind, std::string_view settings = {});
  // Sends bytes as they are.
  [[nodiscard]] bool say(std::string_view bytes);
  // Has nothing more to say, and continues listening.
  void closeWriting();

  // The next reply to come. None when the service has hung up, or says nothing for `timeoutSeconds`.
  [[nodiscard]] std::optional<virtual_mac::ControlReply> nextReply();
  static constexpr int timeoutSeconds = 10;

 private:
  int socket_;
  std::int64_t sent_ = 0;
  std::string received_;  // and not taken yet
};

}  // namespace brisko::vmac
