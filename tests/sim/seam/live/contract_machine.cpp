#include "support/contract_machine.h"

#include <cstdlib>
#include <stdexcept>

#include "sim/seam/live/live_folder.h"

namespace brisko::test {

struct ContractMachine::Impl {
  LiveFolder folder;
};

ContractMachine::ContractMachine(const virtual_mac::MachineOptions& options)
    : impl_(new Impl{LiveFolder(machineFromNow(options))}) {
  impl_->folder.name();
}
ContractMachine::~ContractMachine() = default;

void ContractMachine::change(const virtual_mac::Change& change) { impl_->folder.change(change); }

void ContractMachine::later(double seconds, const virtual_mac::Change& change) {
  const auto update = impl_->folder.store().update();
  virtual_mac::Machine& machine = update.machine();
  if (!virtual_mac::plan(machine, virtual_mac::machineTime(machine) + seconds, change)) {
    throw std::length_error("no more changes can be planned");
  }
}

virtual_mac::Machine ContractMachine::record() const { return impl_->folder.store().view().machine(); }

void ContractMachine::setEnvironment(const std::string& name, const std::string& value) {
  ::setenv(name.c_str(), value.c_str(), 1);
}

bool ContractMachine::timeIsExact() { return false; }

}  // namespace brisko::test
