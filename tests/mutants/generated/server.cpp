// The daemon's tests with all generated mutants. As a plain test program it runs like any other. With
// BRISKO_MUTANT_SERVER, and a folder in BRISKO_MUTANT_SCRATCH, it reads a request from each line of its
// standard input, "MUTANT MILLISECONDS TEST", runs that test in a forked process (a start costs a millisecond
// instead of twenty) and answers with a line: the outcome, the milliseconds, and for mutant 0 the numbers of
// the mutants whose places were reached.

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <sstream>
#include <string>
#include <system_error>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include "mutants/generated/active_mutant.h"
#include "sim/process/scratch.h"

namespace {

using Clock = std::chrono::steady_clock;

// Where the tests create their temporary folders.
const char* gScratch = nullptr;

// A test may set other limits.
void limit(__rlimit_resource resource, rlim_t most) {
  const rlimit limits{most, RLIM_INFINITY};
  if (::setrlimit(resource, &limits) != 0) std::_Exit(71);
}

// A mutant may loop, and then fill the memory,
void limitResources() {
  limit(RLIMIT_AS, rlim_t{4} << 30U);
  limit(RLIMIT_CORE, 0);
}

// or the disk: no limit for a single file, because tests make files with vast holes.
bool fillsTheDisk(const char* scratch) {
  constexpr std::int64_t mostBlocks = 512 * 1024;  // of 512 bytes
  std::int64_t blocks = 0;
  // Not with a range of its entries: the test removes some meanwhile, and the loop's own increment would
  // throw.
  std::error_code ended;
  for (std::filesystem::recursive_directory_iterator entry(scratch, ended);
       !ended && entry != std::filesystem::recursive_directory_iterator(); entry.increment(ended)) {
    struct stat status {};
    if (::lstat(entry->path().c_str(), &status) == 0) blocks += status.st_blocks;
  }
  return blocks > mostBlocks;
}

[[noreturn]] void runTest(int mutant, const std::string& test) {
  ::setpgid(0, 0);
  const int nowhere = ::open("/dev/null", O_RDWR | O_CLOEXEC);
  for (int descriptor = 0; descriptor < 3; ++descriptor) ::dup2(nowhere, descriptor);
  ::close(nowhere);
  limitResources();
  // Programs that the test starts have the same mutant.
  ::unsetenv("BRISKO_MUTANT_SERVER");
  ::setenv("BRISKO_MUTANT", std::to_string(mutant).c_str(), 1);
  gBriskoMutant = mutant;
  brisko::sim::setScratchRoot(gScratch);
  testing::GTEST_FLAG(filter) = test;
  const int failed = RUN_ALL_TESTS();
  const bool ran = testing::UnitTest::GetInstance()->test_to_run_count() == 1;
  std::_Exit(failed != 0 || !ran ? 1 : 0);
}

// "passed", "failed" or "hung".
const char* outcomeOf(pid_t child, int milliseconds) {
  const int handle = static_cast<int>(::syscall(SYS_pidfd_open, child, 0));
  pollfd waiting{handle, POLLIN, 0};
  constexpr int step = 250;
  bool ended = false;
  for (int waited = 0; !ended && waited < milliseconds; waited += step) {
    ended = ::poll(&waiting, 1, std::min(step, milliseconds - waited)) == 1;
    if (!ended && fillsTheDisk(gScratch)) break;
  }
  ::close(handle);
  // Also ends what the test has left running.
  ::kill(-child, SIGKILL);
  if (!ended) ::kill(child, SIGKILL);
  int status = 0;
  ::waitpid(child, &status, 0);
  if (!ended) return "hung";
  return WIFEXITED(status) && WEXITSTATUS(status) == 0 ? "passed" : "failed";
}

void answer(int mutant, int milliseconds, const std::string& test) {
  std::memset(gBriskoReached, 0, briskoMutantLimit);
  const auto begun = Clock::now();
  const pid_t child = ::fork();
  if (child == 0) runTest(mutant, test);
  if (child > 0) ::setpgid(child, child);
  const char* outcome = child < 0 ? "failed to fork" : outcomeOf(child, milliseconds);
  std::cout << outcome << ' '
            << std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - begun).count();
  for (int number = 0; mutant == 0 && number < briskoMutantLimit; ++number) {
    if (gBriskoReached[number] != 0) std::cout << ' ' << number;
  }
  std::cout << std::endl;
}

int serve() {
  gScratch = std::getenv("BRISKO_MUTANT_SCRATCH");
  if (gScratch == nullptr) return 64;
  // What the initialisation of this process has already reached cannot be switched later.
  for (int number = 0; number < briskoMutantLimit; ++number) {
    if (gBriskoReached[number] != 0) std::cout << number << ' ';
  }
  std::cout << std::endl;
  for (std::string line; std::getline(std::cin, line);) {
    std::istringstream words(line);
    int mutant = 0;
    int milliseconds = 0;
    std::string test;
    if (!(words >> mutant >> milliseconds >> test)) return 64;
    answer(mutant, milliseconds, test);
  }
  return 0;
}

}  // namespace

int main(int count, char** arguments) {
  testing::InitGoogleTest(&count, arguments);
  return std::getenv("BRISKO_MUTANT_SERVER") != nullptr ? serve() : RUN_ALL_TESTS();
}
