#include "platform/host.h"

namespace brisko::platform {

// In a separate file, because the tests on other systems replace it.
const std::string& volumeRoot() {
  static const std::string& itself = *new std::string;
  return itself;
}

}  // namespace brisko::platform
