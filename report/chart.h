// report/chart.h
// A picture drawn as SVG: the charge and the band, who wanted what, current and temperature, and what was
// done, all over one axis of time. It needs no script and nothing from elsewhere, and looks right in the
// light and in the dark.
#pragma once

#include <string>
#include <vector>

#include "report/picture.h"
#include "report/scale.h"

namespace brisko::lab {

// Alone it is a document of its own, with a heading; in a page it is an element of it.
enum class Frame { alone, inPage };

struct Chart {
  std::string svg;
  Scale time;                   // in the units of the drawing
  double width = 0;             // of the drawing
  Scale charge;                 // likewise
  std::vector<Moment> moments;  // the ones that the curves go through
};

// Of a picture with at least one moment.
[[nodiscard]] Chart drawChart(const Picture& picture, Frame frame);

// The words for what a moment shows; "" for what is not known.
[[nodiscard]] std::string stateWord(const std::optional<ChargeState>& state);
[[nodiscard]] std::string lightWord(const std::optional<Light>& light);
[[nodiscard]] std::string supplyWord(const std::optional<Supply>& supply);
[[nodiscard]] std::string wakefulnessWord(const std::optional<Wakefulness>& wakefulness);
[[nodiscard]] std::string occasionWord(Occasion occasion);

// A line of the log that only sums up how things stand, as one comes with every percent.
[[nodiscard]] bool isSummary(const std::string& line);
[[nodiscard]] bool isWarning(const std::string& line);

// Everything in three sentences, for those who cannot see it.
[[nodiscard]] std::string summaryOf(const Picture& picture);

}  // namespace brisko::lab
