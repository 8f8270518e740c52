#include <nlohmann/json.hpp>

#include "base/process_flags.h"
#include "client/commands/command.h"
#include "client/system.h"

namespace brisko::client {
namespace {

std::string signatureText(const std::optional<std::string>& team) {
  if (!team) return "";
  return team->empty() ? ", signed by nobody" : ", signed by team " + *team;
}

}  // namespace

ExitStatus runVersion(const Context& context) {
  const State state = readState(context.volume);
  const std::string running = state.status ? state.status->daemonVersion : "";
  const bool foreign = context.volume.isForeign() || !state.status;
  const auto team = foreign ? std::nullopt : teamThatSigned(state.status->daemonPath);
  if (context.json()) {
    context.output.json({{"schema", "brisko.version/1"},
                         {"brisko", daemonVersion},
                         {"daemon", running.empty() ? Json() : Json(running)},
                         {"team", team ? Json(*team) : Json()}});
    return ExitStatus::done;
  }
  context.output.line(std::string("brisko ") + daemonVersion);
  if (running.empty()) {
    context.output.line("brisko-daemon: unknown, it has written no status");
  } else {
    context.output.line("brisko-daemon " + running + signatureText(team));
  }
  if (!running.empty() && running != daemonVersion)
    context.output.complain(
        "the versions differ; install both from the same source, then run brisko restart");
  return ExitStatus::done;
}

}  // namespace brisko::client
