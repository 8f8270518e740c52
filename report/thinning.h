// report/thinning.h
// Fewer moments than there are, without losing what an eye would look for.
#pragma once

#include <vector>

#include "report/picture.h"

namespace brisko::lab {

// As they are when there are no more than `enough`. Else the time is cut into `columns` equal pieces, and of
// each piece these are kept: its first and its last moment, those where the level, the current, the power or
// the temperature is lowest and highest, and both sides of a gap.
[[nodiscard]] std::vector<Moment> thinned(const std::vector<Moment>& moments, std::size_t enough,
                                          std::size_t columns);

}  // namespace brisko::lab
