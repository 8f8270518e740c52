#include "sim/generate/seeds.h"

#include <charconv>

namespace brisko::lab {
namespace {

std::optional<std::uint64_t> parseSeed(std::string_view text) {
  std::uint64_t seed = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), seed);
  if (error != std::errc{} || end != text.data() + text.size()) return std::nullopt;
  return seed;
}

}  // namespace

std::optional<Seeds> parseSeeds(std::string_view text) {
  const std::size_t dots = text.find("..");
  const auto first = parseSeed(text.substr(0, dots));
  const auto last = dots == std::string_view::npos ? first : parseSeed(text.substr(dots + 2));
  // The seeds must be countable in 64 bits.
  if (!first || !last || *last < *first || *last == UINT64_MAX) return std::nullopt;
  return Seeds{*first, *last};
}

std::string seedsText(const Seeds& seeds) {
  return std::to_string(seeds.first) + ".." + std::to_string(seeds.last);
}

std::uint64_t countOf(const Seeds& seeds) { return seeds.last - seeds.first + 1; }

}  // namespace brisko::lab
