// benchmarks/figures.h
// A figure with its target, and the measurements that produce figures.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace brisko::bench {

enum class Target { atMost, atLeast, none };

struct Figure {
  std::string name;
  double value = 0;
  std::string unit;
  Target kind = Target::none;
  double target = 0;
};

// Figures of the real daemon in a steady hold on a live machine. Empty when a program is missing or does not
// run.
[[nodiscard]] std::vector<Figure> liveFigures();

// The daemon in a steady hold beside upowerd, the floor program and the virtual Mac alone, for
// BRISKO_BENCH_SECONDS (300) in one run. Empty, with a sentence, where upowerd is not installed.
[[nodiscard]] std::vector<Figure> besideFigures();

// Figures of the client with a history of a year. Empty when it could not be drawn.
[[nodiscard]] std::vector<Figure> historyFigures();

// Real time of brisko what-if and brisko advise over a month.
[[nodiscard]] std::vector<Figure> whatIfFigures();

// Figures of whole processes in virtual time.
[[nodiscard]] std::vector<Figure> virtualFigures();
// The first of them: processor seconds for a year in a steady hold, independent of other load.
inline constexpr const char* yearFigure = "a steady year, the tick's files in memory";

// Where the seconds of such a year go: each part measured by itself on the steady machine of this process,
// with its gate in force, and the unexplained rest.
[[nodiscard]] std::vector<Figure> partsOfAYear(double wholeSeconds);

// Figures of the lab's campaign with all faults, on all processors. Empty if there is no such command.
[[nodiscard]] std::vector<Figure> campaignFigures();

// Makes a machine in a steady hold at its limit, with a configuration, below a memory-backed folder, and
// attaches it to the seam of this process.
void attachSteadyMachine();

// From now on the files of this process are kept in memory, as in every simulation.
void keepFiles();

// Registers the benchmarks of a single tick.
void registerTicks();

// Real time in seconds, from some moment on.
[[nodiscard]] double realNow();

// Of a process, from /proc; all 0 without such a process.
struct ProcessFigures {
  double threads = 0;
  double residentKB = 0;
  double privateKB = 0;
  double waits = 0;       // voluntary context switches so far
  double cpuSeconds = 0;  // so far
};
[[nodiscard]] ProcessFigures processFigures(long pid);

}  // namespace brisko::bench
