#include "platform/host.h"

#include "platform/virtual/machine_store.h"
#include "platform/virtual/simulated/driver.h"
#include "platform/virtual/temporary_directory.h"

namespace brisko::platform {

using virtual_mac::attachedMachine;
using virtual_mac::simulatedHost;

std::int64_t osMajor() {
  return attachedMachine() == nullptr ? 0 : attachedMachine()->look().machine().system.macOS;
}

std::optional<std::string> environment(const char* name) {
  const auto found = simulatedHost().environment.find(name);
  if (found == simulatedHost().environment.end()) return std::nullopt;
  return found->second;
}

std::optional<std::string> executablePath() { return simulatedHost().executablePath; }

std::uint32_t effectiveUserId() {
  if (attachedMachine() == nullptr) return 0;
  return static_cast<std::uint32_t>(attachedMachine()->look().machine().system.pretendedUserId);
}

std::int64_t processId() { return simulatedHost().processId; }

std::string temporaryDirectory() { return virtual_mac::realTemporaryDirectory(); }

const std::string& volumeRoot() {
  static const std::string& none = *new std::string;
  return attachedMachine() == nullptr ? none : attachedMachine()->volumeRoot();
}

}  // namespace brisko::platform
