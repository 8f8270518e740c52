#include <nlohmann/json.hpp>

#include "client/commands/command.h"
#include "client/real_time.h"
#include "client/service.h"
#include "client/why.h"
#include "platform/host.h"

namespace brisko::client {
namespace {

struct Restart {
  ExitStatus status = ExitStatus::done;
  std::string text = {};
};

// Through the service if it answers; otherwise the launch service ends the daemon, which needs root.
Restart ask(const Context& context) {
  if (requestRestart(answerSeconds).answer == ServiceAnswer::done) return {};
  if (platform::effectiveUserId() != 0)
    return {ExitStatus::notAllowed, "the daemon did not take it from you; run: sudo " + context.commandLine};
  std::string reason;
  if (endDaemon(reason)) return {};
  return {ExitStatus::noDaemon, reason};
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

ExitStatus runRestart(const Context& context) {
  if (context.volume.isForeign()) return misuse(context, "the daemon of another volume cannot be restarted");
  const State state = readState(context.volume);
  const double startedBefore = state.status && state.status->startedAt ? *state.status->startedAt : 0;
  Restart restart = ask(context);
  const bool back = restart.status == ExitStatus::done && isBack(context, startedBefore);
  if (restart.status == ExitStatus::done)
    restart.text =
        back ? "The daemon was restarted." : "The daemon ends now; it is started again within some seconds.";
  if (context.json()) {
    context.output.json({{"schema", "brisko.restart/1"},
                         {"running", back},
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
