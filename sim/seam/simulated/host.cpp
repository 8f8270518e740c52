#include "platform/host.h"

#include <map>
#include <utility>

#include "sim/machine/machine_store.h"
#include "sim/seam/call_watch.h"
#include "sim/seam/simulated/driver.h"
#include "sim/seam/temporary_directory.h"

namespace brisko {

namespace {

struct Host {
  std::map<std::string, std::string, std::less<>> environment;
  std::optional<std::string> executablePath = "/Applications/Brisko.app/Contents/MacOS/brisko-daemon";
};
Host& host() {
  static Host& kept = *new Host;
  return kept;
}

}  // namespace

namespace virtual_mac {

void setEnvironment(const std::string& name, const std::string& value) { host().environment[name] = value; }

void setExecutablePath(std::optional<std::string> path) { host().executablePath = std::move(path); }

}  // namespace virtual_mac

namespace platform {

using virtual_mac::attachedMachine;

std::int64_t osMajor() {
  virtual_mac::MachineStore* store = virtual_mac::machineFor({"osMajor"});
  return store == nullptr ? 0 : store->view().machine().system.macOS;
}

std::optional<std::string> environment(const char* name) {
  const auto found = host().environment.find(name);
  if (found == host().environment.end()) return std::nullopt;
  return found->second;
}

std::optional<std::string> executablePath() {
  if (virtual_mac::callFails({"executablePath"})) return std::nullopt;
  return host().executablePath;
}

std::uint32_t effectiveUserId() {
  if (attachedMachine() == nullptr) return 0;
  return static_cast<std::uint32_t>(attachedMachine()->view().machine().system.pretendedUserId);
}

std::int64_t processId() { return 4711; }

std::string temporaryDirectory() { return virtual_mac::realTemporaryDirectory(); }

const std::string& volumeRoot() {
  static const std::string& none = *new std::string;
  return attachedMachine() == nullptr ? none : attachedMachine()->volumeRoot();
}

}  // namespace platform
}  // namespace brisko
