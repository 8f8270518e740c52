#include "sim/process/launch_service.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <memory>
#include <optional>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "sim/machine/machine.h"
#include "sim/machine/machine_store.h"

namespace brisko::vmac {
namespace {

using virtual_mac::MachineStore;

constexpr double throttleSeconds = 10;  // machine time between two starts
constexpr int exitTimeoutSeconds = 20;  // real time for the daemon to end, as under launchd

void complain(const std::string& text) {
  static_cast<void>(std::fprintf(stderr, "brisko-vmac: %s\n", text.c_str()));
}

// The lock of the process that has booted a machine. The kernel releases it when that process ends, so a
// killed boot leaves no lock behind. The file also contains the process id.
class BootLock {
 public:
  explicit BootLock(const std::string& folder)
      : descriptor_(::open((folder + "/booted").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600)) {}
  ~BootLock() {
    if (descriptor_ >= 0) ::close(descriptor_);
  }
  BootLock(const BootLock&) = delete;
  BootLock& operator=(const BootLock&) = delete;

  [[nodiscard]] bool take() {
    if (descriptor_ < 0 || ::flock(descriptor_, LOCK_EX | LOCK_NB) != 0) return false;
    const std::string holder = std::to_string(::getpid()) + "\n";
    return ::ftruncate(descriptor_, 0) == 0 &&
           ::pwrite(descriptor_, holder.data(), holder.size(), 0) == static_cast<ssize_t>(holder.size());
  }

  // The process that holds the lock; none if it is free.
  [[nodiscard]] std::optional<pid_t> holder() {
    if (descriptor_ < 0 || ::flock(descriptor_, LOCK_EX | LOCK_NB) == 0) return std::nullopt;
    std::array<char, 32> text{};
    if (::pread(descriptor_, text.data(), text.size() - 1, 0) <= 0) return std::nullopt;
    const long number = std::strtol(text.data(), nullptr, 10);
    return number > 0 ? std::optional(static_cast<pid_t>(number)) : std::nullopt;
  }

  void waitUntilFree() {
    while (::flock(descriptor_, LOCK_EX) != 0 && errno == EINTR) {
    }
  }

