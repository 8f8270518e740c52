// base/nearest_name.h
// The name that was probably meant by an unknown one.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace brisko {

// The one of `names` with the fewest letters to insert, remove or replace, a third of the name at most, and
// the first of them if several need as few. None if none is similar.
[[nodiscard]] std::optional<std::string> nearestName(std::string_view name,
                                                     const std::vector<std::string>& names);

}  // namespace brisko
