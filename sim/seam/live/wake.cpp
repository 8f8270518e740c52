#include "sim/seam/live/wake.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <memory>
#include <string_view>

#include <dirent.h>
#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include "sim/machine/machine_store.h"
#include "sim/seam/live/folder_socket.h"

namespace brisko::virtual_mac {

namespace {

constexpr std::string_view namePrefix = "wake.";

int newSocket() { return ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0); }

int bindIn(int folder, const std::string& name) {
  const int socket = newSocket();
  if (socket < 0) return -1;
  // Remove a socket that an earlier process with the same id left behind.
  ::unlinkat(folder, name.c_str(), 0);
  const sockaddr_un address = socketAddressIn(folder, name);
  if (::bind(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0) return socket;
  ::close(socket);
  return -1;
}

void wakeOrRemove(int sender, int folder, const std::string& name) {
  const sockaddr_un address = socketAddressIn(folder, name);
  const ssize_t sent =
      ::sendto(sender, "", 1, 0, reinterpret_cast<const sockaddr*>(&address), sizeof address);
  if (sent < 0 && errno == ECONNREFUSED) ::unlinkat(folder, name.c_str(), 0);
}

}  // namespace

int openWakeSocket(const std::string& folder) {
  const int descriptor = ::open(folder.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
  if (descriptor < 0) return -1;
  const int socket = bindIn(descriptor, std::string(namePrefix) + std::to_string(::getpid()));
  ::close(descriptor);
  return socket;
}

void drainWakeSocket(int socket) {
  std::array<char, 16> datagram{};
  while (::recv(socket, datagram.data(), datagram.size(), 0) >= 0) continue;
}

void wakeHolders(const std::string& folder) {
  const std::unique_ptr<DIR, int (*)(DIR*)> entries(::opendir(folder.c_str()), ::closedir);
  if (entries == nullptr) return;
  const int sender = newSocket();
  if (sender < 0) return;
  while (const dirent* entry = ::readdir(entries.get())) {
    const std::string name = entry->d_name;
    if (name.compare(0, namePrefix.size(), namePrefix) == 0) {
      wakeOrRemove(sender, ::dirfd(entries.get()), name);
    }
  }
  ::close(sender);
}

}  // namespace brisko::virtual_mac
