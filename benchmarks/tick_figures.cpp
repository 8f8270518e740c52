#include <cstdio>
#include <cstdlib>
#include <functional>
#include <variant>

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>

#include "baseline_io.h"
#include "figures.h"
#include "hardware/charge_gate.h"
#include "hardware/smc.h"
#include "policy/evaluation.h"

namespace brisko::bench {
namespace {

// Discards the daemon's log lines while `work` runs.
void quietly(const std::function<void()>& work) {
  std::fflush(stdout);
  const int kept = ::dup(STDOUT_FILENO);
  const int nowhere = ::open("/dev/null", O_WRONLY);
  ::dup2(nowhere, STDOUT_FILENO);
  work();
  ::dup2(kept, STDOUT_FILENO);
  ::close(kept);
  ::close(nowhere);
}

void takeGate() {
  if (SMCOpen(gConn) != platform::kernelSuccess) std::abort();
  gGate = std::get<ChargeGate>(ChargeGate::detect(false));
}

void tick(benchmark::State& state) {
  quietly(evaluate);
  for (auto _ : state) evaluate();
}

void baselineTick(benchmark::State& state) {
  for (auto _ : state) benchmark::DoNotOptimize(doBaselineIo());
}

}  // namespace

void registerTicks() {
  takeGate();
  benchmark::RegisterBenchmark("a tick in a steady hold", tick)->Unit(benchmark::kMicrosecond);
  benchmark::RegisterBenchmark("the baseline I/O of a tick", baselineTick)->Unit(benchmark::kMicrosecond);
}

}  // namespace brisko::bench
