// sim/generate/rng.h
// Randomness that is the same everywhere: what a seed gives depends on neither compiler nor library, unlike
// the standard distributions, which each library rolls in its own way.
#pragma once

#include <cstddef>
#include <cstdint>
#include <random>
#include <span>

namespace brisko::lab {

class Rng {
 public:
  // Streams of one seed have nothing to do with each other.
  Rng(std::uint64_t seed, std::uint64_t stream);

  [[nodiscard]] std::uint64_t below(std::uint64_t end);                       // 0 … end - 1; end at least 1
  [[nodiscard]] std::int64_t between(std::int64_t least, std::int64_t most);  // both included, least first
  [[nodiscard]] bool oneIn(std::uint64_t count) { return below(count) == 0; }  // count at least 1
  [[nodiscard]] bool percent(std::uint64_t chance) { return below(100) < chance; }

  template <typename Range>
  [[nodiscard]] auto oneOf(const Range& range) {  // that is not empty
    return *(std::begin(range) + static_cast<std::ptrdiff_t>(below(std::size(range))));
  }
  // An index, each as often as its weight says; they may not all be 0.
  [[nodiscard]] std::size_t weighted(std::span<const unsigned> weights);

 private:
  std::mt19937_64 engine_;
};

}  // namespace brisko::lab
