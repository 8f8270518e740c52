// report/thinning.h
// Reduces the number of moments without losing visible detail.
#pragma once

#include <vector>

#include "report/picture.h"

namespace brisko::lab {

// Returns the moments unchanged when there are at most `enough`. Otherwise the time is divided into `columns`
// equal parts, and of each part these are kept: its first and last moment, those with the lowest and highest
// level, current, power and temperature, and both sides of a gap; `ofShownToo`: and those with the lowest and
// highest charge that the gauge shows, which then is a curve of its own.
[[nodiscard]] std::vector<Moment> thinned(const std::vector<Moment>& moments, std::size_t enough,
                                          std::size_t columns, bool ofShownToo = false);

}  // namespace brisko::lab
