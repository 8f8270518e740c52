// tests/fuzz/served_machine.h
// The controller, the registry and the power sources that a fuzz program provides at the seam instead of a
// machine's own.
#pragma once

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "fuzz/bytes.h"
#include "platform/smc_service.h"
#include "platform/value.h"

namespace brisko {

struct ServedMachine {
  std::function<platform::KernelStatus(const platform::SmcRecord& input, platform::SmcRecord& output)>
      exchange;
  std::map<std::string, platform::SharedDictionary, std::less<>> registry;
  std::optional<std::vector<platform::SharedDictionary>> sources;
};
inline ServedMachine gServed;

// A property of any type, and properties under the keys that the daemon reads and under others.
[[nodiscard]] platform::Value takeValue(Bytes& bytes, int level = 0);
[[nodiscard]] platform::Dictionary takeProperties(Bytes& bytes, int level = 0);

}  // namespace brisko
