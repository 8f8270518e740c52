// report/day_chart.h
// A chart for more time than curves can show: one bar for each day, from its lowest to its highest charge,
// and the hours that the battery was nearly full or hot.
#pragma once

#include "report/chart.h"
#include "report/history_summary.h"
#include "report/selection.h"

namespace brisko::lab {

// The chart has no moments; its `charge` is the axis of the bars.
[[nodiscard]] Chart drawDays(const HistorySummary& summary, const Texts& texts, Frame frame,
                             const Layout& layout);

// The days that the chart shows, each selected at its middle.
[[nodiscard]] Selection selectionOfDays(const HistorySummary& summary, const Chart& chart);

}  // namespace brisko::lab
