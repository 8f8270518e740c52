#include <nlohmann/json.hpp>

#include "calibration/calibration_record.h"
#include "client/commands/command.h"
#include "client/local_time.h"
#include "client/why.h"

namespace brisko::client {
namespace {

bool calibrationRuns(const State& state) {
  return state.status && state.status->calibration.phase != CalPhase::idle;
}

std::string capacityText(const std::optional<std::int64_t>& before,
                         const std::optional<std::int64_t>& after) {
  const auto text = [](const std::optional<std::int64_t>& value) {
    return value ? std::to_string(*value) : "?";
  };
  return text(before) + " mAh before, " + text(after) + " mAh after";
}

std::string runLine(const CalRun& run, double now) {
  std::string line = timeText(run.at, now) + "  " + capacityText(run.beforeRaw, run.afterRaw);
  if (run.design) line += ", " + std::to_string(*run.design) + " mAh when new";
  if (run.cyclesAfter) line += ", " + std::to_string(*run.cyclesAfter) + " cycles";
  return line;
}

Json objectOf(const State& state) {
  Json object{{"schema", "brisko.calibration/1"}, {"phase", "idle"}, {"runs", Json::array()}};
  if (!state.status) return object;
  const CalibrationStatus& calibration = state.status->calibration;
  object["phase"] = phaseName(calibration.phase);
  for (const CalRun& run : calibration.runs) object["runs"].push_back(dict(run));
  if (calibration.lastFailure) object["lastFailure"] = dict(*calibration.lastFailure);
  if (calibration.phase != CalPhase::idle) {
    object["startedAt"] = calibration.startedAt;
    object["phaseSince"] = calibration.phaseSince;
  }
  return object;
}

std::string statusText(const State& state) {
  const CalibrationStatus& calibration = state.status->calibration;
  if (calibration.phase != CalPhase::idle) {
    return why(situationOf(state)).text + " It runs since " + timeText(calibration.startedAt, state.now) +
           ".";
  }
  if (calibration.lastFailure) {
    return "No calibration runs. The last one was stopped in its phase \"" +
           std::string(phaseName(calibration.lastFailure->phase)) + "\": it took more than three days.";
  }
  return "No calibration runs.";
}

ExitStatus showStatus(const Context& context, const State& state, bool onlyRuns) {
  if (!state.status) {
    context.output.complain("the daemon has written no status; brisko why may explain that");
    return ExitStatus::noDaemon;
  }
  if (context.json()) {
    context.output.json(objectOf(state));
    return ExitStatus::done;
  }
  if (!onlyRuns) {
    context.output.line(wrapped(statusText(state), context.output.style().width));
    return ExitStatus::done;
  }
  for (const CalRun& run : state.status->calibration.runs) context.output.line(runLine(run, state.now));
  if (state.status->calibration.runs.empty()) context.output.line("No calibration has finished yet.");
  return ExitStatus::done;
}

ExitStatus start(const Context& context, const State& state) {
  if (calibrationRuns(state)) {
    context.output.complain("a calibration runs already; brisko calibrate status shows it");
    return ExitStatus::notDone;
  }
  if (state.status && state.status->chargeMode == "none") {
    context.output.complain("this version of macOS lets the daemon only observe, so it cannot calibrate");
    return ExitStatus::notDone;
  }
  const std::string question = "A calibration charges to full, discharges to " +
                               std::to_string(state.settings.calDrain) +
                               " %, and charges again. It takes about a day on the adapter. Start it?";
  if (!isAgreed(context, question)) return ExitStatus::notDone;
  return changeAndReport(context, state, {{"calibrate", true}},
                         "The calibration has started. It takes about a day; keep the Mac plugged in.");
}

ExitStatus stop(const Context& context, const State& state) {
  if (!calibrationRuns(state) && !state.settings.calibrate) {
    context.output.remark("No calibration runs.");
    return ExitStatus::done;
  }
  return changeAndReport(context, state, {{"calibrate", false}},
                         "The calibration is stopped; the limit is in force.");
}

}  // namespace

ExitStatus runCalibrate(const Context& context) {
  const auto& words = context.invocation.words;
  const std::string action = words.empty() ? "status" : words.front();
  const State state = readState(context.volume);
  if (action == "start") return start(context, state);
  if (action == "stop") return stop(context, state);
  if (action == "status") return showStatus(context, state, false);
  if (action == "runs") return showStatus(context, state, true);
  return misuse(context, "calibrate takes start, stop, status or runs, not \"" + action + "\"");
}

}  // namespace brisko::client
