// sim/seam/news.h
// A process in virtual time is alone between two pauses: nobody else changes its files or sends it a signal.
// So it need not ask the kernel in every iteration whether somebody did. It asks only after it has itself
// done something that the kernel may report.
#pragma once

#include <cstdint>

namespace brisko::virtual_mac {

// Until this call every process asks in every iteration, because others may act on it at any moment.
void beAlone();

// The kernel may have something to report: the process was paused, works on files, or raised a signal.
void expectNews();

// For each place that asks the kernel.
class NewsReader {
 public:
  // Whether to ask now. True now and then in any case, because a person may press control-C.
  [[nodiscard]] bool mayHaveNews();

 private:
  std::uint64_t seen_ = 0;
  unsigned unasked_ = 0;
};

}  // namespace brisko::virtual_mac
