// sim/machine/changes.h
#pragma once

#include <string_view>

#include "sim/machine/machine.h"

namespace brisko::virtual_mac {

// The range of a change's number. apply() holds every number to it, whoever makes the change.
struct Range {
  double least = 0;
  double most = 0;
  std::string_view unit = {};  // as shown to users, e.g. "mA"; empty where users give no number
};

[[nodiscard]] const Range& rangeOf(ChangeKind kind);

}  // namespace brisko::virtual_mac
