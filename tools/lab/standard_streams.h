// tools/lab/standard_streams.h
#pragma once

#include "sim/generate/campaign.h"

namespace brisko::lab {

// Results go to standard output and progress to standard error, each text at once.
[[nodiscard]] Output outputToStandardStreams();

}  // namespace brisko::lab
