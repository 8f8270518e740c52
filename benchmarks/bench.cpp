// Prints what the daemon costs, each figure beside its target.

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <sstream>
#include <string_view>

#include <benchmark/benchmark.h>

#include "figures.h"

namespace brisko::bench {

double realNow() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

ProcessFigures processFigures(long pid) {
  ProcessFigures figures;
  const std::string folder = "/proc/" + std::to_string(pid);
  std::string line;
  for (std::ifstream status(folder + "/status"); std::getline(status, line);) {
    std::istringstream words(line);
    std::string name;
    double number = 0;
    if (!(words >> name >> number)) continue;
    if (name == "Threads:") figures.threads = number;
    if (name == "VmRSS:") figures.residentKB = number;
    if (name == "voluntary_ctxt_switches:") figures.waits = number;
  }
  for (std::ifstream maps(folder + "/smaps_rollup"); std::getline(maps, line);) {
    std::istringstream words(line);
    std::string name;
    double number = 0;
    if (words >> name >> number && name.starts_with("Private_")) figures.privateKB += number;
  }
  double nanoseconds = 0;
  std::ifstream(folder + "/schedstat") >> nanoseconds;
  figures.cpuSeconds = nanoseconds / 1e9;
  return figures;
}

namespace {

std::string rated(const Figure& figure) {
  if (figure.kind == Target::none) return "";
  const bool met =
      figure.kind == Target::atMost ? figure.value <= figure.target : figure.value >= figure.target;
  if (met) return "met";
  std::array<char, 64> text{};
  static_cast<void>(
      std::snprintf(text.data(), text.size(), "MISSED, %.2f of the target", figure.value / figure.target));
  return text.data();
}

std::string targetText(const Figure& figure) {
  if (figure.kind == Target::none) return "";
  std::array<char, 64> text{};
  static_cast<void>(std::snprintf(text.data(), text.size(), "%s %.10g",
                                  figure.kind == Target::atMost ? "<=" : ">=", figure.target));
  return text.data();
}

void print(const std::vector<Figure>& figures) {
  std::printf("%-58s %14s %-8s %-12s\n", "figure", "measured", "unit", "target");
  for (const Figure& figure : figures) {
    std::printf("%-58s %14.10g %-8s %-12s %s\n", figure.name.c_str(), figure.value, figure.unit.c_str(),
                targetText(figure).c_str(), rated(figure).c_str());
  }
}

// Inserted after the figure of the whole year.
void addPartsOfTheYear(std::vector<Figure>& figures) {
  const auto year = std::find_if(figures.begin(), figures.end(),
                                 [](const Figure& figure) { return figure.name == yearFigure; });
  if (year == figures.end()) return;
  const std::vector<Figure> parts = partsOfAYear(year->value);
  figures.insert(year + 1, parts.begin(), parts.end());
}

}  // namespace
}  // namespace brisko::bench

int main(int count, char** arguments) {
  using namespace brisko::bench;
  benchmark::Initialize(&count, arguments);
  if (count > 1 && std::string_view(arguments[1]) == "beside") {
    print(besideFigures());
    return 0;
  }
  // The live and virtual measurements come first: they fork, and this process is still small.
  std::vector<Figure> figures = liveFigures();
  if (figures.empty()) {
    std::fprintf(stderr, "brisko-bench: the live daemon could not be measured\n");
    return 1;
  }
  for (Figure& figure : besideFigures()) figures.push_back(std::move(figure));
  for (Figure& figure : historyFigures()) figures.push_back(std::move(figure));
  for (Figure& figure : whatIfFigures()) figures.push_back(std::move(figure));
  for (Figure& figure : virtualFigures()) figures.push_back(std::move(figure));
  for (Figure& figure : campaignFigures()) figures.push_back(std::move(figure));
  attachSteadyMachine();
  registerTicks();
  addPartsOfTheYear(figures);
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  std::printf("\n");
  print(figures);
  return 0;
}
