// client/program_output.h
// What another program prints, within a time limit.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace brisko::client {

enum class ProgramEnd : std::uint8_t {
  itself,     // whatever its exit status
  notThere,   // it could not be started
  outOfTime,  // it was killed
  tooLong,    // it was killed, because it printed more than 64 MiB
};

struct ProgramOutput {
  std::string text = {};  // standard output and standard error, in the order in which they were written
  ProgramEnd end = ProgramEnd::itself;
};

// Runs the program at the path in `words` without a shell and without input, for at most `seconds` of real
// time. What it has started is killed with it.
[[nodiscard]] ProgramOutput outputOf(const std::vector<std::string>& words, double seconds);

}  // namespace brisko::client
