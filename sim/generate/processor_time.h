// sim/generate/processor_time.h
#pragma once

namespace brisko::lab {

// Of this process and of its workers that have ended, seconds.
[[nodiscard]] double processorSeconds();

}  // namespace brisko::lab
