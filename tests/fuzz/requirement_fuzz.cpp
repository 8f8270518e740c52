// A client is admitted by exactly the requirement that the daemon derives from an identifier and a team. The
// input's lines are the identifier, the team and the requirement.
#include "fuzz/bytes.h"
#include "fuzz/require.h"
#include "fuzz/target.h"
#include "sim/machine/client_requirement.h"

namespace brisko::requirement_fuzz {
namespace {

bool isPlain(std::string_view text) {
  return !text.empty() && text.find_first_of("\"\\") == std::string_view::npos;
}

std::string requirementOn(const virtual_mac::ClientSignature& client) {
  return "anchor apple generic and identifier \"" + client.identifier +
         "\" and certificate leaf[subject.OU] = \"" + client.team + "\"";
}

void tryClient(virtual_mac::ClientSignature client, std::string_view requirement) {
  const bool sayable = isPlain(client.identifier) && isPlain(client.team);
  require(meets(client, requirement) == (sayable && requirement == requirementOn(client)));
  require(meets(client, requirementOn(client)) == sayable);
  client.signedByApple = false;
  require(!meets(client, requirement) && !meets(client, requirementOn(client)));
}

void tryInput(std::string_view input) {
  Bytes bytes(input);
  const std::string identifier(bytes.upTo('\n'));
  const std::string team(bytes.upTo('\n'));
  tryClient({true, team, identifier}, bytes.rest());
}

const FuzzTarget target("requirement", tryInput);

}  // namespace
}  // namespace brisko::requirement_fuzz
