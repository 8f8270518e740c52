#include "sim/generate/processor_time.h"

#include <initializer_list>

#include <sys/resource.h>

namespace brisko::lab {

double processorSeconds() {
  double seconds = 0;
  for (const auto whose : {RUSAGE_SELF, RUSAGE_CHILDREN}) {
    rusage usage{};
    static_cast<void>(::getrusage(whose, &usage));
    for (const timeval& part : {usage.ru_utime, usage.ru_stime})
      seconds += static_cast<double>(part.tv_sec) + static_cast<double>(part.tv_usec) / 1e6;
  }
  return seconds;
}

}  // namespace brisko::lab
