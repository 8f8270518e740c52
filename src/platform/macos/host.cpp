#include "platform/host.h"

#include <array>
#include <climits>
#include <cstdlib>

#include <mach-o/dyld.h>
#include <sys/sysctl.h>
#include <unistd.h>

namespace brisko::platform {
namespace {

// Without a trailing slash.
std::string userTemporaryDirectory() {
  std::array<char, PATH_MAX> path{};
  const std::size_t size = ::confstr(_CS_DARWIN_USER_TEMP_DIR, path.data(), path.size());
  if (size == 0 || size > path.size()) return "/tmp";
  std::string folder = path.data();
  while (folder.size() > 1 && folder.back() == '/') folder.pop_back();
  return folder;
}

}  // namespace

std::int64_t osMajor() {
  std::array<char, 64> version{};  // "26.0.1"
  std::size_t size = version.size() - 1;
  if (::sysctlbyname("kern.osproductversion", version.data(), &size, nullptr, 0) != 0) return 0;
  return std::strtoll(version.data(), nullptr, 10);
}

std::optional<std::string> environment(const char* name) {
  const char* value = std::getenv(name);
  if (value == nullptr) return std::nullopt;
  return value;
}

std::optional<std::string> executablePath() {
  std::array<char, 4096> path{};
  auto size = static_cast<std::uint32_t>(path.size());
  if (_NSGetExecutablePath(path.data(), &size) != 0) return std::nullopt;
  std::array<char, PATH_MAX> resolved{};
  if (::realpath(path.data(), resolved.data()) == nullptr) return path.data();
  return resolved.data();
}

std::uint32_t effectiveUserId() { return ::geteuid(); }

std::int64_t processId() { return ::getpid(); }

std::string temporaryDirectory() { return userTemporaryDirectory(); }

}  // namespace brisko::platform
