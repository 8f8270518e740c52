#include "platform/macos/owned.h"

namespace brisko::platform {

// The matching dictionary is consumed by the search.
OwnedService firstService(const char* name) {
  return OwnedService(IOServiceGetMatchingService(kIOMainPortDefault, IOServiceMatching(name)));
}

}  // namespace brisko::platform
