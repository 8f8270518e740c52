#include "tools/vmac/control_client.h"

#include <array>
#include <cerrno>

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include "sim/seam/live/folder_socket.h"

namespace brisko::vmac {
namespace {

using virtual_mac::ControlReply;
using virtual_mac::ControlRequest;
using virtual_mac::ControlRequestKind;

const std::string serviceName = "com.brisko.daemon.xpc";

int connectIn(const std::string& path) {
  const int folder = ::open(path.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
  if (folder < 0) return -1;
  const int socket = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const timeval patience{ControlClient::timeoutSeconds, 0};
  static_cast<void>(::setsockopt(socket, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience));
  static_cast<void>(::setsockopt(socket, SOL_SOCKET, SO_SNDTIMEO, &patience, sizeof patience));
  const sockaddr_un address = virtual_mac::socketAddressIn(folder, serviceName);
  const bool connected =
      socket >= 0 && ::connect(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
  ::close(folder);
  if (connected) return socket;
  if (socket >= 0) ::close(socket);
  return -1;
}

}  // namespace

std::unique_ptr<ControlClient> ControlClient::connect(const std::string& folder) {
  const int socket = connectIn(folder);
  return socket < 0 ? nullptr : std::make_unique<ControlClient>(socket);
}

std::unique_ptr<ControlClient> ControlClient::connect(const std::string& folder,
                                                      const virtual_mac::ClientSignature& client) {
  const int socket = connectIn(folder);
  if (socket < 0) return nullptr;
  auto connection = std::make_unique<ControlClient>(socket);
  // If the service disconnects at once, the first request fails.
  static_cast<void>(connection->say(virtual_mac::lineOf(client)));
  return connection;
}

ControlClient::~ControlClient() { ::close(socket_); }

bool ControlClient::send(ControlRequestKind kind, std::string_view settings) {
  std::string message = virtual_mac::lineOf(ControlRequest{kind, ++sent_, settings.size()});
  return say(message.append(settings));
}

bool ControlClient::say(std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t count = ::send(socket_, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return false;
    bytes.remove_prefix(static_cast<std::size_t>(count));
  }
  return true;
}

void ControlClient::closeWriting() { static_cast<void>(::shutdown(socket_, SHUT_WR)); }

std::optional<ControlReply> ControlClient::nextReply() {
  std::size_t length = 0;
  while ((length = received_.find('\n')) == std::string::npos) {
    std::array<char, 4096> bytes;
    const ssize_t count = ::recv(socket_, bytes.data(), bytes.size(), 0);
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) return std::nullopt;
    received_.append(bytes.data(), static_cast<std::size_t>(count));
  }
  auto reply = virtual_mac::parseReply(std::string_view(received_).substr(0, length));
  received_.erase(0, length + 1);
  return reply;
}

}  // namespace brisko::vmac
