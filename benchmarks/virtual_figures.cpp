#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <iterator>
#include <optional>
#include <random>
#include <string>
#include <system_error>
#include <vector>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include "base/options.h"
#include "daemon/entry.h"
#include "figures.h"
#include "sim/machine/models.h"
#include "sim/process/kept_files.h"
#include "sim/process/shared_memory.h"
#include "sim/process/simulation.h"
#include "sim/seam/simulated/driver.h"

namespace brisko::bench {
namespace {

constexpr double day = 86'400;
constexpr double decade = 3652;  // days

// A machine in memory that rests at its limit.
class SteadyMachine : public sim::Simulation {
 public:
  SteadyMachine()
      : Simulation({.machine = virtual_mac::makeMachine(virtual_mac::models().front(), {.percent = 80})}) {
    write(defaultConfigPath, R"({"enabled":true,"limit":80,"hysteresis":5})");
  }

  double now() { return machine().now; }
  // Called in the daemon's own process.
  void apply(const virtual_mac::Change& change) { virtual_mac::apply(store().update().machine(), change); }
  // The machine's own journal fills over time. Its pages are touched in advance, so that they do not count.
  void touchJournal() {
    const auto update = store().update();
    update.journal().entries.fill({});
  }
  // Wakes on the system's list with a date in the future.
  double futureWakes() {
    const std::vector<double> dates = pendingWakes();
    const double now = virtual_mac::wallClock(machine());
    return static_cast<double>(
        std::count_if(dates.begin(), dates.end(), [now](double date) { return date > now; }));
  }
};

// What a process reports to its parent on given days.
struct Milestone {
  double seconds = 0;     // real time since its start
  double cpuSeconds = 0;  // likewise; independent of other load
  double residentKB = 0;
  double privateKB = 0;
  double threads = 0;
  double descriptors = 0;
};
struct YearFigures {
  Milestone month;
  Milestone year;
  Milestone end;
  double nights = 0;
  double mostPendingWakes = 0;
};

double openDescriptors() {
  std::error_code ignored;
  const std::filesystem::directory_iterator all("/proc/self/fd", ignored);
  return static_cast<double>(std::distance(begin(all), end(all)));
}

// What is simulated.
struct YearPlan {
  bool nights = false;
  bool keepsFiles = true;  // as in every simulation; without it as the simulator did before
  double days = 365;
};

// Runs a year of one process and reports its figures.
class Year {
 public:
  Year(SteadyMachine& machine, YearFigures& yearFigures, const YearPlan& plan)
      : machine_(machine), yearFigures_(yearFigures), plan_(plan), begin_(machine.now()), start_(realNow()) {}

  // Called when the machine reaches a requested moment; returns the next one.
  double reached() {
    const double now = machine_.now();
    if (yearFigures_.month.seconds == 0 && now >= begin_ + 30 * day) yearFigures_.month = milestone();
    if (yearFigures_.year.seconds == 0 && now >= begin_ + 365 * day) yearFigures_.year = milestone();
    if (now >= begin_ + plan_.days * day) {
      yearFigures_.end = milestone();
      ::_exit(0);
    }
    if (plan_.nights) return nextOfTheNights(now);
    const double next = yearFigures_.month.seconds == 0  ? 30
                        : yearFigures_.year.seconds == 0 ? 365
                                                         : plan_.days;
    return begin_ + std::min(next, plan_.days) * day;
  }

 private:
  Milestone milestone() const {
    const ProcessFigures figures = processFigures(::getpid());
    return {realNow() - start_, figures.cpuSeconds - startCpuSeconds_,
            figures.residentKB, figures.privateKB,
            figures.threads,    openDescriptors()};
  }

  // Asleep at 22:00 with a varying charge, awake at 7:00; the machine's year begins at 8:00.
  double nextOfTheNights(double now) {
    constexpr double evening = 14 * 3600;
    constexpr double morning = 23 * 3600;
    constexpr double bedtime = 60;  // by then the Mac sleeps, and the sleep has been planned
    const double today = std::floor((now - begin_) / day) * day;
    const double hour = now - begin_ - today;
    if (hour < evening) return begin_ + today + evening;
    if (hour < evening + bedtime) {
      toBed();
      return begin_ + today + evening + bedtime;
    }
    if (hour < morning) {
      yearFigures_.mostPendingWakes = std::max(yearFigures_.mostPendingWakes, machine_.futureWakes());
      return begin_ + today + morning;
    }
    yearFigures_.mostPendingWakes = std::max(yearFigures_.mostPendingWakes, machine_.futureWakes());
    machine_.apply({.kind = virtual_mac::ChangeKind::openLid});
    return begin_ + today + day + evening;
  }

