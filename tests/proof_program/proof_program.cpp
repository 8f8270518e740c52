#include "proof_program/proof_program.h"

#include <CLI/CLI.hpp>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <string>

namespace brisko::proof {
namespace {

constexpr int reached = 0;
constexpr int missed = 1;
constexpr int misused = 2;

}  // namespace

int runProof(const ProofProgram& program, int count, char** arguments,
             const std::function<void(CLI::App&)>& addOptions,
             const std::function<bool(const lab::Seeds&)>& prove) try {
  // Scenarios use UTC clock times, so the daemon's local days must be those of UTC on every computer.
  ::setenv("TZ", "UTC", 1);
  CLI::App app{program.description, program.name};
  std::string text;
  app.add_option("--seeds", text, "A..B, or one")->required();
  addOptions(app);
  try {
    app.parse(count, arguments);
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? reached : misused;
  }
  const auto seeds = lab::parseSeeds(text);
  if (seeds) return prove(*seeds) ? reached : missed;
  static_cast<void>(std::fprintf(stderr, "%s: \"%s\" is no range of seeds\n", program.name, text.c_str()));
  return misused;
} catch (const std::exception& error) {
  static_cast<void>(std::fprintf(stderr, "%s: %s\n", program.name, error.what()));
  return misused;
}

}  // namespace brisko::proof
