#include "tools/lab/fail_calls_command.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <memory>
#include <string>
#include <thread>

#include "sim/generate/failed_calls.h"
#include "tools/lab/campaign_commands.h"
#include "tools/lab/standard_streams.h"

namespace brisko::lab {
namespace {

struct FailCallsCommandLine {
  FailedCallsOptions options = {.jobs = std::max(1U, std::thread::hardware_concurrency())};
  double percent = 100;
  std::string only = {};
};

int failCalls(const FailCallsCommandLine& line) {
  FailedCallsOptions options = line.options;
  options.sample = line.percent / 100;
  if (!line.only.empty()) {
    options.only = parseCallChoice(line.only);
    if (!options.only) {
      static_cast<void>(std::fprintf(stderr,
                                     "brisko-lab: a call is its number and how it fails, like 123:once, "
                                     "123:from-then-on or 123:killed, not \"%s\"\n",
                                     line.only.c_str()));
      return usageError;
    }
  }
  return runFailedCalls(options, outputToStandardStreams());
}

}  // namespace

void addFailCallsCommand(CLI::App& program, std::function<int()>& chosen) {
  const auto line = std::make_shared<FailCallsCommandLine>();
  CLI::App* command = program.add_subcommand(
      "fail-calls",
      "run scenarios with one call of the daemon failing, or killing it there; status 1: an invariant was "
      "violated");
  command->add_option("--scenario,files", line->options.scenarios, "FILE.json …")->required();
  command->add_option("--sample", line->percent, "run this share of all runs, in percent; default: 100")
      ->check(CLI::Range(0.0001, 100.0));
  command->add_option("--jobs", line->options.jobs, "how many at a time; default: one per core")
      ->check(CLI::Range(1, 1000));
  command->add_option("--calls", line->options.calls,
                      "TEXT: only calls that contain it, such as \"write of the key\"");
  command->add_option("--only", line->only, "NUMBER:HOW: run the failure of this call alone");
  command->callback([line, &chosen] { chosen = [line] { return failCalls(*line); }; });
}

}  // namespace brisko::lab
