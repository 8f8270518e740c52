// A line on the socket of the live control service is a valid message within its limits or none at all, and a
// message that is written again has the same content.
#include <nlohmann/json.hpp>

#include "fuzz/require.h"
#include "fuzz/target.h"
#include "sim/seam/live/control_messages.h"

namespace brisko::control_messages_fuzz {
namespace {

using namespace virtual_mac;

// The line without its line feed, which must be present and the only one.
std::string bare(std::string line) {
  require(!line.empty() && line.back() == '\n');
  line.pop_back();
  require(line.find('\n') == std::string::npos);
  return line;
}

// The number under `key`, as written in the line.
std::string numberIn(std::string_view line, const char* key) {
  return nlohmann::json::parse(line, nullptr, false).value(key, nlohmann::json()).dump();
}

void tryClient(std::string_view line) {
  const auto client = parseClient(line);
  if (client) require(parseClient(bare(lineOf(*client))) == client);
}

void tryRequest(std::string_view line) {
  const auto request = parseRequest(line);
  if (!request) return;
  require(request->bytes <= largestSettings);
  require(request->kind == ControlRequestKind::applySettings || request->bytes == 0);
  // The reply must contain the number that the client chose.
  require(numberIn(line, "id") == std::to_string(request->id));
  if (request->kind == ControlRequestKind::applySettings) {
    require(numberIn(line, "bytes") == std::to_string(request->bytes));
  }
  const auto again = parseRequest(bare(lineOf(*request)));
  require(again && again->kind == request->kind && again->id == request->id &&
          again->bytes == request->bytes);
}

void tryReply(std::string_view line) {
  const auto reply = parseReply(line);
  if (!reply) return;
  require(numberIn(line, "id") == std::to_string(reply->id));
  const auto again = parseReply(bare(lineOf(*reply)));
  require(again && again->id == reply->id && again->done == reply->done && again->error == reply->error);
}

void tryInput(std::string_view line) {
  if (line.size() > longestControlLine) return;  // its sender is disconnected before it is read
  tryClient(line);
  tryRequest(line);
  tryReply(line);
}

const FuzzTarget target("control_messages", tryInput);

}  // namespace
}  // namespace brisko::control_messages_fuzz
