// Linked into every program of the preset "conditions". A process writes its profile at its end, and here
// also if that end is _exit, _Exit, abort or a kill -9 by our own code: the linker redirects these calls to
// this file. The profiles of all processes of a program are merged, under a lock, into a few files.

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

extern "C" {
// Defined here, so that the library of clang takes no steps of its own.
extern int __llvm_profile_runtime;
int __llvm_profile_runtime = 0;
void __llvm_profile_set_filename(const char* name);
int __llvm_profile_write_file();

[[noreturn]] void __real__exit(int status);
[[noreturn]] void __real__Exit(int status);
[[noreturn]] void __real_abort();
int __real_kill(pid_t process, int signal);
int __real_raise(int signal);
[[noreturn]] void __wrap__exit(int status);
[[noreturn]] void __wrap__Exit(int status);
[[noreturn]] void __wrap_abort();
int __wrap_kill(pid_t process, int signal);
int __wrap_raise(int signal);
}

namespace testing {
// The current test, in programs that contain GoogleTest.
[[gnu::weak]] extern std::string FLAGS_gtest_filter;
}  // namespace testing

namespace {

constexpr const char* profiles = BRISKO_PROFILES;
constexpr int pollMicroseconds = 200;
constexpr int mostPolls = 25'000;

// Asks a process that is about to be killed for its profile.
int lastWish() { return SIGRTMAX - 1; }

void writeProfile() {
  // Tests limit the size of a file as a full disk would.
  rlimit limit{};
  if (::getrlimit(RLIMIT_FSIZE, &limit) == 0) {
    limit.rlim_cur = limit.rlim_max;
    static_cast<void>(::setrlimit(RLIMIT_FSIZE, &limit));
  }
  // A process that gave up root cannot write to a file that root created.
  std::array<char, 512> name{};
  std::snprintf(name.data(), name.size(), "%s/%u-%%4m.profraw", profiles, ::geteuid());
  __llvm_profile_set_filename(name.data());
  static_cast<void>(__llvm_profile_write_file());
}

void writeAndBeKilled(int) {
  writeProfile();
  __real_kill(::getpid(), SIGKILL);
}

[[gnu::constructor]] void prepare() {
  struct sigaction action {};
  action.sa_handler = writeAndBeKilled;
  sigfillset(&action.sa_mask);
  ::sigaction(lastWish(), &action, nullptr);
  std::atexit(writeProfile);
}

bool catchesLastWish(pid_t process) {
  std::ifstream status("/proc/" + std::to_string(process) + "/status");
  for (std::string line; std::getline(status, line);) {
    if (!line.starts_with("SigCgt:")) continue;
    return (std::stoull(line.substr(7), nullptr, 16) >> (lastWish() - 1) & 1U) != 0;
  }
  return false;
}

bool hasEnded(pid_t process) {
  siginfo_t ended{};
  if (::waitid(P_PID, static_cast<id_t>(process), &ended, WEXITED | WNOWAIT | WNOHANG) == 0) {
    return ended.si_pid == process;
  }
  return __real_kill(process, 0) != 0;
}

// Whether the process has written its profile and ended.
bool endsByItself(pid_t process) {
  if (__real_kill(process, lastWish()) != 0) return true;
  for (int poll = 0; poll < mostPolls; ++poll) {
    if (hasEnded(process)) return true;
    ::usleep(pollMicroseconds);
  }
  return false;
}

// A line for a test whose process was killed without its profile.
void noteLoss() {
  std::string name = program_invocation_short_name;
  if (&testing::FLAGS_gtest_filter != nullptr) {
    name += " " + testing::FLAGS_gtest_filter;
  } else {
    std::ifstream arguments("/proc/self/cmdline");
    std::string argument;
    while (std::getline(arguments, argument, '\0')) name += " " + argument;
  }
  std::ofstream(std::string(profiles) + "/left_out.txt", std::ios::app) << name + "\n";
}

}  // namespace

void __wrap__exit(int status) {
  writeProfile();
  __real__exit(status);
}

void __wrap__Exit(int status) {
  writeProfile();
  __real__Exit(status);
}

void __wrap_abort() {
  writeProfile();
  __real_abort();
}

int __wrap_kill(pid_t process, int signal) {
  if (signal != SIGKILL) return __real_kill(process, signal);
  if (process == ::getpid()) {
    writeProfile();
  } else if (process < 0) {
    noteLoss();  // a whole group
  } else if (catchesLastWish(process)) {
    if (endsByItself(process)) return 0;
    noteLoss();
  }
  return __real_kill(process, signal);
}

int __wrap_raise(int signal) {
  if (signal == SIGKILL) writeProfile();
  return __real_raise(signal);
}
