// tests/fuzz/target.h
// The fuzz targets. Each parses an input and checks properties that are true for every input. One program
// contains all of them and replays their seeds; each also has its own fuzzer.
#pragma once

#include <map>
#include <string>
#include <string_view>

namespace brisko {

using TryInput = void (*)(std::string_view input);

// The targets that are linked into this program, by their names.
inline std::map<std::string, TryInput>& fuzzTargets() {
  static std::map<std::string, TryInput> targets;
  return targets;
}

// Registers a function as a target; used at the end of its source.
struct FuzzTarget {
  FuzzTarget(const char* name, TryInput tryInput) { fuzzTargets().emplace(name, tryInput); }
};

}  // namespace brisko
