// report/report.h
// A picture as one self-contained page: the chart, the values at the selected moment, and the log beside it.
// For a browser, in light or dark mode, or for printing.
#pragma once

#include <string>

#include "report/picture.h"

namespace brisko::lab {

// The picture must have at least one moment.
[[nodiscard]] std::string reportPage(const Picture& picture);

}  // namespace brisko::lab
