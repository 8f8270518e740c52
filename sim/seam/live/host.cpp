#include "platform/host.h"

#include <array>
#include <cstdlib>

#include <unistd.h>

#include "sim/machine/machine_store.h"
#include "sim/seam/moment.h"
#include "sim/seam/temporary_directory.h"

namespace brisko::platform {

std::int64_t osMajor() {
  virtual_mac::MachineStore* store = virtual_mac::attachedMachine();
  if (store == nullptr) return 0;  // there is no virtual Mac
  return virtual_mac::readNow(*store,
                              [](const virtual_mac::Machine& machine) { return machine.system.macOS; });
}

std::optional<std::string> environment(const char* name) {
  const char* value = std::getenv(name);
  if (value == nullptr) return std::nullopt;
  return value;
}

std::optional<std::string> executablePath() {
  std::array<char, 4096> path{};
  const ssize_t length = ::readlink("/proc/self/exe", path.data(), path.size());
  if (length <= 0 || static_cast<std::size_t>(length) >= path.size()) return std::nullopt;
  return std::string(path.data(), static_cast<std::size_t>(length));
}

// On a virtual Mac the daemon is root, whoever runs it, unless the machine pretends another user.
std::uint32_t effectiveUserId() {
  virtual_mac::MachineStore* store = virtual_mac::attachedMachine();
  if (store == nullptr) return ::geteuid();
  return virtual_mac::readNow(*store, [](const virtual_mac::Machine& machine) {
    return static_cast<std::uint32_t>(machine.system.pretendedUserId);
  });
}

std::int64_t processId() { return ::getpid(); }

std::string temporaryDirectory() { return virtual_mac::realTemporaryDirectory(); }

const std::string& volumeRoot() {
  static const std::string& none = *new std::string;
  const virtual_mac::MachineStore* store = virtual_mac::attachedMachine();
  return store == nullptr ? none : store->volumeRoot();
}

}  // namespace brisko::platform
