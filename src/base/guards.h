// base/guards.h
// Rules for nights and special cases, which the daemon follows in addition to keeping the band. Each guard is
// switched on by its name in the list of the option "--guard".
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace brisko {

struct Guards {
  bool night = false;  // the charge of a sleeping Mac stays below the limit
  bool menu = false;   // a full charge asked for in the Battery menu is not cancelled
  bool swing = false;  // the adapter is not cut if the daemon could not see it then
  bool operator==(const Guards&) const = default;
};

// The guards of a list like "night,menu,swing". Unknown names are ignored, the others count.
[[nodiscard]] Guards guardsIn(std::string_view list);

// The names of those that are on, in the order above.
[[nodiscard]] std::vector<std::string> namesOf(const Guards& guards);

}  // namespace brisko
