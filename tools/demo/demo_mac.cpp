#include "tools/demo/demo_mac.h"

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <thread>

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include "sim/process/launch_service.h"

namespace brisko::demo {
namespace {

using virtual_mac::Machine;

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

}  // namespace

DemoMac::~DemoMac() {
  view_.reset();
  if (boot_ != 0) static_cast<void>(shutDown());
  store_.reset();
}

bool DemoMac::vmac(std::vector<std::string> words) {
  std::string shown = "$ brisko-vmac " + words.front() + " MAC";
  for (std::size_t index = 1; index < words.size(); ++index) shown += " " + words[index];
  say(shown);
  words.insert(words.begin() + 1, folder_.path());
  words.insert(words.begin(), vmac::siblingProgram("brisko-vmac"));
  const pid_t child = start(words, false);
  return child != 0 && statusOf(child) == 0;
}

bool DemoMac::make(std::vector<std::string> options) {
  options.insert(options.begin(), "new");
  if (!vmac(std::move(options))) return false;
  std::string reason;
  store_ = virtual_mac::MachineStore::open(folder_.path(), reason);
  if (!store_) return false;
  view_ = std::make_unique<vmac::LiveView>(*store_, stdout);
  // brisko finds the machine only by this variable.
  return ::setenv("BRISKO_VIRTUAL_MAC", folder_.path().c_str(), 1) == 0;
}

bool DemoMac::boot() {
  // As in the job that the installer sets up.
  say("$ brisko-vmac boot MAC -- --guard night,menu,swing &");
  boot_ = start(
      {vmac::siblingProgram("brisko-vmac"), "boot", folder_.path(), "--", "--guard", "night,menu,swing"},
      true);
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

bool DemoMac::watch(double seconds, const std::function<bool()>& continues) {
  using Clock = std::chrono::steady_clock;
  const auto end = Clock::now() + std::chrono::duration<double>(seconds);
  do {
    refresh();
    if (!continues()) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
  } while (Clock::now() < end);
  return true;
}

bool DemoMac::await(const std::string& what, double seconds, const Condition& seen) {
  return watch(seconds, [&] { return !seen(machine()); }) ? missing(what) : true;
}

bool DemoMac::observe(const std::string& what, double seconds, const Condition& stays) {
  return watch(seconds, [&] { return stays(machine()); }) ? true : missing(what);
}

bool DemoMac::logged(const std::string& text) const {
  for (const std::string& line : lines_) {
    if (line.find(text) != std::string::npos) return true;
  }
  return false;
}

}  // namespace brisko::demo
