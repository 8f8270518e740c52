// Runs a fuzz target over the seeds in a folder, without the fuzzer: each seed unchanged, truncated at every
// byte, and with every byte changed, in a short seed in ten ways and in a long one in fewer. In a long one
// the insides of words and numbers are left out. The inputs and their order are always the same.
#include <algorithm>
#include <array>
#include <cctype>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "fuzz/target.h"

namespace {

brisko::TryInput gTarget = nullptr;
std::size_t gInputs = 0;

void tryInput(const std::string& bytes) {
  ++gInputs;
  // A copy of exactly this size, so that a sanitizer detects a read beyond its end.
  const std::vector<char> copy(bytes.begin(), bytes.end());
  gTarget({copy.data(), copy.size()});
}

bool isInWord(char byte) { return std::isalnum(static_cast<unsigned char>(byte)) != 0; }

// Whether the byte is neither one of the first two of a word or number, nor its last: those inside are alike.
bool isInside(const std::string& seed, std::size_t index) {
  return index >= 2 && index + 1 < seed.size() &&
         std::all_of(seed.begin() + static_cast<std::ptrdiff_t>(index) - 2,
                     seed.begin() + static_cast<std::ptrdiff_t>(index) + 2, isInWord);
}

void tryAround(const std::string& seed) {
  constexpr std::array<char, 10> bytes = {'\0', '"', '\\', '[', '}', '-', '9', '\n', '\x80', '\xff'};
  constexpr std::size_t manyChanges = 250;
  const auto isTried = [&seed](std::size_t index) {
    constexpr std::size_t longSeed = 500;
    return seed.size() < longSeed || !isInside(seed, index);
  };
  tryInput(seed);
  for (std::size_t size = 0; size < seed.size(); ++size)
    if (isTried(size)) tryInput(seed.substr(0, size));
  if (seed.empty()) return;
  const std::size_t ways = std::clamp<std::size_t>(manyChanges / seed.size(), 1, bytes.size());
  for (std::size_t index = 0; index < seed.size(); ++index) {
    if (!isTried(index)) continue;
    std::string changed = seed;
    for (std::size_t way = 0; way < ways; ++way) {
      changed[index] = bytes[(index * ways + way) % bytes.size()];
      tryInput(changed);
    }
  }
}

}  // namespace

int main(int count, char** arguments) {
  const auto& targets = brisko::fuzzTargets();
  const auto target = count == 3 ? targets.find(arguments[1]) : targets.end();
  if (target == targets.end()) {
    std::fprintf(stderr, "usage: %s TARGET FOLDER-OF-SEEDS\n", arguments[0]);
    return 64;
  }
  gTarget = target->second;
  std::vector<std::filesystem::path> seeds;
  for (const auto& entry : std::filesystem::directory_iterator(arguments[2])) seeds.push_back(entry.path());
  std::sort(seeds.begin(), seeds.end());
  for (const auto& path : seeds) {
    std::ifstream file(path, std::ios::binary);
    tryAround({std::istreambuf_iterator<char>(file), {}});
  }
  std::printf("%zu inputs from %zu seeds\n", gInputs, seeds.size());
  return seeds.empty() ? 1 : 0;
}
