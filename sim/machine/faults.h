// sim/machine/faults.h
// The one list of what may happen to the virtual Mac: what a person, the weather, another program, macOS or
// the hardware itself does to it, each with the reason why it is believable. Tools and simulated campaigns
// draw from it. What happens to files is played on the real files below the machine's volume root.
#pragma once

#include <optional>
#include <span>
#include <string_view>

#include "sim/machine/machine.h"

namespace brisko::virtual_mac {

// What must be said besides the name.
struct Asks {
  bool key = false;
  bool number = false;
  bool bytes = false;
  bool text = false;
};

struct Fault {
  std::string_view name;  // of the tools, e.g. "key-ignores-write"
  Change change;          // complete but for what is asked
  Asks asks;
  std::string_view unit;  // of the number that is asked, e.g. "mA"; empty when none is
  double least, most;     // what that number may be
  std::string_view reason;
};

[[nodiscard]] std::span<const Fault> faults();
[[nodiscard]] const Fault* findFault(std::string_view name);  // null when there is none

}  // namespace brisko::virtual_mac
