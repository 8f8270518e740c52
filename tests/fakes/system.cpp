#include "fakes/system.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cmath>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string_view>
#include <utility>

#include <fcntl.h>
#include <mach-o/dyld.h>
#include <mach/mach_time.h>
#include <sys/stat.h>
#include <sys/sysctl.h>
#include <unistd.h>

#include "fakes/objects.h"
#include "fakes/threads.h"
#include "platform/host.h"
#include "sim/machine/machine_store.h"
#include "sim/seam/kernel_notices.h"
#include "sim/seam/simulated/driver.h"
#include "sim/seam/simulated/virtual_time.h"
#include "sim/seam/temporary_directory.h"

namespace brisko {

namespace {

constexpr std::uint32_t ticksPerSecond = 1U << 22U;
constexpr std::uint32_t nanosecondsPerSecond = 1'000'000'000;

std::optional<std::string>& programPath() {
  static auto& path =
      *new std::optional<std::string>("/Applications/Brisko.app/Contents/MacOS/brisko-daemon");
  return path;
}

constexpr std::int64_t lastOldMacOS = 15;
constexpr std::int64_t firstYearMacOS = 26;  // named after the year; 16 to 25 were left out

// The kernel's name of its build. Versions between 15 and 26, which a virtual Mac can have, were never built.
std::optional<std::string> buildOf(std::int64_t macOS) {
  if (macOS > lastOldMacOS && macOS < firstYearMacOS) return std::nullopt;
  return std::to_string(macOS >= firstYearMacOS ? macOS - 1 : macOS + 9) + "G83";
}

// The version that the kernel reports to a program that was linked with an SDK older than that of macOS 26.
std::string productVersion(std::int64_t macOS) {
  constexpr std::int64_t compatibilityVersion = 16;
  const bool isAdjusted = macOS >= firstYearMacOS && fakes::gLinkedSdk < firstYearMacOS;
  return std::to_string(isAdjusted ? compatibilityVersion : macOS) + ".4.1";
}

std::optional<std::string> kernelVariable(std::string_view name, std::int64_t macOS) {
  if (name == fakes::gUnreadableVariable) return std::nullopt;
  if (name == "kern.osversion") return buildOf(macOS);
  if (name == "kern.osproductversion") return productVersion(macOS);
  return std::nullopt;
}

// Returns a text as sysctl and confstr do; the result is its size with the final zero byte.
std::size_t copyOut(const std::string& text, char* buffer, std::size_t room) {
  if (room > text.size()) std::memcpy(buffer, text.c_str(), text.size() + 1);
  return text.size() + 1;
}

}  // namespace

namespace virtual_mac {

void setEnvironment(const std::string& name, const std::string& value) {
  ::setenv(name.c_str(), value.c_str(), 1);
}

void setExecutablePath(std::optional<std::string> path) { programPath() = std::move(path); }

}  // namespace virtual_mac

// Replaces src/platform/macos/volume_root.cpp.
const std::string& platform::volumeRoot() {
  static const std::string& none = *new std::string;
  const auto* store = virtual_mac::attachedMachine();
  return store == nullptr ? none : store->volumeRoot();
}

namespace fakes {

std::int64_t gLinkedSdk = 15;
std::string_view gUnreadableVariable;
std::string_view gFailing;

std::uint64_t ticksOfSeconds(double uptime) {
  return static_cast<std::uint64_t>(std::llround(uptime * ticksPerSecond));
}
double secondsOfTicks(std::uint64_t ticks) { return static_cast<double>(ticks) / ticksPerSecond; }

namespace {

// Also if the name now belongs to another file.
std::string latestPathOfOpenFile(int descriptor) {
  constexpr std::string_view deletedMark = " (deleted)";
  char text[PATH_MAX] = {};
  const std::string link = "/proc/self/fd/" + std::to_string(descriptor);
  const ssize_t length = ::readlink(link.c_str(), text, sizeof text);
  std::string path(text, static_cast<std::size_t>(std::max<ssize_t>(length, 0)));
  const bool marked = path.ends_with(deletedMark) && !virtual_mac::fileState(descriptor).named;
  if (marked) path.resize(path.size() - deletedMark.size());
  return path;
}

}  // namespace

int gGetPathError = 0;
std::function<void()> gAfterOpen;

}  // namespace fakes

}  // namespace brisko

