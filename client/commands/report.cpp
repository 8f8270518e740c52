#include <algorithm>
#include <nlohmann/json.hpp>
#include <string>

#include <sys/stat.h>

#include "base/utc_text.h"
#include "client/bug_report.h"
#include "client/commands/command.h"
#include "client/file_writing.h"
#include "client/report_gathering.h"

namespace brisko::client {
namespace {

// "brisko-report-2026-03-01-081530.tar"
std::string usualName(double now) {
  const UtcText text = utcText(now);
  std::string time = text.time;
  std::erase(time, ':');
  return "brisko-report-" + text.date + "-" + time + ".tar";
}

std::string cell(const std::string& text, std::size_t width, bool toTheRight) {
  const std::string blanks(width > text.size() ? width - text.size() : 0, ' ');
  return toTheRight ? blanks + text : text + blanks;
}

std::string row(const std::string& name, const std::string& bytes, const std::string& lines,
                const std::string& dropped) {
  return cell(name, 26, false) + cell(bytes, 9, true) + cell(lines, 8, true) + cell(dropped, 9, true);
}

void list(const Context& context, const Json& manifest) {
  context.output.line(row("file", "bytes", "lines", "dropped"));
  for (const Json& file : manifest.at("files")) {
    context.output.line(row(file.at("name").get<std::string>(), file.at("bytes").dump(),
                            file.at("lines").dump(), file.at("dropped").dump()));
  }
  for (const Json& file : manifest.at("leftOut"))
    context.output.line(cell(file.at("name").get<std::string>(), 26, false) + "  " +
                        file.at("why").get<std::string>());
}

void printObject(const Context& context, const Json& manifest, const std::string& path) {
  context.output.json(
      {{"schema", "brisko.report/1"}, {"file", path.empty() ? Json() : Json(path)}, {"manifest", manifest}});
}

ExitStatus refuse(const Context& context, const std::string& path, const std::string& reason) {
  context.output.complain("\"" + path + "\" was not written: " + reason);
  return ExitStatus::notDone;
}

}  // namespace

ExitStatus runReport(const Context& context) {
  const State state = readState(context.volume);
  const std::string path = context.invocation.value("--output").value_or(usualName(state.now));
  struct stat found {};
  if (::lstat(path.c_str(), &found) == 0)
    return refuse(context, path, "a file is there already; choose another name");
  const BugReport report = bugReport(gatherReport(state), reportFacts(state));
  if (report.archive.empty()) return refuse(context, path, "it would be larger than 64 MiB");
  if (!context.json()) list(context, report.manifest);
  if (context.json() && !context.invocation.has("--yes")) {
    printObject(context, report.manifest, "");
    return ExitStatus::done;
  }
  if (!isAgreed(context, "Write this to " + path + "? Nothing is sent.")) return ExitStatus::notDone;
  std::string reason;
  if (!writeNewFile(path, report.archive, reason)) return refuse(context, path, reason);
  if (context.json()) {
    printObject(context, report.manifest, path);
  } else {
    context.output.remark(path + " is written; nothing was sent. Look into it before you send it: tar -xf " +
                          path);
  }
  return ExitStatus::done;
}

}  // namespace brisko::client
