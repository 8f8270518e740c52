// report/what_if_page.h
// Some days as they were set and as somebody asks: both curves, a table with the figures of both, and what to
// think of them. One self-contained page, like that of a history.
#pragma once

#include <string>
#include <vector>

#include "report/picture.h"

namespace brisko::lab {

struct ComparedFigure {
  std::string name = {};
  std::string asSet = {};
  std::string asAsked = {};
};

struct WhatIfView {
  const Picture& picture;  // with at least one moment; its notes are printed small
  std::vector<ComparedFigure> figures = {};
  std::vector<std::string> sentences = {};
};

[[nodiscard]] std::string whatIfPage(const WhatIfView& view);

// The beginning of the page contains this text, so that it can be told from other files.
inline constexpr const char* whatIfMark = "Drawn by brisko what-if.";

}  // namespace brisko::lab
