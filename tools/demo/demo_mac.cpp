#include "tools/demo/demo_mac.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <system_error>

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include "sim/process/launch_service.h"

namespace brisko::demo {
namespace {

using virtual_mac::Machine;

double realNow() {
  timespec now{};
  static_cast<void>(::clock_gettime(CLOCK_MONOTONIC, &now));
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

// Runs a program, discarding its standard output when `quiet`. Returns its process id, 0 when it could not be
// started.
pid_t start(std::vector<std::string> words, bool quiet) {
  std::vector<char*> arguments;
  for (std::string& word : words) arguments.push_back(word.data());
  arguments.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  ::posix_spawn_file_actions_init(&actions);
  if (quiet) ::posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
  pid_t child = 0;
  const int failure = ::posix_spawn(&child, arguments[0], &actions, nullptr, arguments.data(), environ);
  ::posix_spawn_file_actions_destroy(&actions);
  return failure == 0 ? child : 0;
}

// Waits for a child to end. Returns its exit status, -1 when it was killed.
int statusOf(pid_t child) {
  int status = 0;
  while (::waitpid(child, &status, 0) < 0 && errno == EINTR) {
  }
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

std::string makeFolder() {
  const char* base = std::getenv("TMPDIR");
  std::string pattern = std::string(base != nullptr && *base != '\0' ? base : "/tmp") + "/brisko-demo-XXXXXX";
  return ::mkdtemp(pattern.data()) != nullptr ? pattern : std::string();
}

}  // namespace

DemoMac::DemoMac() : folder_(makeFolder()) {}

DemoMac::~DemoMac() {
  view_.reset();
  if (boot_ != 0) static_cast<void>(shutDown());
  store_.reset();
  std::error_code ignored;
  if (!folder_.empty()) std::filesystem::remove_all(folder_, ignored);
}

bool DemoMac::vmac(std::vector<std::string> words) {
  std::string shown = "$ brisko-vmac " + words.front() + " MAC";
  for (std::size_t index = 1; index < words.size(); ++index) shown += " " + words[index];
  say(shown);
  words.insert(words.begin() + 1, folder_);
  words.insert(words.begin(), vmac::siblingProgram("brisko-vmac"));
  const pid_t child = start(words, false);
  return child != 0 && statusOf(child) == 0;
}

bool DemoMac::make(std::vector<std::string> options) {
  options.insert(options.begin(), "new");
  if (folder_.empty() || !vmac(std::move(options))) return false;
  std::string reason;
  store_ = virtual_mac::MachineStore::open(folder_, reason);
  if (!store_) return false;
  view_ = std::make_unique<vmac::LiveView>(*store_, stdout);
  // For brisko, which is told in no other way.
  return ::setenv("BRISKO_VIRTUAL_MAC", folder_.c_str(), 1) == 0;
}

bool DemoMac::boot() {
  say("$ brisko-vmac boot MAC &");
  boot_ = start({vmac::siblingProgram("brisko-vmac"), "boot", folder_}, true);
  return boot_ != 0;
}

bool DemoMac::shutDown() {
  const bool asked = vmac({"shutdown"});
  const int status = statusOf(boot_);
  boot_ = 0;
  return asked && status == 0;
}

bool DemoMac::brisko(std::vector<std::string> words) {
  std::string shown = "$ brisko";
  for (const std::string& word : words) shown += " " + word;
  say(shown);
  words.insert(words.begin(), vmac::siblingProgram("brisko"));
  const pid_t child = start(words, false);
  return child != 0 && statusOf(child) == 0;
}

void DemoMac::title(const std::string& text) {
  lines_.clear();
  say("\n── " + text);
}

void DemoMac::say(const std::string& text) {
  if (view_) {
    view_->say(text);
  } else {
    std::puts(text.c_str());
  }
}

void DemoMac::refresh() {
  for (std::string& line : view_->refresh()) lines_.push_back(std::move(line));
}

Machine DemoMac::machine() { return store_->view().machine(); }

bool DemoMac::missing(const std::string& what) {
  say("✗ not seen: " + what);
  return false;
}

bool DemoMac::await(const std::string& what, double seconds, const Condition& seen) {
  const double end = realNow() + seconds;
  const timespec tenth{0, 100'000'000};
  while (true) {
    refresh();
    if (seen(machine())) return true;
    if (realNow() >= end) return missing(what);
    static_cast<void>(::nanosleep(&tenth, nullptr));
  }
}

bool DemoMac::observe(const std::string& what, double seconds, const Condition& stays) {
  const double end = realNow() + seconds;
  const timespec tenth{0, 100'000'000};
  while (realNow() < end) {
    refresh();
    if (!stays(machine())) return missing(what);
    static_cast<void>(::nanosleep(&tenth, nullptr));
  }
  return true;
}

bool DemoMac::logged(const std::string& text) const {
  for (const std::string& line : lines_) {
    if (line.find(text) != std::string::npos) return true;
  }
  return false;
}

}  // namespace brisko::demo
