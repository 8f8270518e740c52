#include "sim/seam/live/folder_socket.h"

#include <sys/socket.h>

namespace brisko::virtual_mac {

sockaddr_un socketAddressIn(int folder, const std::string& name) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  const std::string path = "/proc/self/fd/" + std::to_string(folder) + "/" + name;
  path.copy(address.sun_path, sizeof address.sun_path - 1);
  return address;
}

}  // namespace brisko::virtual_mac
