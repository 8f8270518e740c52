#include "sim/seam/live/control_messages.h"

#include <algorithm>
#include <array>
#include <limits>
#include <nlohmann/json.hpp>

namespace brisko::virtual_mac {

namespace {

using Json = nlohmann::json;

// In the order of the enumeration.
constexpr std::array<std::string_view, 4> requestNames{"applySettings", "purgeAllData", "releaseCharge",
                                                       "restart"};

std::string lineOf(const Json& message) {
  return message.dump(-1, ' ', false, Json::error_handler_t::replace) + "\n";
}

// A message is an object; anything else has none of the expected members.
Json parseLine(std::string_view line) {
  Json message = Json::parse(line, nullptr, false);
  return message.is_object() ? message : Json::object();
}

// The member, if it exists and has that type.
template <class Member>
std::optional<Member> memberOf(const Json& message, const char* name, bool (Json::*isOfType)() const) {
  const auto found = message.find(name);
  if (found == message.end() || !((*found).*isOfType)()) return std::nullopt;
  return found->get<Member>();
}

std::optional<bool> booleanOf(const Json& message, const char* name) {
  return memberOf<bool>(message, name, &Json::is_boolean);
}

std::optional<std::string> textOf(const Json& message, const char* name) {
  return memberOf<std::string>(message, name, &Json::is_string);
}

std::optional<std::int64_t> integerOf(const Json& message, const char* name) {
  // An unsigned number too large for 64 signed bits would be converted to a different one.
  const auto large = memberOf<std::uint64_t>(message, name, &Json::is_number_unsigned);
  if (large && *large > static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max()))
    return std::nullopt;
  return memberOf<std::int64_t>(message, name, &Json::is_number_integer);
}

}  // namespace

std::string lineOf(const ClientSignature& client) {
  return lineOf(
      Json{{"apple", client.signedByApple}, {"identifier", client.identifier}, {"team", client.team}});
}

std::string lineOf(const ControlRequest& request) {
  Json message{{"id", request.id}, {"request", requestNames[static_cast<std::size_t>(request.kind)]}};
  if (request.kind == ControlRequestKind::applySettings) message["bytes"] = request.bytes;
  return lineOf(message);
}

std::string lineOf(const ControlReply& reply) {
  Json message{{"done", reply.done}, {"id", reply.id}};
  if (reply.error) message["error"] = *reply.error;
  return lineOf(message);
}

std::optional<ClientSignature> parseClient(std::string_view line) {
  const Json message = parseLine(line);
  const auto signedByApple = booleanOf(message, "apple");
  const auto team = textOf(message, "team");
  const auto identifier = textOf(message, "identifier");
  if (!signedByApple || !team || !identifier) return std::nullopt;
  return ClientSignature{*signedByApple, *team, *identifier};
}

std::optional<ControlRequest> parseRequest(std::string_view line) {
  const Json message = parseLine(line);
  const auto id = integerOf(message, "id");
  const auto name = textOf(message, "request");
  if (!id || !name) return std::nullopt;
  const auto known = std::find(requestNames.begin(), requestNames.end(), *name);
  if (known == requestNames.end()) return std::nullopt;
  ControlRequest request{static_cast<ControlRequestKind>(known - requestNames.begin()), *id, 0};
  if (request.kind != ControlRequestKind::applySettings) return request;
  const auto bytes = integerOf(message, "bytes");
  if (!bytes || *bytes < 0 || *bytes > static_cast<std::int64_t>(largestSettings)) return std::nullopt;
  request.bytes = static_cast<std::size_t>(*bytes);
  return request;
}

std::optional<ControlReply> parseReply(std::string_view line) {
  const Json message = parseLine(line);
  const auto id = integerOf(message, "id");
  const auto done = booleanOf(message, "done");
  if (!id || !done) return std::nullopt;
  return ControlReply{*id, *done, textOf(message, "error")};
}

}  // namespace brisko::virtual_mac
