#include "sim/machine/control_requests.h"

#include <algorithm>

#include "sim/machine/client_requirement.h"
#include "sim/machine/journal.h"

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

void noteTaken(Machine& machine, Journal& journal, std::uint64_t number, bool admitted) {
  ClientRequest* request = findRequest(machine, number);
  if (request == nullptr) return;
  request->stage = admitted ? RequestStage::delivered : RequestStage::refused;
  if (admitted) newEntry(machine, journal, journalAsked).key = static_cast<std::uint32_t>(request->kind);
}

void noteReply(Machine& machine, Journal& journal, std::uint64_t number, bool done,
               const std::optional<std::string>& error) {
  ClientRequest* request = findRequest(machine, number);
  if (request == nullptr) return;
  JournalEntry& entry = newEntry(machine, journal, journalReplied);
  entry.key = static_cast<std::uint32_t>(request->kind);
  entry.size = 1;
  entry.bytes[0] = done ? 1 : 0;
  request->answers += 1;
  request->answeredAt = machine.now;
  if (!request->awaited) return;
  request->done = done;
  request->hasError = error.has_value();
  const std::string text = error.value_or("");
  request->error = {};
  std::copy_n(text.begin(), std::min(text.size(), request->error.size() - 1), request->error.begin());
}

}  // namespace brisko::virtual_mac
