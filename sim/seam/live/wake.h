// sim/seam/live/wake.h
// How tools wake the daemons that hold a machine: each holder binds a datagram socket "wake.<process id>" in
// the machine's folder, and a tool that changed the machine sends one datagram to each.
#pragma once

#include <string>

namespace brisko::virtual_mac {

// Binds this process's socket in `folder`; -1 when it cannot be had: changes are then seen with the next
// event.
[[nodiscard]] int openWakeSocket(const std::string& folder);

// Takes all datagrams that have arrived.
void drainWakeSocket(int socket);

}  // namespace brisko::virtual_mac
