// client/child_process.h
// Other programs, without a shell.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace brisko::client {

// Runs a program to its end, with what it prints discarded but for its errors. A name without a slash is
// searched in PATH. True when it ended with status 0; otherwise false and a reason, as a clause.
[[nodiscard]] bool runProgram(const std::vector<std::string>& words, std::string& reason);

// Runs a program to its end, with these bytes as its standard input, and otherwise with the streams of this
// one. Its exit status; none and a reason, as a clause, when it has none. SIGPIPE must be ignored.
[[nodiscard]] std::optional<int> runWithInput(const std::vector<std::string>& words, std::string_view input,
                                              std::string& reason);

struct TimedCommand {
  std::vector<std::string> words = {};  // the program's path first; none: nothing is run
  double seconds = 0;                   // real time after which it is killed
};

enum class CommandEnd : std::uint8_t {
  exited,     // whatever its status
  signalled,  // it was ended by a signal of somebody else
  notFound,
  timedOut,  // it was killed
  tooLong,   // it was killed, because it printed more than 64 MiB
  failed,    // it could not be started
};

struct CommandResult {
  CommandEnd end = CommandEnd::failed;
  int status = 0;           // exit status, of one that exited
  std::string output = {};  // standard output and standard error, in the order in which they were written
  [[nodiscard]] bool succeeded() const { return end == CommandEnd::exited && status == 0; }
};

// Runs all of them at the same time, without input, and returns their results in the same order. What a
// command has started is killed with it.
[[nodiscard]] std::vector<CommandResult> runTogether(const std::vector<TimedCommand>& commands);

// Why there is no result, as a clause; for one that ended by itself, that it failed.
[[nodiscard]] std::string clauseOf(CommandEnd end);

}  // namespace brisko::client
