#include "sim/generate/rng.h"

#include <limits>

namespace brisko::lab {
namespace {

// Turns neighbouring seeds into unrelated streams (the finalizer of SplitMix64).
std::uint64_t scattered(std::uint64_t number) {
  number += 0x9e3779b97f4a7c15U;
  number = (number ^ (number >> 30U)) * 0xbf58476d1ce4e5b9U;
  number = (number ^ (number >> 27U)) * 0x94d049bb133111ebU;
  return number ^ (number >> 31U);
}

}  // namespace

Rng::Rng(std::uint64_t seed, std::uint64_t stream) : engine_(scattered(scattered(seed) + stream)) {}

std::uint64_t Rng::below(std::uint64_t end) {
  // Numbers in the incomplete last part of the range are drawn again, so that all remainders are equally
  // likely.
  constexpr std::uint64_t most = std::numeric_limits<std::uint64_t>::max();
  const std::uint64_t even = most - most % end;
  std::uint64_t thrown = engine_();
  while (thrown >= even) thrown = engine_();
  return thrown % end;
}

std::int64_t Rng::between(std::int64_t least, std::int64_t most) {
  // Unsigned, because the range may be wider than a signed number can hold.
  const auto first = static_cast<std::uint64_t>(least);
  return static_cast<std::int64_t>(first + below(static_cast<std::uint64_t>(most) - first + 1));
}

}  // namespace brisko::lab
