// policy/adapter_word.h
// How far the power source's word about the adapter can be believed. To the system a cut adapter looks like
// an unplugged one. The system may notice the cut, and its end, up to two minutes late. Used with the guard
// "swing".
#pragma once

#include <optional>

namespace brisko {

inline constexpr double latestWord = 120;  // seconds

struct AdapterWord {
  bool plugged = false;                                  // by the power source
  std::optional<bool> seen = std::nullopt;               // by the controller; none: its key cannot be read
  bool cut = false;                                      // we cut the adapter
  std::optional<double> sinceCutChanged = std::nullopt;  // seconds since it was cut or connected again
};
// Whether an adapter is plugged in, as far as the word can be believed.
[[nodiscard]] bool believedPlugged(const AdapterWord& word);

// Without the controller's word a cut adapter cannot be told from an unplugged one, so the adapter is not
// cut.
[[nodiscard]] inline bool mayCut(const std::optional<bool>& seen) { return seen.has_value(); }

}  // namespace brisko
