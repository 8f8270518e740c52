// sim/machine/faults.h
// The one list of what may happen to the virtual Mac: what a user, the weather, another program, macOS or the
// hardware itself does to it, each with the reason why it is believable. Tools and simulated campaigns draw
// from it. Faults of files are applied to the real files below the machine's volume root.
#pragma once

#include <optional>
#include <span>
#include <string_view>

#include "sim/machine/changes.h"

namespace brisko::virtual_mac {

// The arguments that a fault needs besides its name.
struct Asks {
  bool key = false;
  bool number = false;
  bool bytes = false;
  bool text = false;
};

struct Fault {
  std::string_view name;  // as the tools call it, e.g. "key-ignores-write"
  Change change;          // complete except for the arguments
  Asks asks;
  std::string_view reason;

  [[nodiscard]] const Range& range() const { return rangeOf(change.kind); }  // of the number
};

[[nodiscard]] std::span<const Fault> faults();
[[nodiscard]] const Fault* findFault(std::string_view name);  // null when there is none

}  // namespace brisko::virtual_mac
