#include "platform/virtual/control_requests.h"

#include "platform/virtual/client_requirement.h"

namespace brisko::virtual_mac {

const ClientRequest* findRequest(const Machine& machine, std::uint64_t number) {
  const ClientRequest& request = machine.control.requests[number % requestPlaces];
  return number != 0 && request.number == number ? &request : nullptr;
}

ClientRequest* findRequest(Machine& machine, std::uint64_t number) {
  ClientRequest& request = machine.control.requests[number % requestPlaces];
  return number != 0 && request.number == number ? &request : nullptr;
}

void sendRequest(Machine& machine, const Change& change) {
  constexpr auto lastKind = static_cast<double>(RequestKind::restart);
  const bool known = change.number >= 0 && change.number <= lastKind && change.status < knownClients().size();
  if (!known || !machine.system.poweredOn) return;
  const std::uint64_t number = ++machine.control.sent;
  ClientRequest& request = machine.control.requests[number % requestPlaces];
  request = {};
  request.number = number;
  request.stage = RequestStage::waiting;
  request.kind = static_cast<RequestKind>(static_cast<std::uint8_t>(change.number));
  request.client = change.status;
  request.settings = change.text;
  request.awaited = change.kind == ChangeKind::request;
  request.sentAt = machine.now;
  request.answeredAt = -1;
}

}  // namespace brisko::virtual_mac
