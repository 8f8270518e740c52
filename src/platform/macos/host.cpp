#include "platform/host.h"

#include <array>
#include <climits>
#include <cstdlib>
#include <string_view>

#include <mach-o/dyld.h>
#include <sys/sysctl.h>
#include <unistd.h>

#include "platform/macos_version.h"

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

// Empty if unavailable.
std::string kernelVariable(const char* name) {
  std::array<char, 64> text{};
  std::size_t size = text.size() - 1;
  if (::sysctlbyname(name, text.data(), &size, nullptr, 0) != 0) return {};
  return text.data();
}

// /tmp, /var and /etc are links into /private, and the system's own resolver shows paths without that prefix.
std::string withoutPrivate(const std::string& path) {
  constexpr std::string_view shadowed = "/private";
  if (!path.starts_with("/private/")) return path;
  std::string known = path.substr(shadowed.size());
  return ::access(known.c_str(), F_OK) == 0 ? known : path;
}

}  // namespace

std::int64_t osMajor() {
  return macOSMajor(kernelVariable("kern.osversion"), kernelVariable("kern.osproductversion"));
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
  if (::realpath(path.data(), resolved.data()) == nullptr) return withoutPrivate(path.data());
  return withoutPrivate(resolved.data());
}

std::uint32_t effectiveUserId() { return ::geteuid(); }

std::int64_t processId() { return ::getpid(); }

std::string temporaryDirectory() { return userTemporaryDirectory(); }

}  // namespace brisko::platform
