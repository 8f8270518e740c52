// sim/generate/seeds.h
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace brisko::lab {

struct Seeds {
  std::uint64_t first = 1, last = 1;
  bool operator==(const Seeds&) const = default;
};
// Parses "17" or "1..400". None when the text has neither form or the last seed comes before the first.
[[nodiscard]] std::optional<Seeds> parseSeeds(std::string_view text);
[[nodiscard]] std::string seedsText(const Seeds& seeds);  // "1..400"
[[nodiscard]] std::uint64_t countOf(const Seeds& seeds);

}  // namespace brisko::lab
