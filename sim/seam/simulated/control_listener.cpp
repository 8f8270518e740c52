#include "platform/control_listener.h"

#include <algorithm>
#include <fstream>
#include <iterator>
#include <string_view>
#include <utility>

#include "sim/machine/client_requirement.h"
#include "sim/machine/control_requests.h"
#include "sim/machine/machine_store.h"
#include "sim/seam/moment.h"

namespace brisko {

namespace {

using platform::Reply;
using virtual_mac::ClientRequest;
using virtual_mac::Journal;
using virtual_mac::Machine;
using virtual_mac::RequestKind;

// The service name that the app uses. A daemon that listens under another name is not found.
constexpr std::string_view askedFor = "com.brisko.daemon.xpc";

// Used until the process ends, so it is never destroyed.
struct Listener {
  std::string name;
  std::function<std::optional<std::string>()> requirement;
  platform::ControlRequests requests;
  std::uint64_t lastQueued = 0;  // number of the last request that became work
};
Listener& listener() {
  static Listener& kept = *new Listener;
  return kept;
}

std::vector<std::uint8_t> settingsOf(const ClientRequest& request) {
  const std::string_view text = virtual_mac::textOf(request.settings);
  if (!text.starts_with('@')) return {text.begin(), text.end()};
  const std::string& root = virtual_mac::attachedMachine()->volumeRoot();
  std::ifstream file(root + std::string(text.substr(1)), std::ios::binary);
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

Reply replyTo(std::uint64_t number) {
  return [number](bool done, const std::optional<std::string>& error) {
    virtual_mac::changeNow(*virtual_mac::attachedMachine(), [&](Machine& machine, Journal& journal) {
      virtual_mac::noteReply(machine, journal, number, done, error);
    });
  };
}

void deliver(const ClientRequest& request) {
  const platform::ControlRequests& requests = listener().requests;
  switch (request.kind) {
    case RequestKind::applySettings:
      return requests.applySettings(settingsOf(request), replyTo(request.number));
    case RequestKind::purgeAllData:
      return requests.purgeAllData(replyTo(request.number));
    case RequestKind::releaseCharge:
      return requests.releaseCharge(replyTo(request.number));
    case RequestKind::restart:
      return requests.restart(replyTo(request.number));
  }
}

std::optional<ClientRequest> waitingRequest(std::uint64_t number) {
  const auto view = virtual_mac::attachedMachine()->view();
  const ClientRequest* request = virtual_mac::findRequest(view.machine(), number);
  if (request == nullptr) return std::nullopt;
  return *request;
}

// Each request has a separate connection.
void take(std::uint64_t number) {
  const std::optional<ClientRequest> request = waitingRequest(number);
  if (!request) return;
  const std::optional<std::string> requirement = listener().requirement();
  const auto& signature = virtual_mac::knownClients()[request->client].signature;
  const bool admitted = !requirement || virtual_mac::meets(signature, *requirement);
  virtual_mac::changeNow(*virtual_mac::attachedMachine(), [=](Machine& machine, Journal& journal) {
    virtual_mac::noteTaken(machine, journal, number, admitted);
  });
  if (admitted) deliver(*request);
}

}  // namespace

namespace platform {

void listenForControl(const std::string& name, std::function<std::optional<std::string>()> requirement,
                      ControlRequests requests) {
  listener() = {name, std::move(requirement), std::move(requests)};
}

}  // namespace platform

namespace virtual_mac {

std::vector<std::function<void()>> arrivedRequests(const Machine& machine) {
  std::vector<std::function<void()>> work;
  if (listener().name != askedFor) return work;
  const std::uint64_t sent = machine.control.sent;
  // The record keeps only the latest requests; earlier ones are lost.
  const std::uint64_t forgotten = sent - std::min<std::uint64_t>(sent, requestPlaces);
  for (std::uint64_t number = std::max(listener().lastQueued, forgotten) + 1; number <= sent; ++number) {
    const ClientRequest* request = findRequest(machine, number);
    const bool waits = request != nullptr && request->stage == RequestStage::waiting;
    if (waits) work.emplace_back([number] { take(number); });
  }
  listener().lastQueued = sent;
  return work;
}

}  // namespace virtual_mac
}  // namespace brisko