using namespace brisko;

extern "C" {

mach_port_t mach_task_self_ = 0x103;

kern_return_t mach_timebase_info(mach_timebase_info_t info) {
  *info = {.numer = nanosecondsPerSecond, .denom = ticksPerSecond};
  return KERN_SUCCESS;
}

std::uint64_t mach_absolute_time() { return fakes::ticksOfSeconds(virtual_mac::virtualUptime()); }

// Any event ends the wait early.
kern_return_t mach_wait_until(std::uint64_t deadline) {
  virtual_mac::raiseMachineSignals();
  fakes::runOtherThreads();
  const double end = virtual_mac::timeAtUptime(fakes::secondsOfTicks(deadline));
  if (end <= virtual_mac::virtualNow()) return KERN_SUCCESS;
  const double othersTurn = virtual_mac::timeAtUptime(fakes::firstDeadline());
  return virtual_mac::passToward(std::min(end, othersTurn)) && end <= othersTurn ? KERN_SUCCESS
                                                                                 : KERN_ABORTED;
}

int _NSGetExecutablePath(char* path, std::uint32_t* size) {
  if (!programPath()) return -1;
  const std::size_t needed = copyOut(*programPath(), path, *size);
  if (needed <= *size) return 0;
  *size = static_cast<std::uint32_t>(needed);
  return -1;
}

int sysctlbyname(const char* name, void* old, std::size_t* oldSize, void* fresh, std::size_t) {
  auto* store = virtual_mac::attachedMachine();
  if (fresh != nullptr) fakes::misuse("a variable of the kernel is set");
  const auto value =
      store == nullptr ? std::nullopt : kernelVariable(name, store->view().machine().system.macOS);
  if (!value) {
    errno = ENOENT;
    return -1;
  }
  const std::size_t needed = copyOut(*value, static_cast<char*>(old), *oldSize);
  if (needed > *oldSize) {
    errno = ENOMEM;
    return -1;
  }
  *oldSize = needed;
  return 0;
}

// A path is opened only for its events. Still, opening a pipe blocks until its other end is open.
int brisko_fake_open(const char* path, int flags, ...) {
  if ((flags & O_EVTONLY) == 0 || (flags & O_CLOEXEC) == 0) fakes::misuse("open() with such flags");
  struct stat status {};
  const bool isPipe = ::stat(path, &status) == 0 && S_ISFIFO(status.st_mode);
  if (isPipe && (flags & O_NONBLOCK) == 0) fakes::misuse("a pipe waits for its other end for ever");
  const int descriptor = virtual_mac::openForNotices(path).value_or(-1);
  const auto afterOpen = std::exchange(fakes::gAfterOpen, nullptr);
  if (afterOpen) afterOpen();
  return descriptor;
}

int brisko_fake_fcntl(int descriptor, int command, ...) {
  if (command != F_GETPATH) fakes::misuse("fcntl() with such a command");
  std::va_list arguments;
  va_start(arguments, command);
  char* buffer = va_arg(arguments, char*);
  va_end(arguments);
  if (fakes::gGetPathError != 0) {
    errno = fakes::gGetPathError;
    return -1;
  }
  const std::string path = fakes::latestPathOfOpenFile(descriptor);
  struct stat anyFile {};
  if (::stat(path.c_str(), &anyFile) != 0) {
    errno = ENOENT;
    return -1;
  }
  copyOut(path, buffer, PATH_MAX);
  return 0;
}

// With a slash at its end, as on a Mac.
std::size_t brisko_fake_confstr(int name, char* buffer, std::size_t size) {
  if (name != _CS_DARWIN_USER_TEMP_DIR || fakes::gFailing == "confstr") return 0;
  return copyOut(virtual_mac::realTemporaryDirectory() + "/", buffer, size);
}

// Root, unless the machine pretends otherwise.
uid_t brisko_fake_geteuid() {
  auto* store = virtual_mac::attachedMachine();
  return store == nullptr ? 0 : static_cast<uid_t>(store->view().machine().system.pretendedUserId);
}

// The same in every process.
pid_t brisko_fake_getpid() { return 4711; }
}
