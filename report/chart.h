// report/chart.h
// A picture drawn as SVG: the charge and the band, the states of daemon and hardware, current and
// temperature, and the events, all over one time axis. It needs no script and no external files, and works on
// light and dark backgrounds.
#pragma once

#include <string>
#include <vector>

#include "report/panel_drawing.h"
#include "report/picture.h"
#include "report/scale.h"

namespace brisko::lab {

struct Chart {
  std::string svg;
  Scale time;                   // in units of the drawing
  double width = 0;             // of the drawing
  Scale charge;                 // likewise
  std::vector<Moment> moments;  // the ones that the curves go through
};

// The picture must have at least one moment.
[[nodiscard]] Chart drawChart(const Picture& picture, Frame frame, const Layout& layout = {});

// The word for each value of a moment; "" if unknown.
[[nodiscard]] std::string stateWord(const std::optional<ChargeState>& state);
[[nodiscard]] std::string lightWord(const std::optional<Light>& light);
[[nodiscard]] std::string supplyWord(const std::optional<Supply>& supply);
[[nodiscard]] std::string wakefulnessWord(const std::optional<Wakefulness>& wakefulness);
[[nodiscard]] std::string occasionWord(Occasion occasion);

// True for the summary lines that the log gets with every percent.
[[nodiscard]] bool isSummary(const std::string& line);
[[nodiscard]] bool isWarning(const std::string& line);

// Describes the whole picture in three sentences, for readers who cannot see it.
[[nodiscard]] std::string summaryOf(const Picture& picture);

}  // namespace brisko::lab
