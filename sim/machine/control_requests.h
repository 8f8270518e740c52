// sim/machine/control_requests.h
// The requests to the control service that wait in the machine's record. They are used in virtual time only,
// where a request can be planned like any other change. Live, the clients are real processes.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "sim/machine/machine.h"

namespace brisko::virtual_mac {

// The request with this number (from 1); null when it was never sent or was overwritten since.
[[nodiscard]] const ClientRequest* findRequest(const Machine& machine, std::uint64_t number);
[[nodiscard]] ClientRequest* findRequest(Machine& machine, std::uint64_t number);

// A client sends a request: `change` is of kind request or requestUnawaited. The new request overwrites the
// oldest.
void sendRequest(Machine& machine, const Change& change);

// The daemon's requirement admitted the request's client or rejected it.
void noteTaken(Machine& machine, Journal& journal, std::uint64_t number, bool admitted);
// The daemon replied to the request.
void noteReply(Machine& machine, Journal& journal, std::uint64_t number, bool done,
               const std::optional<std::string>& error);

// For the run loop and control_listener.cpp: the work items that take the waiting requests which this process
// has not been told of yet, in order; none when it does not listen.
[[nodiscard]] std::vector<std::function<void()>> arrivedRequests(const Machine& machine);

}  // namespace brisko::virtual_mac
