// client/commands/command.h
// The arguments of every command, and the commands themselves, with a source file for each.
#pragma once

#include <string>
#include <system_error>

#include "base/json_file.h"
#include "client/command_line.h"
#include "client/exit_status.h"
#include "client/file_reading.h"
#include "client/output.h"
#include "client/state_reader.h"
#include "report/history_files.h"

namespace brisko::client {

struct Context {
  const Invocation& invocation;
  const Output& output;
  Volume volume = {};
  std::string commandLine = {};  // as a person would type it again
  double waitSeconds = 3;
  [[nodiscard]] bool json() const { return invocation.has("--json"); }
};

// An error in what was typed: one line, and the status for it.
ExitStatus misuse(const Context& context, const std::string& text);

// Changes settings and reports it: `sentence` reports success.
ExitStatus changeAndReport(const Context& context, const State& state, const Json& keys,
                           const std::string& sentence);

// One line if the settings file is not usable.
void complainOfSettings(const Context& context, const State& state);

// Prints a setting, or several, for a command that was called without a value.
ExitStatus showSettings(const Context& context, const State& state, const std::string& text,
                        const Json& values);

// A setting that is on or off, and the command that shows and changes it.
struct Switch {
  const char* key;
  std::string (*sentence)(bool on);
  bool DaemonStatus::*supported;
  const char* unsupported;  // why it cannot be switched on
};
ExitStatus runSwitch(const Context& context, const Switch& setting);

// Ends the daemon, and waits until the one that is started instead reports.
struct RestartResult {
  ExitStatus status = ExitStatus::done;
  std::string text = {};
  bool back = false;  // it has reported
};
[[nodiscard]] RestartResult restartDaemon(const Context& context);
inline constexpr const char* anotherVolumesDaemon = "the daemon of another volume cannot be restarted";

// Asks on the terminal. True also with --yes; false, with an error, if there is no terminal.
[[nodiscard]] bool isAgreed(const Context& context, const std::string& question);

// Why there is nothing to show of the days: `reading` are those of the history's folder, and `error` is why
// it cannot be read.
ExitStatus complainOfNoHistory(const Context& context, const State& state, const lab::HistoryReading& reading,
                               const std::error_code& error);

ExitStatus runStatus(const Context& context);
ExitStatus runWhy(const Context& context);
ExitStatus runLimit(const Context& context);
ExitStatus runBand(const Context& context);
ExitStatus runOn(const Context& context);
ExitStatus runOff(const Context& context);
ExitStatus runFull(const Context& context);
ExitStatus runDischarge(const Context& context);
ExitStatus runHeat(const Context& context);
ExitStatus runLight(const Context& context);
ExitStatus runCalibrate(const Context& context);
ExitStatus runGet(const Context& context);
ExitStatus runSet(const Context& context);
ExitStatus runHistory(const Context& context);
ExitStatus runWhatIf(const Context& context);
ExitStatus runAdvise(const Context& context);
ExitStatus runLog(const Context& context);
ExitStatus runDoctor(const Context& context);
ExitStatus runReport(const Context& context);
ExitStatus runRestart(const Context& context);
ExitStatus runVersion(const Context& context);
ExitStatus runCompletions(const Context& context);
ExitStatus runHelp(const Context& context);

}  // namespace brisko::client
