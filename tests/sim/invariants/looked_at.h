// tests/sim/invariants/looked_at.h
// What rules that always hold are shown by a test: a machine, and circumstances that the test makes up.
#pragma once

#include <optional>
#include <string>

#include "sim/invariants/rule.h"
#include "sim/machine/machine_store.h"

namespace brisko::lab {

class LookedAt final : public Scene {
 public:
  explicit LookedAt(virtual_mac::MachineStore& machines) : store_(machines) {}
  [[nodiscard]] const virtual_mac::Machine& machine() const override { return store_.look().machine(); }
  [[nodiscard]] const virtual_mac::Journal& journal() const override { return store_.look().journal(); }
  [[nodiscard]] const Circumstances& circumstances() const override { return so; }
  [[nodiscard]] Carried& carried() const override { return notes; }
  [[nodiscard]] std::optional<std::string> read(const std::string&) const override { return std::nullopt; }

  Circumstances so;
  mutable Carried notes;

 private:
  virtual_mac::MachineStore& store_;
};

}  // namespace brisko::lab
