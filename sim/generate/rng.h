// sim/generate/rng.h
// Random numbers that are the same everywhere: a seed gives the same numbers with every compiler and library.
// The standard distributions differ from library to library.
#pragma once

#include <cstddef>
#include <cstdint>
#include <iterator>
#include <random>

namespace brisko::lab {

class Rng {
 public:
  // Streams of the same seed are independent of each other.
  Rng(std::uint64_t seed, std::uint64_t stream);

  [[nodiscard]] std::uint64_t below(std::uint64_t end);                       // 0 … end - 1; end at least 1
  [[nodiscard]] std::int64_t between(std::int64_t least, std::int64_t most);  // both included, least first
  [[nodiscard]] bool oneIn(std::uint64_t count) { return below(count) == 0; }  // count at least 1
  [[nodiscard]] bool percent(std::uint64_t chance) { return below(100) < chance; }

  template <typename Range>
  [[nodiscard]] auto oneOf(const Range& range) {  // which must not be empty
    return *(std::begin(range) + static_cast<std::ptrdiff_t>(below(std::size(range))));
  }
  // Returns a row; each is as likely as its `weight`. At least one weight must not be 0.
  template <typename Rows>
  [[nodiscard]] const auto& weighted(const Rows& rows) {
    std::uint64_t all = 0;
    for (const auto& row : rows) all += row.weight;
    std::uint64_t left = below(all);
    auto row = std::begin(rows);
    while (left >= row->weight) left -= (row++)->weight;
    return *row;
  }

 private:
  std::mt19937_64 engine_;
};

}  // namespace brisko::lab
