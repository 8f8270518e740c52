// tests/sim/invariants/fake_observation.h
// The observation that a test gives to invariants: a machine, and circumstances that the test sets.
#pragma once

#include <optional>
#include <string>

#include "sim/invariants/rule.h"
#include "sim/machine/machine_store.h"

namespace brisko::lab {

class FakeObservation final : public Observation {
 public:
  explicit FakeObservation(virtual_mac::MachineStore& machines) : store_(machines) {}
  [[nodiscard]] const virtual_mac::Machine& machine() const override { return store_.view().machine(); }
  [[nodiscard]] const virtual_mac::Journal& journal() const override { return store_.view().journal(); }
  [[nodiscard]] const Disturbances& disturbances() const override { return givenDisturbances; }
  [[nodiscard]] ProcessSummary& processSummary() const override { return givenSummary; }
  [[nodiscard]] std::optional<std::string> read(const std::string&) const override { return std::nullopt; }

  Disturbances givenDisturbances;
  mutable ProcessSummary givenSummary;

 private:
  virtual_mac::MachineStore& store_;
};

}  // namespace brisko::lab
