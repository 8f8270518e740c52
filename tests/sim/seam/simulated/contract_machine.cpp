#include "support/contract_machine.h"

#include "sim/seam/simulated/driver.h"
#include "support/virtual_mac.h"

namespace brisko::test {

struct ContractMachine::Impl {
  VirtualMac mac;
};

ContractMachine::ContractMachine(const virtual_mac::MachineOptions& options)
    : impl_(new Impl{VirtualMac(options)}) {}
ContractMachine::~ContractMachine() = default;

void ContractMachine::change(const virtual_mac::Change& change) { impl_->mac.change(change); }

void ContractMachine::later(double seconds, const virtual_mac::Change& change) {
  impl_->mac.later(seconds, change);
}

virtual_mac::Machine ContractMachine::record() const { return impl_->mac.machine(); }

void ContractMachine::setEnvironment(const std::string& name, const std::string& value) {
  virtual_mac::setEnvironment(name, value);
}

bool ContractMachine::timeIsExact() { return true; }

}  // namespace brisko::test
