// report/report.h
// A picture as one page that needs nothing else: the chart, the values at the moment that is pointed at, and
// the log beside it. To be looked at in a browser, in the light or in the dark, or to be printed.
#pragma once

#include <string>

#include "report/picture.h"

namespace brisko::lab {

// Of a picture with at least one moment.
[[nodiscard]] std::string reportPage(const Picture& picture);

}  // namespace brisko::lab
