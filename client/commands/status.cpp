#include <nlohmann/json.hpp>
#include <string_view>
#include <vector>

#include "client/commands/command.h"
#include "client/commands/why_text.h"
#include "client/local_time.h"
#include "client/real_time.h"
#include "client/why.h"
#include "policy/charge_bounds.h"

namespace brisko::client {
namespace {

const char* stateWord(const DaemonStatus& status) {
  switch (status.state) {
    case ChargeState::hold:
      return "held";
    case ChargeState::discharge:
      return "discharging";
    case ChargeState::allow:
      break;
  }
  return status.plugged ? "charging allowed" : "on the battery";
}

std::string supplyText(const State& state) {
  if (!state.status->plugged) return "on the battery";
  if (!state.system.adapterWatts) return "on the adapter";
  return "on the adapter (" + std::to_string(static_cast<std::int64_t>(*state.system.adapterWatts)) + " W)";
}

// Only the summary in the log contains the colour.
std::string lightText(const State& state) {
  if (!state.status->ledSupported) return "Light none";
  if (!state.settings.led) return "Light off";
  const std::size_t at = state.lastSummary.rfind("LED=");
  if (at == std::string::npos) return "Light on";
  const std::string name = state.lastSummary.substr(at + 4);
  if (name == "system") return "Light left to macOS";
  return "Light " + (name == "blink" ? std::string("blinking") : name);
}

std::string verifiedText(const DaemonStatus& status) {
  if (!status.gateVerified) return "not verified yet";
  return *status.gateVerified ? "verified" : "not obeyed";
}

std::string bandText(const Situation& situation) {
  if (situation.band.upper >= 100) return "up to 100 %";
  return std::to_string(situation.band.lower) + "–" + percentText(situation.band.upper);
}

std::string fullOnceText(const State& state) {
  if (!state.status->topUp) return "no";
  if (state.settings.topUpHours < 1 || state.topUpSince <= 0) return "yes";
  const double end = state.topUpSince + static_cast<double>(state.settings.topUpHours) * 3600;
  return "until " + timeText(end, state.now);
}

std::string daemonText(const State& state) {
  const DaemonStatus& status = *state.status;
  std::string text = status.daemonVersion.empty() ? "unknown version" : status.daemonVersion;
  if (!status.chargeMode.empty() && status.chargeMode != "none") text += ", through " + status.chargeMode;
  if (status.startedAt && *status.startedAt <= state.now)
    text += ", up " + durationText(state.now - *status.startedAt);
  if (status.ts > state.now + 5) return text + ", status from " + timeText(status.ts, state.now);
  return text + ", status " + durationText(state.now - status.ts) + " old";
}

std::string withCommas(const std::vector<std::string>& texts) {
  std::string all;
  for (const std::string& text : texts) all += (all.empty() ? "" : ", ") + text;
  return all;
}

// A line of the table: a label, a value, and a note at the right.
struct Row {
  const char* label;
  std::string text;
  std::string right = {};
};

std::vector<Row> rowsOf(const State& state, const Situation& situation) {
  const DaemonStatus& status = *state.status;
  const std::string since =
      state.history.stateSince ? "since " + timeText(*state.history.stateSince, state.now) : "";
  const std::string heat =
      state.settings.thermal
          ? "Heat pause at " + degreesText(static_cast<double>(state.settings.thermalLimit))
          : "Heat pause off";
  std::string state_ = stateWord(status);
  if (status.hot) state_ += ", paused for heat";
  std::vector<Row> rows{
      {"Charge", percentText(status.pct) + "  " + supplyText(state),
       status.temperature ? degreesText(*status.temperature) : ""},
      {"State", state_, since},
      {"Band", bandText(situation),
       status.enabled ? "limit " + percentText(status.upper) + ", " + verifiedText(status)
                      : "limiting is off"},
      {"Full once", fullOnceText(state) + "      Discharge " + (state.settings.discharge ? "on" : "off") +
                        "     " + heat + "     " + lightText(state)},
      {"Daemon", daemonText(state)},
  };
  if (!status.guards.empty()) {
    rows.insert(rows.end() - 1, {"Guards", withCommas(status.guards),
                                 status.nextWake && *status.nextWake > state.now
                                     ? "wakes at " + timeText(*status.nextWake, state.now)
                                     : ""});
  }
  if (status.calibration.phase != CalPhase::idle) {
    rows.insert(rows.end() - 1, {"Calibration", std::string(phaseName(status.calibration.phase)),
                                 "since " + timeText(status.calibration.phaseSince, state.now)});
  }
  return rows;
}

constexpr std::size_t labelWidth = 12;
constexpr std::size_t rightColumn = 51;

std::string tableText(const std::vector<Row>& rows, std::size_t width) {
  std::string text;
  for (const Row& row : rows) {
    std::string line =
        row.label + std::string(labelWidth - std::string_view(row.label).size(), ' ') + row.text;
    const bool fits = rightColumn + columnsOf(row.right) <= width && columnsOf(line) < rightColumn;
    if (!row.right.empty()) {
      line += fits ? std::string(rightColumn - columnsOf(line), ' ') + row.right : ", " + row.right;
    }
    text += wrapped(line, width, labelWidth) + "\n";
  }
  return text;
}

std::string fullText(const State& state, const Answer& answer, const OutputStyle& style) {
  std::string text;
  if (state.status) text = tableText(rowsOf(state, situationOf(state)), style.width);
  std::string reason = wrapped(answer.text, style.width);
  if (style.color) reason = highlighted(reason);
  return text + reason;
}

// For a prompt: as short as possible.
std::string shortText(const State& state, const Answer& answer) {
  if (!state.status || statusFor(answer.reason) != ExitStatus::done) return codeOf(answer.reason);
  const DaemonStatus& status = *state.status;
  std::string text = std::to_string(status.pct) + "% ";
  if (!status.enabled) return text + "off";
  if (status.topUp) return text + "to 100%";
  if (status.hot) return text + "hot";
  return text + stateWord(status) + " " + std::to_string(status.upper) + "%";
}

Json objectOf(const State& state, const Answer& answer) {
  const Situation situation = situationOf(state);
  const bool fresh = freshnessOf(situation) == Freshness::fresh;
  Json object{{"schema", "brisko.status/1"},
              {"band", {{"lower", situation.band.lower}, {"upper", situation.band.upper}}},
              {"settings", configObject(state.settings)},
              {"status", state.statusObject ? *state.statusObject : Json()},
              {"stale", !fresh},
              {"why", jsonOf(answer)}};
  if (!state.status) return object;
  const DaemonStatus& status = *state.status;
  object["battery"] = {{"percent", status.pct}, {"plugged", status.plugged}};
  if (status.temperature) object["battery"]["celsius"] = *status.temperature;
  if (state.system.adapterWatts) object["battery"]["adapterWatts"] = *state.system.adapterWatts;
  object["daemon"] = {
      {"version", status.daemonVersion}, {"mode", status.chargeMode}, {"statusAge", state.now - status.ts}};
  if (state.history.stateSince) object["stateSince"] = *state.history.stateSince;
  return object;
}

// A line for a status that exists but cannot be used.
void complainOfFiles(const Context& context, const State& state) {
  if (state.statusProblem != FileProblem::none && state.statusProblem != FileProblem::missing) {
    context.output.complain("the daemon's status is not usable; restart the daemon (brisko restart)");
  }
  complainOfSettings(context, state);
}

ExitStatus showOnce(const Context& context) {
  const State state = readState(context.volume);
  const Answer answer = why(situationOf(state));
  complainOfFiles(context, state);
  if (context.json()) {
    context.output.json(objectOf(state, answer));
  } else if (context.invocation.has("--line")) {
    context.output.line(shortText(state, answer));
  } else {
    context.output.line(fullText(state, answer, context.output.style()));
  }
  return statusFor(answer.reason);
}

}  // namespace

ExitStatus runStatus(const Context& context) {
  if (!context.invocation.has("--watch")) return showOnce(context);
  constexpr double refreshSeconds = 2;
  catchInterrupt();
  ExitStatus status = ExitStatus::done;
  while (!wasInterrupted() && !context.output.isClosed()) {
    if (context.output.style().color) context.output.clearTerminal();
    status = showOnce(context);
    if (context.output.isClosed()) break;
    pauseReally(refreshSeconds);
  }
  return status;
}

}  // namespace brisko::client
