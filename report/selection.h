// report/selection.h
// The moments of a page that its reader can select, in the chart or on a slider, and the values that are then
// shown. What the script of the page reads.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "report/chart.h"

namespace brisko::lab {

struct Selectable {
  double time = 0;  // seconds since 1970
  double y = 0;     // of the point in the chart, in units of the drawing
  std::vector<std::string> values = {};
};

struct Selection {
  std::vector<Scale> pictures = {};  // the time axes of the page's pictures, in their order
  std::vector<std::string> names = {};
  std::vector<Selectable> moments = {};  // at least one, in order of time; each has a value for each name
};

// The moments that the curves of a chart go through, with every value that at least one of them has.
[[nodiscard]] Selection selectionOf(const Chart& chart, const std::optional<CurveNames>& curves = {});

// A slider, and the table of the values.
[[nodiscard]] std::string selectionControls(const Selection& selection);

// The data and the script, for the end of the page.
[[nodiscard]] std::string selectionScripts(const Selection& selection);

}  // namespace brisko::lab
