// sim/generate/rng.h
// Random numbers that are the same everywhere: a seed gives the same numbers with every compiler and library.
// The standard distributions differ from library to library.
#pragma once

#include <cstddef>
#include <cstdint>
#include <random>
#include <span>

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
  // Returns an index; each is as likely as its weight. At least one weight must not be 0.
  [[nodiscard]] std::size_t weighted(std::span<const unsigned> weights);

 private:
  std::mt19937_64 engine_;
};

}  // namespace brisko::lab
