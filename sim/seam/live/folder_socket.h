// sim/seam/live/folder_socket.h
// Addresses of sockets in the folder of a machine.
#pragma once

#include <string>

#include <sys/un.h>

namespace brisko::virtual_mac {

// The address of the socket `name` in the folder behind the descriptor, valid while the descriptor is open. A
// socket's address holds only about a hundred bytes, but the path of a folder may be longer.
[[nodiscard]] sockaddr_un socketAddressIn(int folder, const std::string& name);

}  // namespace brisko::virtual_mac
