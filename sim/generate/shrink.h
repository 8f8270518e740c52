// sim/generate/shrink.h
// Cuts a story down to the few things that matter: what can be left out so that the same still goes wrong,
// is.
#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <vector>

#include "sim/generate/story.h"

namespace brisko::lab {

// The first of the candidates that goes wrong in the same way as the story, and the seconds from its
// beginning until then; none when none does.
struct StillWrong {
  std::size_t index = 0;
  double seconds = 0;
};
using TryOut = std::function<std::optional<StillWrong>(const std::vector<Story>& candidates)>;

struct ShrinkBounds {
  std::size_t tries = 600;  // stories that are tried out at most
  std::size_t atOnce = 2;   // … side by side
};

struct Shrunk {
  Story story;
  std::size_t tries = 0;
};

// `seconds` is when the story goes wrong. What is left keeps its order, and its times while things are left
// out; in the end the pauses in which nothing matters are made shorter.
[[nodiscard]] Shrunk shrink(const Story& story, double seconds, const ShrinkBounds& bounds,
                            const TryOut& tryOut);

}  // namespace brisko::lab