  void toBed() {
    const auto charge = std::uniform_int_distribution<int>(40, 95)(random_);
    machine_.apply({.kind = virtual_mac::ChangeKind::charge, .number = static_cast<double>(charge)});
    machine_.apply({.kind = virtual_mac::ChangeKind::closeLid});
    yearFigures_.nights += 1;
  }

  SteadyMachine& machine_;
  YearFigures& yearFigures_;
  YearPlan plan_;
  double begin_;
  double start_;
  double startCpuSeconds_ = processFigures(::getpid()).cpuSeconds;
  std::minstd_rand random_{20261121};
};

[[noreturn]] void simulate(SteadyMachine& machine, Year& year, bool keepsFiles) {
  const int nowhere = ::open("/dev/null", O_WRONLY);
  ::dup2(nowhere, STDOUT_FILENO);
  // The first measurement loads code of its own into memory; later ones count.
  static_cast<void>(processFigures(::getpid()));
  static_cast<void>(openDescriptors());
  machine.touchJournal();
  if (keepsFiles) keepFiles();
  virtual_mac::setHorizon(year.reached(), [&year] { return year.reached(); });
  static_cast<void>(brisko::enter({"brisko-daemon"}));
  ::_exit(1);
}

// The figures of a year in a process of its own; none when it did not finish.
std::optional<YearFigures> simulateYear(const YearPlan& plan) {
  void* shared =
      ::mmap(nullptr, sizeof(YearFigures), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  if (shared == MAP_FAILED) return std::nullopt;
  YearFigures& yearFigures = *new (shared) YearFigures;
  SteadyMachine machine;
  const pid_t child = ::fork();
  if (child == 0) {
    Year year(machine, yearFigures, plan);
    simulate(machine, year, plan.keepsFiles);
  }
  static_cast<void>(::waitpid(child, nullptr, 0));
  const YearFigures kept = yearFigures;
  ::munmap(shared, sizeof(YearFigures));
  if (kept.end.seconds == 0) return std::nullopt;
  return kept;
}

void addGrowth(std::vector<Figure>& figures, const std::string& what, double month, double year,
               const char* unit) {
  figures.push_back({what + " after a month", month, unit});
  figures.push_back({what + " after a year", year, unit, Target::atMost, month});
}

}  // namespace

std::vector<Figure> virtualFigures() {
  std::vector<Figure> figures;
  const auto steady = simulateYear({.days = decade});
  const auto plainMonth = simulateYear({.keepsFiles = false, .days = 30});
  const auto nights = simulateYear({.nights = true});
  if (!steady || !plainMonth || !nights) return figures;
  figures.push_back({yearFigure, steady->year.cpuSeconds, "s", Target::atMost, 48});
  figures.push_back({"a steady month, over one whose files are not kept",
                     steady->month.cpuSeconds / plainMonth->month.cpuSeconds, ""});
  figures.push_back({"virtual time over real time, a steady year", 365 * day / steady->year.seconds, "x",
                     Target::atLeast, 500'000});
  addGrowth(figures, "a steady process: resident memory", steady->month.residentKB, steady->year.residentKB,
            "KB");
  addGrowth(figures, "a steady process: private memory", steady->month.privateKB, steady->year.privateKB,
            "KB");
  figures.push_back({"a steady process: resident memory after ten years", steady->end.residentKB, "KB",
                     Target::atMost, steady->month.residentKB});
  figures.push_back({"a steady process: private memory after ten years", steady->end.privateKB, "KB",
                     Target::atMost, steady->month.privateKB});
  figures.push_back({"a year of nights: nights", nights->nights, "", Target::atLeast, 365});
  figures.push_back({"virtual time over real time", 365 * day / nights->year.seconds, "x"});
  figures.push_back({"pending wakes at any time", nights->mostPendingWakes, "", Target::atMost, 1});
  addGrowth(figures, "resident memory", nights->month.residentKB, nights->year.residentKB, "KB");
  addGrowth(figures, "private memory", nights->month.privateKB, nights->year.privateKB, "KB");
  addGrowth(figures, "threads", nights->month.threads, nights->year.threads, "");
  addGrowth(figures, "descriptors", nights->month.descriptors, nights->year.descriptors, "");
  return figures;
}

void keepFiles() {
  static const sim::SharedMemory<sim::KeptFiles> memory;
  sim::keepFilesIn(*memory);
  sim::resumeWithFiles(true);
}

void attachSteadyMachine() {
  // Kept until the process ends.
  static SteadyMachine machine;
}

}  // namespace brisko::bench
