// sim/machine/control_requests.h
// The requests of the control service that wait in the record of the machine. Only virtual time uses them:
// there a request can be planned like any other change. Live the clients are real processes.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "sim/machine/machine.h"

namespace brisko::virtual_mac {

// The request with this number (from 1); null when it was never sent or is too long ago.
[[nodiscard]] const ClientRequest* findRequest(const Machine& machine, std::uint64_t number);
[[nodiscard]] ClientRequest* findRequest(Machine& machine, std::uint64_t number);

// A client asks: `change` is of kind request or requestUnawaited. The oldest request makes room.
void sendRequest(Machine& machine, const Change& change);

// The daemon's requirement let the request's client in, or did not.
void noteTaken(Machine& machine, Journal& journal, std::uint64_t number, bool admitted);
// The daemon replied to the request.
void noteReply(Machine& machine, Journal& journal, std::uint64_t number, bool done,
               const std::optional<std::string>& error);

// Between the run loop and control_listener.cpp: the work of taking each request that waits and that this
// process has not been told of yet, in their order; none when it does not listen.
[[nodiscard]] std::vector<std::function<void()>> arrivedRequests(const Machine& machine);

}  // namespace brisko::virtual_mac
