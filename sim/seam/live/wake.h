// sim/seam/live/wake.h
// How tools wake the daemons that use a machine: each daemon binds a datagram socket "wake.<process id>" in
// the machine's folder, and a tool that changed the machine sends one datagram to each.
#pragma once

#include <string>

namespace brisko::virtual_mac {

// Binds this process's socket in `folder`. Returns -1 when that fails; changes are then noticed at the next
// event.
[[nodiscard]] int openWakeSocket(const std::string& folder);

// Discards all datagrams that have arrived.
void drainWakeSocket(int socket);

}  // namespace brisko::virtual_mac
