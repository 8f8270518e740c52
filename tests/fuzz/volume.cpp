#include "fuzz/volume.h"

#include <cstdlib>
#include <filesystem>
#include <system_error>

#include <fcntl.h>
#include <unistd.h>

#include "base/files.h"
#include "base/json_file.h"
#include "base/options.h"
#include "sim/machine/models.h"
#include "sim/seam/simulated/driver.h"

namespace brisko {

Volume::Volume() {
  const virtual_mac::Model& model = virtual_mac::models().front();
  store_ = virtual_mac::MachineStore::inMemory(virtual_mac::makeMachine(model, {}));
  store_->setVolumeRoot(root_.path());
  std::error_code error;
  std::filesystem::create_directories(std::filesystem::path(real(defaultConfigPath)).parent_path(), error);
  const Descriptor nowhere(::open("/dev/null", O_WRONLY | O_CLOEXEC));
  if (error || ::dup2(nowhere.number(), STDOUT_FILENO) < 0) std::abort();
  virtual_mac::attachMachine(store_.get());
}

Volume::~Volume() { virtual_mac::attachMachine(nullptr); }

void Volume::write(std::string_view path, std::string_view bytes) const {
  const Descriptor file = openRegularFile(real(path), O_WRONLY | O_CREAT | O_TRUNC, 0644);
  if (!file || !writeAll(file.number(), bytes)) std::abort();
}

void Volume::remove(std::string_view path) const { ::unlink(real(path).c_str()); }

std::optional<std::string> Volume::read(std::string_view path) const { return readWholeFile(real(path)); }

void Volume::removeAll(std::string_view path) const {
  std::error_code ignored;
  std::filesystem::remove_all(real(path), ignored);
}

void Volume::stepClock(double seconds) {
  const auto update = store_->update();
  virtual_mac::apply(update.machine(), {.kind = virtual_mac::ChangeKind::clockStep, .number = seconds});
}

}  // namespace brisko
