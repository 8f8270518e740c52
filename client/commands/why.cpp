#include "client/why.h"

#include <nlohmann/json.hpp>

#include "client/commands/command.h"
#include "client/commands/why_text.h"

namespace brisko::client {

ExitStatus runWhy(const Context& context) {
  const Answer answer = why(situationOf(readState(context.volume)));
  if (context.json()) {
    Json object = jsonOf(answer);
    object["schema"] = "brisko.why/1";
    context.output.json(object);
  } else {
    context.output.line(wrapped(answer.text, context.output.style().width));
  }
  return statusFor(answer.reason);
}

}  // namespace brisko::client
