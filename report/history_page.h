// report/history_page.h
// A history as a self-contained page or as a picture: up to two weeks as curves, and more as a bar for each
// day. The page fits windows from a phone's to a large one, in light or dark mode, and can be printed and
// used with the keyboard alone.
#pragma once

#include <string>

#include "report/history_summary.h"
#include "report/picture.h"

namespace brisko::lab {

// A history to draw. The picture has at least one moment, and each has a level.
struct HistoryView {
  const Picture& picture;
  const HistorySummary& summary;
};

// Whether the days are few enough for curves.
[[nodiscard]] bool showsCurves(const HistorySummary& summary);

[[nodiscard]] std::string historyPage(const HistoryView& view);
[[nodiscard]] std::string historyPicture(const HistoryView& view);  // an SVG document

// The beginning of both contains this text, so that they can be told from other files.
inline constexpr const char* historyMark = "Drawn by brisko history.";

}  // namespace brisko::lab