 private:
  int descriptor_;
};

std::string makeLogFolder(const MachineStore& store) {
  std::string folder = store.volumeRoot() + "/Library/Logs/Brisko";
  static_cast<void>(::mkdir(folder.c_str(), 0755));
  return folder;
}

// The child's environment: ours, and the variable that names the machine.
std::vector<std::string> environmentFor(const std::string& folder) {
  std::vector<std::string> variables;
  for (char** variable = environ; *variable != nullptr; ++variable) {
    if (std::strncmp(*variable, "BRISKO_VIRTUAL_MAC=", 19) != 0) variables.emplace_back(*variable);
  }
  variables.push_back("BRISKO_VIRTUAL_MAC=" + folder);
  return variables;
}

std::vector<char*> pointersTo(std::vector<std::string>& texts) {
  std::vector<char*> pointers;
  pointers.reserve(texts.size() + 1);
  for (std::string& text : texts) pointers.push_back(text.data());
  pointers.push_back(nullptr);
  return pointers;
}

// In the child: executes the daemon. Returns only on failure.
void becomeDaemon(const std::string& errorLog, std::vector<std::string> arguments,
                  std::vector<std::string> environment) {
  // If the launch service dies, the machine has no power any more, so the daemon is killed.
  ::prctl(PR_SET_PDEATHSIG, SIGKILL);
  const int errors = ::open(errorLog.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
  if (errors >= 0) ::dup2(errors, STDERR_FILENO);
  // This program blocks the signals for which it waits; the daemon starts with none blocked.
  sigset_t none;
  sigemptyset(&none);
  ::sigprocmask(SIG_SETMASK, &none, nullptr);
  ::execve(arguments.front().c_str(), pointersTo(arguments).data(), pointersTo(environment).data());
}

// Starts the daemon; none if that fails.
std::optional<pid_t> startDaemon(const BootOptions& options, const std::string& errorLog) {
  std::vector<std::string> arguments{options.daemon};
  arguments.insert(arguments.end(), options.arguments.begin(), options.arguments.end());
  // Closed when the daemon starts; otherwise it transfers the error.
  std::array<int, 2> ends{};
  if (::pipe2(ends.data(), O_CLOEXEC) != 0) return std::nullopt;
  const pid_t child = ::fork();
  if (child == 0) {
    becomeDaemon(errorLog, arguments, environmentFor(options.folder));
    const int failure = errno;
    static_cast<void>(::write(ends[1], &failure, sizeof failure));
    ::_exit(127);
  }
  ::close(ends[1]);
  int failure = 0;
  const bool started = child > 0 && ::read(ends[0], &failure, sizeof failure) == 0;
  ::close(ends[0]);
  if (started) return child;
  if (child > 0) static_cast<void>(::waitpid(child, nullptr, 0));
  complain("cannot start " + options.daemon + ": " + std::strerror(failure));
  return std::nullopt;
}

sigset_t awaitedSignals() {
  sigset_t signals;
  sigemptyset(&signals);
  for (const int signal : {SIGCHLD, SIGINT, SIGTERM}) sigaddset(&signals, signal);
  return signals;
}

timespec toTimespec(double seconds) {
  const auto whole = static_cast<time_t>(seconds);
  return {whole, static_cast<long>((seconds - static_cast<double>(whole)) * 1e9)};
}

// Waits for one of the signals, at most `seconds` of real time. Returns 0 on a timeout.
int awaitSignal(double seconds) {
  const sigset_t signals = awaitedSignals();
  const timespec limit = toTimespec(std::max(seconds, 0.0));
  const int signal = ::sigtimedwait(&signals, nullptr, &limit);
  return signal > 0 ? signal : 0;
}

bool isAskedToEnd(int signal) { return signal == SIGINT || signal == SIGTERM; }

double machineTimeNow(MachineStore& store) { return virtual_mac::machineTime(store.view().machine()); }

double speedOf(MachineStore& store) { return store.view().machine().speed; }

bool hasEnded(pid_t child) {
  int status = 0;
  return ::waitpid(child, &status, WNOHANG) == child;
}

void endDaemon(pid_t child) {
  ::kill(child, SIGTERM);
  for (int second = 0; second < exitTimeoutSeconds; ++second) {
    if (hasEnded(child)) return;
    static_cast<void>(awaitSignal(1));
  }
  if (hasEnded(child)) return;
  ::kill(child, SIGKILL);
  static_cast<void>(::waitpid(child, nullptr, 0));
}

// Runs one daemon until it ends. True if this program was asked to end in the meantime.
bool runDaemon(pid_t child) {
  constexpr double longWait = 3600;
  while (true) {
    const int signal = awaitSignal(longWait);
    if (isAskedToEnd(signal)) {
      endDaemon(child);
      return true;
    }
    if (hasEnded(child)) return false;
  }
}

// Waits between two starts. True if this program was asked to end in the meantime.
bool throttle(MachineStore& store, double startedAt) {
  while (true) {
    const double wait = startedAt + throttleSeconds - machineTimeNow(store);
    if (wait <= 0) return false;
    if (isAskedToEnd(awaitSignal(wait / speedOf(store)))) return true;
  }
}

// The power service does not wait for a dead process.
void noteDaemonsEnd(MachineStore& store) {
  const auto update = store.update();
  virtual_mac::advance(update.machine(), virtual_mac::machineTime(update.machine()));
  virtual_mac::forgetPowerClient(update.machine());
}

void turnOff(MachineStore& store) {
  const auto update = store.update();
  virtual_mac::advance(update.machine(), virtual_mac::machineTime(update.machine()));
  virtual_mac::shutDown(update.machine());
}

void turnOn(MachineStore& store) {
  const auto update = store.update();
  virtual_mac::advance(update.machine(), virtual_mac::machineTime(update.machine()));
  virtual_mac::boot(update.machine());
}

std::unique_ptr<MachineStore> openMachine(const std::string& folder) {
  std::string reason;
  auto store = MachineStore::open(folder, reason);
  if (!store) complain(reason);
  return store;
}

}  // namespace

std::string siblingProgram(const std::string& name) {
  std::array<char, PATH_MAX> path{};
  const ssize_t length = ::readlink("/proc/self/exe", path.data(), path.size());
  const std::string own(path.data(), length > 0 ? static_cast<std::size_t>(length) : 0);
  return own.substr(0, own.rfind('/') + 1) + name;
}

int bootAndWait(const BootOptions& options) {
  const auto store = openMachine(options.folder);
  if (!store) return 1;
  BootLock lock(options.folder);
  if (!lock.take()) {
    complain("the machine in " + options.folder + " is booted already");
    return 1;
  }
  const sigset_t signals = awaitedSignals();
  ::sigprocmask(SIG_BLOCK, &signals, nullptr);
  turnOn(*store);

  const std::string errorLog = makeLogFolder(*store) + "/daemon.err.log";
  int status = 0;
  while (true) {
    const double startedAt = machineTimeNow(*store);
    const auto child = startDaemon(options, errorLog);
    if (!child) {
      status = 1;
      break;
    }
    const bool askedToEnd = runDaemon(*child);
    noteDaemonsEnd(*store);
    if (askedToEnd || throttle(*store, startedAt)) break;
  }
  turnOff(*store);
  return status;
}

int shutDownAndWait(const std::string& folder) {
  const auto store = openMachine(folder);
  if (!store) return 1;
  BootLock lock(folder);
  if (const auto holder = lock.holder()) {
    ::kill(*holder, SIGTERM);
    lock.waitUntilFree();
    return 0;
  }
  turnOff(*store);
  return 0;
}

}  // namespace brisko::vmac
