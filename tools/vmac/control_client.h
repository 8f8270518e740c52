// tools/vmac/control_client.h
// A client of a live machine's control service, in the role of the app.
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
  // Connects to the service of the machine in `folder` without sending anything. Null when no service runs
  // there.
  [[nodiscard]] static std::unique_ptr<ControlClient> connect(const std::string& folder);
  // The same, and identifies the client.
  [[nodiscard]] static std::unique_ptr<ControlClient> connect(const std::string& folder,
                                                              const virtual_mac::ClientSignature& client);
  // Takes ownership of a connected socket.
  explicit ControlClient(int socket) : socket_(socket) {}
  ~ControlClient();
  ControlClient(const ControlClient&) = delete;
  ControlClient& operator=(const ControlClient&) = delete;

  // Sends a request, numbered from 1 in the order sent. False when the service has disconnected. The service
  // stops reading from a client that sends hundreds of requests without reading the replies.
  [[nodiscard]] bool send(virtual_mac::ControlRequestKind kind, std::string_view settings = {});
  // Sends raw bytes.
  [[nodiscard]] bool say(std::string_view bytes);
  // Closes the sending side; replies can still be read.
  void closeWriting();

  // The next reply. None when the service has disconnected, or sends nothing for `timeoutSeconds`.
  [[nodiscard]] std::optional<virtual_mac::ControlReply> nextReply();
  static constexpr int timeoutSeconds = 10;

 private:
  int socket_;
  std::int64_t sent_ = 0;
  std::string received_;  // and not processed yet
};

}  // namespace brisko::vmac
