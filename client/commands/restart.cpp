#include <nlohmann/json.hpp>

#include "client/commands/command.h"
#include "client/real_time.h"
#include "client/service.h"
#include "client/why.h"
#include "platform/host.h"

namespace brisko::client {
namespace {

// Through the service if it answers; otherwise the launch service ends the daemon, which needs root.
RestartResult ask(const Context& context) {
  if (requestRestart(answerSeconds).answer == ServiceAnswer::done) return {};
  if (platform::effectiveUserId() != 0)
    return {.status = ExitStatus::notAllowed,
            .text = "the daemon does not accept this from you; run: sudo " + context.commandLine};
  std::string reason;
  if (endDaemon(reason)) return {};
  return {.status = ExitStatus::noDaemon, .text = reason};
}

// Waits until a daemon that started later has written a status.
bool isBack(const Context& context, double startedBefore) {
  for (const double end = steadyNow() + context.waitSeconds; steadyNow() < end; pauseReally(0.05)) {
    const auto status = readStatus(context.volume);
    if (status && status->startedAt && *status->startedAt > startedBefore) return true;
  }
  return false;
}

}  // namespace

RestartResult restartDaemon(const Context& context) {
  const State state = readState(context.volume);
  const double startedBefore = state.status && state.status->startedAt ? *state.status->startedAt : 0;
  RestartResult restart = ask(context);
  if (restart.status != ExitStatus::done) return restart;
  restart.back = isBack(context, startedBefore);
  restart.text = restart.back ? "The daemon was restarted."
                              : "The daemon ends now; it is started again within some seconds.";
  return restart;
}

ExitStatus runRestart(const Context& context) {
  if (context.volume.isForeign()) return misuse(context, anotherVolumesDaemon);
  const RestartResult restart = restartDaemon(context);
  if (context.json()) {
    context.output.json({{"schema", "brisko.restart/1"},
                         {"running", restart.back},
                         {"status", static_cast<int>(restart.status)},
                         {"text", restart.text}});
  } else if (restart.status == ExitStatus::done) {
    context.output.remark(restart.text);
  } else {
    context.output.complain(restart.text);
  }
  return restart.status;
}

}  // namespace brisko::client
