#include <nlohmann/json.hpp>

#include "client/commands/command.h"
#include "client/setting_assignment.h"
#include "client/setting_keys.h"

namespace brisko::client {

ExitStatus runSet(const Context& context) {
  Json keys = Json::object();
  for (const std::string& word : context.invocation.words) {
    if (const std::string reason = takeAssignment(word, "set", keys); !reason.empty())
      return misuse(context, reason);
  }
  std::string sentence;
  for (const auto& [name, value] : keys.items())
    sentence += (sentence.empty() ? "" : ", ") + name + " is " + valueText(value);
  return changeAndReport(context, readState(context.volume), keys, sentence + ".");
}

}  // namespace brisko::client
