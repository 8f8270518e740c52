#include "sim/seam/news.h"

#include <atomic>

namespace brisko::virtual_mac {
namespace {

// Live, several threads ask.
std::atomic<bool> gAlone{false};
std::atomic<std::uint64_t> gNews{1};

}  // namespace

void beAlone() { gAlone = true; }

void expectNews() { gNews.fetch_add(1, std::memory_order_relaxed); }

bool NewsReader::mayHaveNews() {
  constexpr unsigned mostUnasked = 255;
  if (!gAlone.load(std::memory_order_relaxed)) return true;
  const std::uint64_t news = gNews.load(std::memory_order_relaxed);
  if (seen_ == news && ++unasked_ <= mostUnasked) return false;
  seen_ = news;
  unasked_ = 0;
  return true;
}

}  // namespace brisko::virtual_mac
