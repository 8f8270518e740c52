// tests/fuzz/served_machine.h
// What a fuzz program serves at the seam in place of a machine's own controller, registry and power sources.
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

// A property of any kind, and properties under the keys that the daemon looks for and others.
[[nodiscard]] platform::Value takeValue(Bytes& bytes, int level = 0);
[[nodiscard]] platform::Dictionary takeProperties(Bytes& bytes, int level = 0);

}  // namespace brisko
