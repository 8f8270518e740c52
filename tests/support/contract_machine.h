// tests/support/contract_machine.h
// The machine behind the seam in the contract tests. Each implementation of the seam has its own
// contract_machine.cpp, which the linker selects.
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "sim/machine/machine.h"

namespace brisko::test {

class ContractMachine {
 public:
  explicit ContractMachine(const virtual_mac::MachineOptions& options = {});
  ~ContractMachine();
  ContractMachine(const ContractMachine&) = delete;
  ContractMachine& operator=(const ContractMachine&) = delete;

  // Changes the machine from outside the daemon, as a user would.
  void change(const virtual_mac::Change& change);
  // Plans a change for `seconds` from now.
  void later(double seconds, const virtual_mac::Change& change);
  // A copy of the record after its last update.
  [[nodiscard]] virtual_mac::Machine record() const;

  void setEnvironment(const std::string& name, const std::string& value);

  // Whether time passes exactly as requested. In real time everything is a little late.
  [[nodiscard]] static bool timeIsExact();

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace brisko::test
