#include <array>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <system_error>

#include "base/paths.h"
#include "client/commands/command.h"
#include "client/day_range.h"
#include "client/file_writing.h"
#include "client/history_report.h"
#include "client/system.h"
#include "report/history_files.h"
#include "report/history_page.h"

namespace brisko::client {
namespace {

// What is asked for, other than days; at most one of them.
constexpr std::array forms{"--html", "--svg", "--csv", "--open"};

// What is wrong with the combination of options; empty when nothing is.
std::string whyMisused(const Invocation& invocation) {
  std::string chosen;
  for (const char* form : forms) {
    if (!invocation.has(form)) continue;
    if (!chosen.empty()) return chosen + " and " + form + " exclude each other";
    chosen = form;
  }
  return chosen == "--csv" && invocation.has("--json") ? "--csv and --json exclude each other" : "";
}

ExitStatus refuse(const Context& context, ExitStatus status, const std::string& text) {
  context.output.complain(text);
  return status;
}

// The drawing is in the file `path`.
ExitStatus reportDrawing(const Context& context, const HistoryReport& report, const std::string& path) {
  if (context.json()) {
    Json object = historyObject(report);
    object["file"] = path;
    context.output.json(object);
  } else {
    context.output.remark(path + ": " + report.picture.title);
  }
  return ExitStatus::done;
}

ExitStatus draw(const Context& context, const HistoryReport& report, const std::string& path,
                const std::string& drawing) {
  std::string reason;
  if (!writeDrawing(path, drawing, lab::historyMark, reason))
    return refuse(context, ExitStatus::notDone, "\"" + path + "\" was not written: " + reason);
  return reportDrawing(context, report, path);
}

ExitStatus openInBrowser(const Context& context, const HistoryReport& report, const std::string& page) {
  std::string reason;
  const std::string path = writePrivateFile("history.html", page, reason);
  if (path.empty()) return refuse(context, ExitStatus::notDone, "the page was not written: " + reason);
  if (!openPage(path, reason))
    return refuse(context, ExitStatus::notDone,
                  "the page could not be opened: " + reason + "; it is " + path);
  return reportDrawing(context, report, path);
}

ExitStatus show(const Context& context, const HistoryReport& report, double now) {
  const Invocation& invocation = context.invocation;
  const lab::HistoryView view{.picture = report.picture, .summary = report.summary};
  if (const auto path = invocation.value("--html")) return draw(context, report, *path, historyPage(view));
  if (const auto path = invocation.value("--svg")) return draw(context, report, *path, historyPicture(view));
  if (invocation.has("--open")) return openInBrowser(context, report, historyPage(view));
  if (invocation.has("--csv")) {
    context.output.raw(csvText(report.picture.moments));
  } else if (context.json()) {
    context.output.json(historyObject(report));
  } else {
    context.output.line(terminalText(report, context.output.style(), now));
  }
  return ExitStatus::done;
}

}  // namespace

ExitStatus complainOfNoHistory(const Context& context, const State& state, const lab::HistoryReading& reading,
                               const std::error_code& error) {
  const bool isMissing = error == std::errc::no_such_file_or_directory;
  if (error && !isMissing) {
    return refuse(context, ExitStatus::notDone,
                  "the history cannot be shown: " + error.message() + " (" + historyDir + ")");
  }
  if (!reading.firstDay && !situationOf(state).installed)
    return refuse(context, ExitStatus::noDaemon, "there is no history, because the daemon is not installed");
  if (!state.settings.history) {
    return refuse(context, ExitStatus::notDone,
                  "there is no history of these days: it is switched off (brisko set history=on)");
  }
  if (!reading.firstDay)
    return refuse(context, ExitStatus::notDone,
                  "there is no history yet; the daemon has just begun to record it");
  const std::string first = lab::isoText(*reading.firstDay);
  const std::string last = lab::isoText(*reading.lastDay);
  return refuse(context, ExitStatus::notDone,
                "there is no history of these days, only " +
                    (first == last ? "of " + first : "from " + first + " to " + last));
}

ExitStatus runHistory(const Context& context) {
  if (const std::string error = whyMisused(context.invocation); !error.empty()) return misuse(context, error);
  const State state = readState(context.volume);
  const AskedDays asked = askedDays(context.invocation, lab::dateOf(state.now));
  if (!asked.range) return misuse(context, asked.error);
  std::error_code error;
  lab::HistoryReading reading =
      lab::readHistory(context.volume.at(historyDir), lab::beginOf(asked.range->first),
                       lab::beginOf(lab::dateAfter(asked.range->last, 1)), error);
  const lab::HistoryReading files{.firstDay = reading.firstDay, .lastDay = reading.lastDay};
  const auto report = historyReport(std::move(reading), state.now, state.settings.history);
  if (!report) return complainOfNoHistory(context, state, files, error);
  return show(context, *report, state.now);
}

}  // namespace brisko::client
