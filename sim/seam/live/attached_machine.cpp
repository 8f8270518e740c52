#include <cstdlib>
#include <filesystem>
#include <string>
#include <string_view>

#include <unistd.h>

#include "sim/machine/machine_store.h"

namespace brisko::virtual_mac {

namespace {

// The daemon does not start on a machine that it cannot use, and changes nothing.
[[noreturn]] void reportUnusable(const std::string& reason) {
  const std::string line = "brisko-daemon: " + reason + "\n";
  [[maybe_unused]] const ssize_t written = ::write(STDERR_FILENO, line.data(), line.size());
  ::_exit(1);
}

MachineStore* openNamedMachine() {
  const char* folder = std::getenv("BRISKO_VIRTUAL_MAC");
  if (folder == nullptr || *folder == '\0') return nullptr;
  // Absolute, so that paths on its volume stay valid when the process changes its working directory.
  std::error_code error;
  const std::filesystem::path absolute = std::filesystem::absolute(folder, error);
  std::string reason;
  auto store = MachineStore::open(error ? folder : absolute.string(), reason);
  if (store == nullptr) reportUnusable(reason);
  return store.release();
}

}  // namespace

// Never closed: exit hooks still write to the controller.
MachineStore* attachedMachine() {
  static MachineStore* const store = openNamedMachine();
  return store;
}

}  // namespace brisko::virtual_mac
