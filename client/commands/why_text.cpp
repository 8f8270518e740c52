#include "client/commands/why_text.h"

#include <nlohmann/json.hpp>

namespace brisko::client {
namespace {

const char* nameOf(UntilKind kind) {
  switch (kind) {
    case UntilKind::percent:
      return "percent";
    case UntilKind::temperature:
      return "temperature";
    case UntilKind::time:
      return "time";
    case UntilKind::event:
      break;
  }
  return "event";
}

Json jsonOf(const Until& until) {
  Json object{{"kind", nameOf(until.kind)}};
  if (until.kind == UntilKind::event) {
    object["event"] = until.event;
  } else {
    object["value"] = until.value;
  }
  if (until.aboutMinutes) object["aboutMinutes"] = *until.aboutMinutes;
  return object;
}

}  // namespace

Json jsonOf(const Answer& answer) {
  return {{"code", codeOf(answer.reason)},
          {"text", answer.text},
          {"until", answer.until ? jsonOf(*answer.until) : Json()}};
}

ExitStatus statusFor(Reason reason) {
  return reason <= Reason::released ? ExitStatus::noDaemon : ExitStatus::done;
}

}  // namespace brisko::client
