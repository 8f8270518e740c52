// tests/fuzz/volume.h
// A healthy virtual Mac in memory for a fuzz program, attached to the seam until the process ends. Its volume
// is a temporary folder. What the daemon writes to standard output is discarded.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "sim/machine/machine_store.h"
#include "sim/process/scratch.h"

namespace brisko {

class Volume {
 public:
  Volume();
  ~Volume();
  Volume(const Volume&) = delete;
  Volume& operator=(const Volume&) = delete;

  // Paths are unmapped.
  void write(std::string_view path, std::string_view bytes) const;
  void remove(std::string_view path) const;
  void removeAll(std::string_view path) const;
  [[nodiscard]] std::optional<std::string> read(std::string_view path) const;

  void stepClock(double seconds);  // the wall clock of the machine

 private:
  [[nodiscard]] std::string real(std::string_view path) const { return root_.path() + std::string(path); }
  sim::ScratchFolder root_{"brisko-fuzz"};
  std::unique_ptr<virtual_mac::MachineStore> store_;
};

}  // namespace brisko
