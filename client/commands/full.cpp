#include <nlohmann/json.hpp>

#include "base/options.h"
#include "client/commands/command.h"
#include "client/setting_keys.h"
#include "client/why.h"

namespace brisko::client {
namespace {

// "4h" or "4"; none when it is not a whole number of hours within the range.
std::optional<std::int64_t> hoursIn(std::string text) {
  if (text.ends_with('h')) text.pop_back();
  const auto value = settingValue(*findSetting("topUpHours"), text);
  if (!value || *value < 1) return std::nullopt;
  return value->get<std::int64_t>();
}

// Why a full charge would be dropped at once, or have no effect; empty when it is possible.
std::string whyImpossible(const State& state) {
  if (!state.status) return "";
  const DaemonStatus& status = *state.status;
  if (status.chargeMode == "none")
    return "this version of macOS lets the daemon only observe; nothing limits the charge";
  if (status.calibration.phase != CalPhase::idle)
    return "a calibration runs, and charges to full itself; brisko calibrate stop ends it";
  if (!status.plugged)
    return "the Mac is not plugged in, so the daemon would drop it at once; plug it in first";
  if (status.chargeMode == "macOS" && !status.enabled)
    return "limiting is off, so a full charge has no effect; brisko on switches limiting on";
  return "";
}

}  // namespace

ExitStatus runFull(const Context& context) {
  const auto duration = context.invocation.value("--for");
  const bool stop = context.invocation.has("--stop");
  if (stop && duration) return misuse(context, "--stop and --for exclude each other");
  const std::int64_t hours = duration ? hoursIn(*duration).value_or(0) : 0;  // 0: without an end
  if (duration && hours == 0) {
    return misuse(context, "--for takes whole hours from 1 to 168, not \"" + *duration +
                               "\"; for example: brisko full --for 4h");
  }
  const State state = readState(context.volume);
  if (stop) {
    return changeAndReport(context, state, {{"topUp", false}},
                           "The limit of " + std::to_string(state.settings.limit) + " % is in force again.");
  }
  if (const std::string reason = whyImpossible(state); !reason.empty()) {
    context.output.complain(reason);
    return ExitStatus::notDone;
  }
  const std::string end = hours != 0 ? " or after " + std::to_string(hours) + " h" : "";
  return changeAndReport(context, state, {{"topUp", true}, {"topUpHours", hours}},
                         "Charging to full once. The limit returns when you unplug" + end + ".");
}

}  // namespace brisko::client
