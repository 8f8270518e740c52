#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <memory>
#include <system_error>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include "core/entry.h"
#include "core/options.h"
#include "figures.h"
#include "platform/virtual/machine_store.h"
#include "platform/virtual/models.h"
#include "platform/virtual/simulated/driver.h"

namespace brisko::bench {
namespace {

using virtual_mac::MachineStore;

constexpr double day = 86'400;

double realNow() {
  timespec now{};
  static_cast<void>(::clock_gettime(CLOCK_MONOTONIC, &now));
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

// A machine in memory that stands at its limit, and its volume in a memory-backed folder.
class SteadyMachine {
 public:
  SteadyMachine() {
    std::string pattern = "/dev/shm/brisko-bench-XXXXXX";
    if (::mkdtemp(pattern.data()) == nullptr) std::abort();
    root_ = pattern;
    virtual_mac::MachineOptions options;
    options.percent = 80;
    store_ = MachineStore::inMemory(virtual_mac::makeMachine(virtual_mac::models().front(), options));
    store_->setVolumeRoot(root_);
    const std::filesystem::path config = root_ + std::string(defaultConfigPath);
    std::error_code ignored;
    std::filesystem::create_directories(config.parent_path(), ignored);
    std::ofstream(config) << "{\"enabled\":true,\"limit\":80,\"hysteresis\":5}";
    virtual_mac::attachMachine(store_.get());
  }
  ~SteadyMachine() {
    std::error_code ignored;
    std::filesystem::remove_all(root_, ignored);
  }
  SteadyMachine(const SteadyMachine&) = delete;
  SteadyMachine& operator=(const SteadyMachine&) = delete;

  double now() { return store_->look().machine().now; }

 private:
  std::string root_;
  std::unique_ptr<MachineStore> store_;
};

// What a life tells its parent at given days.
struct Milestone {
  double seconds = 0;  // real time since its start
  double residentKB = 0;
  double privateKB = 0;
};
struct Told {
  Milestone month;
  Milestone year;
};

Milestone milestone(double start) {
  const ProcessFigures figures = processFigures(::getpid());
  return {realNow() - start, figures.residentKB, figures.privateKB};
}

// Lives a year and tells how it was.
[[noreturn]] void live(SteadyMachine& machine, Told& told) {
  const int nowhere = ::open("/dev/null", O_WRONLY);
  ::dup2(nowhere, STDOUT_FILENO);
  // The first measurement brings code of its own into memory; what counts is what comes after it.
  static_cast<void>(processFigures(::getpid()));
  const double begin = machine.now();
  const double start = realNow();
  virtual_mac::setHorizon(begin + 30 * day, [&told, begin, start] {
    if (told.month.seconds == 0) {
      told.month = milestone(start);
      return begin + 365 * day;
    }
    told.year = milestone(start);
    ::_exit(0);
  });
  static_cast<void>(brisko::enter({"brisko-daemon"}));
  ::_exit(1);
}

}  // namespace

std::vector<Figure> virtualFigures() {
  void* shared = ::mmap(nullptr, sizeof(Told), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  if (shared == MAP_FAILED) return {};
  Told& told = *new (shared) Told;
  SteadyMachine machine;
  const pid_t child = ::fork();
  if (child == 0) live(machine, told);
  static_cast<void>(::waitpid(child, nullptr, 0));
  virtual_mac::attachMachine(nullptr);
  return {
      {"virtual time over real time, one year of one life", 365 * day / told.year.seconds, "x",
       Target::atLeast, 200'000},
      {"resident memory after a simulated month", told.month.residentKB, "KB"},
      {"resident memory after a simulated year", told.year.residentKB, "KB", Target::atMost,
       told.month.residentKB},
      {"private memory after a simulated month", told.month.privateKB, "KB"},
      {"private memory after a simulated year", told.year.privateKB, "KB", Target::atMost,
       told.month.privateKB},
  };
}

void attachSteadyMachine() {
  // For the rest of the process.
  static SteadyMachine machine;
}

}  // namespace brisko::bench
