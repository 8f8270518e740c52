#include "tools/lab/readers_zone.h"

#include <cstdlib>
#include <ctime>
#include <optional>
#include <string>

namespace brisko::lab {
namespace {

std::optional<std::string> gReadersZone;  // none: the computer's

}  // namespace

void useUtc() {
  if (const char* zone = std::getenv("TZ")) gReadersZone = zone;
  ::setenv("TZ", "UTC", 1);
}

void useReadersZone() {
  if (gReadersZone) {
    ::setenv("TZ", gReadersZone->c_str(), 1);
  } else {
    ::unsetenv("TZ");
  }
  ::tzset();
}

}  // namespace brisko::lab
