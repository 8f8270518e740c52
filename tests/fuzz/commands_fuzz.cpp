// What commands of macOS print, in any bytes, as brisko and the lab read it.
#include <algorithm>
#include <cmath>
#include <string>

#include "client/doctor/command_text.h"
#include "client/launchd_text.h"
#include "fuzz/require.h"
#include "fuzz/target.h"
#include "sim/replay/reported_days.h"

namespace brisko::commands_fuzz {
namespace {

void tryProcesses(const std::string& text) {
  const auto processes = client::processesIn(text);
  require(client::daemonsIn(processes).size() <= processes.size());
  for (const std::string& name : client::otherProgramsIn(text, processes)) {
    require(std::any_of(processes.begin(), processes.end(),
                        [&name](const client::ProcessLine& process) { return process.path == name; }));
  }
}

void tryJob(const std::string& text) {
  const client::Job job = client::jobIn(text);
  require(job.installed || (!job.processId && job.arguments.empty()));
  if (job.processId) require(*job.processId > 0);
  if (const auto arguments = client::jobArgumentsInFile(text)) require(arguments->size() <= text.size());
}

void tryPowerLog(const std::string& text) {
  const auto events = lab::readPowerLog(text);
  require(events.size() <= static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n')) + 1);
  for (std::size_t index = 0; index < events.size(); ++index) {
    require(std::isfinite(events[index].time));
    require(index == 0 || events[index - 1].time <= events[index].time);
  }
}

void tryInput(std::string_view input) {
  const std::string text(input);
  static_cast<void>(client::isDisabledIn(text));
  static_cast<void>(client::backgroundAllowedIn(text));
  require(client::profilesIn(text) >= 0);
  tryProcesses(text);
  tryJob(text);
  tryPowerLog(text);
}

const FuzzTarget target("commands", tryInput);

}  // namespace
}  // namespace brisko::commands_fuzz
