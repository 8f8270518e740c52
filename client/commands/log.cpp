#include <cstdint>
#include <functional>
#include <nlohmann/json.hpp>
#include <string_view>

#include <sys/stat.h>

#include "client/commands/command.h"
#include "client/local_time.h"
#include "client/log_reader.h"
#include "client/real_time.h"
#include "client/setting_keys.h"
#include "platform/clock.h"

namespace brisko::client {
namespace {

// "90m", "2h" or "3d", in seconds; none when it is something else.
std::optional<double> spanIn(std::string_view text) {
  if (text.size() < 2) return std::nullopt;
  const char unit = text.back();
  const double seconds = unit == 'm' ? 60 : unit == 'h' ? 3600 : unit == 'd' ? 86'400 : 0;
  const auto count = parseInteger(text.substr(0, text.size() - 1));
  if (seconds == 0 || !count || *count < 1 || *count > 100'000) return std::nullopt;
  return static_cast<double>(*count) * seconds;
}

const char* nameOf(Severity severity) {
  switch (severity) {
    case Severity::warning:
      return "warning";
    case Severity::error:
      return "error";
    case Severity::info:
      break;
  }
  return "info";
}

Json objectOf(const LogLine& line, const std::optional<LogMatch>& match) {
  Json object{{"time", line.time}, {"text", line.message}};
  if (!match) return object;
  object["id"] = match->entry->id;
  object["severity"] = nameOf(match->entry->severity);
  object["english"] = englishText(*match, line.message);
  Json fields = Json::object();
  for (const auto& [name, value] : match->fields) fields[name] = value;
  object["fields"] = std::move(fields);
  return object;
}

// Prints lines one after the other, each in the chosen form.
class Printer {
 public:
  Printer(const Context& context, double since) : context_(context), since_(since) {}

  void take(std::string_view text) {
    const auto line = logLineIn(text);
    if (!line || line->time < since_) return;
    if (context_.invocation.has("--raw")) return context_.output.raw(std::string(text) + "\n");
    const auto match = findEntry(line->message);
    if (match && !context_.invocation.has("--all") && !filter_.shows(*match)) return;
    if (context_.json()) {
      lines_.push_back(objectOf(*line, match));
      return;
    }
    const std::string said = match ? englishText(*match, line->message) : line->message;
    const bool marked = context_.output.style().color && match && match->entry->severity != Severity::info;
    context_.output.line(stampText(line->time) + "  " + (marked ? highlighted(said) : said));
  }

  [[nodiscard]] const Json& lines() const { return lines_; }

 private:
  const Context& context_;
  double since_;
  SummaryFilter filter_;
  Json lines_ = Json::array();
};

void eachLine(std::string_view text, const std::function<void(std::string_view)>& take) {
  while (!text.empty()) {
    const std::size_t end = text.find('\n');
    if (end == std::string_view::npos) return;  // it is still being written
    take(text.substr(0, end));
    text.remove_prefix(end + 1);
  }
}

// Prints what is appended to the log. A file that was renamed at its largest size is followed by a new one.
void follow(const Context& context, Printer& printer, std::size_t read) {
  catchInterrupt();
  const std::string path = context.volume.at(logPath);
  struct stat known {};
  static_cast<void>(::stat(path.c_str(), &known));
  while (!wasInterrupted() && !context.output.isClosed()) {
    pauseReally(0.25);
    struct stat now {};
    if (::stat(path.c_str(), &now) != 0) continue;
    if (now.st_ino != known.st_ino) read = 0;
    known = now;
    if (static_cast<std::size_t>(now.st_size) <= read) continue;
    const std::string text = readFile(path).bytes;
    if (text.size() < read) continue;
    const std::size_t end = text.rfind('\n') + 1;
    if (end > read)
      eachLine(std::string_view(text).substr(read, end - read), [&](auto line) { printer.take(line); });
    read = std::max(read, end);
  }
}

}  // namespace

ExitStatus runLog(const Context& context) {
  const std::string span = context.invocation.value("--since").value_or("24h");
  const auto seconds = spanIn(span);
  if (!seconds) return misuse(context, "--since takes a time such as 90m, 2h or 3d, not \"" + span + "\"");
  if (context.json() && (context.invocation.has("--follow") || context.invocation.has("--raw")))
    return misuse(context, "--json cannot be combined with --follow or --raw");
  const FileText log = readFile(context.volume.at(logPath));
  if (log.problem != FileProblem::none) {
    context.output.complain("the daemon's log cannot be shown: " + clauseOf(log.problem) + " (" + logPath +
                            ")");
    return log.problem == FileProblem::missing ? ExitStatus::noDaemon : ExitStatus::notDone;
  }
  Printer printer(context, platform::wallNow() - *seconds);
  for (const std::string& text : {readFile(context.volume.at(previousLogPath)).bytes, log.bytes})
    eachLine(text, [&](std::string_view line) { printer.take(line); });
  if (context.json()) context.output.json({{"schema", "brisko.log/1"}, {"lines", printer.lines()}});
  if (context.invocation.has("--follow")) follow(context, printer, log.bytes.rfind('\n') + 1);
  return ExitStatus::done;
}

}  // namespace brisko::client
