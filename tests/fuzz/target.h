// tests/fuzz/target.h
// The fuzz targets. Each parses an input and requires of the result what holds for every input. All of them
// are in one program, which replays their seeds; each has a fuzzer of its own.
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

// One of these at the end of its source makes a function a target.
struct FuzzTarget {
  FuzzTarget(const char* name, TryInput tryInput) { fuzzTargets().emplace(name, tryInput); }
};

}  // namespace brisko
