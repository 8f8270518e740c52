#include "report/thinning.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <functional>
#include <optional>

namespace brisko::lab {
namespace {

using Number = std::optional<double> Moment::*;
using WholeNumber = std::optional<std::int64_t> Moment::*;
constexpr std::array<Number, 4> numbers{&Moment::level, &Moment::currentMA, &Moment::watts,
                                        &Moment::temperatureC};

// The index of the first in [begin, end) by `order`; none when no moment has the number.
template <class AnyNumber, class Order>
std::optional<std::size_t> outermost(const std::vector<Moment>& moments, std::size_t begin, std::size_t end,
                                     AnyNumber number, Order order) {
  std::optional<std::size_t> best;
  for (std::size_t index = begin; index < end; ++index) {
    const auto& value = moments[index].*number;
    if (value && (!best || order(*value, *(moments[*best].*number)))) best = index;
  }
  return best;
}

template <class AnyNumber>
void keepOutermost(const std::vector<Moment>& moments, std::size_t begin, std::size_t end, AnyNumber number,
                   std::vector<bool>& kept) {
  if (const auto least = outermost(moments, begin, end, number, std::less<>())) kept[*least] = true;
  if (const auto most = outermost(moments, begin, end, number, std::greater<>())) kept[*most] = true;
}

void keepOfColumn(const std::vector<Moment>& moments, std::size_t begin, std::size_t end, bool ofShownToo,
                  std::vector<bool>& kept) {
  kept[begin] = true;
  kept[end - 1] = true;
  for (const Number number : numbers) keepOutermost(moments, begin, end, number, kept);
  const WholeNumber shown = &Moment::shown;
  if (ofShownToo) keepOutermost(moments, begin, end, shown, kept);
}

}  // namespace

std::vector<Moment> thinned(const std::vector<Moment>& moments, std::size_t enough, std::size_t columns,
                            bool ofShownToo) {
  if (moments.size() <= enough) return moments;
  const double from = moments.front().time;
  const double columnWidth = (moments.back().time - from) / static_cast<double>(columns);
  std::vector<bool> kept(moments.size(), false);
  std::size_t begin = 0;
  for (std::size_t column = 1; column <= columns && begin < moments.size(); ++column) {
    const double border = from + columnWidth * static_cast<double>(column);
    std::size_t end = begin;
    while (end < moments.size() && (column == columns || moments[end].time < border)) ++end;
    if (end > begin) keepOfColumn(moments, begin, end, ofShownToo, kept);
    begin = end;
  }
  for (std::size_t index = 1; index < moments.size(); ++index) {
    if (moments[index].afterGap) kept[index - 1] = kept[index] = true;
  }
  std::vector<Moment> result;
  for (std::size_t index = 0; index < moments.size(); ++index) {
    if (kept[index]) result.push_back(moments[index]);
  }
  return result;
}

}  // namespace brisko::lab
