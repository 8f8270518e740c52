#include "sim/seam/live/live_folder.h"

#include <cstdlib>
#include <stdexcept>

#include "sim/machine/models.h"
#include "sim/seam/live/real_time.h"

namespace brisko::test {

virtual_mac::Machine machineFromNow(const virtual_mac::MachineOptions& options, double speed) {
  virtual_mac::Machine machine = virtual_mac::makeMachine(*virtual_mac::findModel("air13"), options);
  machine.speed = speed;
  machine.realAnchor = virtual_mac::realNow();
  machine.machineAnchor = machine.now;
  return machine;
}

LiveFolder::LiveFolder(const virtual_mac::Machine& machine) : path_(scratch_.path() + "/machine of ours") {
  std::string reason;
  store_ = virtual_mac::MachineStore::create(path_, machine, reason);
  if (store_ == nullptr) throw std::runtime_error(reason);
}

void LiveFolder::name() const { ::setenv("BRISKO_VIRTUAL_MAC", path_.c_str(), 1); }

void LiveFolder::change(const virtual_mac::Change& change) {
  {
    const auto update = store_->update();
    virtual_mac::advance(update.machine(), virtual_mac::machineTime(update.machine()));
    virtual_mac::apply(update.machine(), change);
  }
  virtual_mac::wakeHolders(path_);
}

}  // namespace brisko::test
