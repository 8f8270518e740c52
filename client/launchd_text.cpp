#include "client/launchd_text.h"

#include <sstream>
#include <string_view>

#include "base/options.h"

namespace brisko::client {
namespace {

std::string_view trimmed(std::string_view line) {
  const std::size_t begin = line.find_first_not_of(" \t");
  if (begin == std::string_view::npos) return {};
  return line.substr(begin, line.find_last_not_of(" \t\r") + 1 - begin);
}

// The value in a line such as "pid = 312".
std::string_view valueOf(std::string_view line, std::string_view name) {
  if (!line.starts_with(name)) return {};
  line.remove_prefix(name.size());
  return line.starts_with(" = ") ? line.substr(3) : std::string_view{};
}

}  // namespace

Job jobIn(const std::string& report) {
  Job job;
  std::istringstream lines(report);
  bool inArguments = false;
  for (std::string line; std::getline(lines, line);) {
    const std::string_view text = trimmed(line);
    if (text.empty()) continue;
    job.installed = true;
    if (inArguments && text == "}") {
      inArguments = false;
    } else if (inArguments) {
      job.arguments.emplace_back(text);
    } else if (text == "arguments = {") {
      inArguments = true;
    } else if (const auto process = parseInteger(valueOf(text, "pid")); process && *process > 0) {
      job.processId = process;
    } else if (const std::string_view code = valueOf(text, "last exit code"); !code.empty()) {
      // "0", "78: EX_CONFIG" or "(never exited)".
      job.lastExitCode = parseInteger(code.substr(0, code.find(':')));
    } else if (const std::string_view signal = valueOf(text, "last terminating signal"); !signal.empty()) {
      job.lastSignal = signal;
    }
  }
  return job;
}

}  // namespace brisko::client
