// tests/proof_program/proof_program.h
// What the programs that prove something over generated scenarios have in common: --seeds, the time zone, and
// the exit status. 0: every goal was reached, 1: one was missed, 2: the command line is invalid.
#pragma once

#include <functional>
#include <string>

#include "sim/generate/seeds.h"

namespace CLI {
class App;
}

namespace brisko::proof {

struct ProofProgram {
  const char* name;         // of the program
  const char* description;  // a sentence
};

// Parses the command line with the options that `addOptions` adds and with --seeds, and calls `prove`, which
// returns whether every goal was reached. Returns the exit status.
[[nodiscard]] int runProof(const ProofProgram& program, int count, char** arguments,
                           const std::function<void(CLI::App&)>& addOptions,
                           const std::function<bool(const lab::Seeds&)>& prove);

}  // namespace brisko::proof
