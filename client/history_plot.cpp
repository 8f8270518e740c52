#include "client/history_plot.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <optional>
#include <string_view>

#include "client/local_time.h"

namespace brisko::client {
namespace {

constexpr std::size_t rows = 8;
constexpr std::size_t axisWidth = 5;  // "100 |"

// The average charge of the time that each column stands for; none where nothing was recorded.
class Columns {
 public:
  Columns(const std::vector<lab::Moment>& samples, std::size_t count)
      : begin_(samples.front().time),
        width_(std::max(samples.back().time - begin_, 1.0) / static_cast<double>(count)),
        sums_(count, 0),
        seconds_(count, 0) {
    for (std::size_t index = 0; index < samples.size(); ++index) {
      const bool isLast = index + 1 == samples.size() || samples[index + 1].afterGap;
      // A single sample still shows.
      add(*samples[index].level, samples[index].time,
          isLast ? samples[index].time + 1 : samples[index + 1].time);
    }
  }

  [[nodiscard]] std::optional<double> average(std::size_t column) const {
    if (seconds_[column] <= 0) return std::nullopt;
    return sums_[column] / seconds_[column];
  }

 private:
  void add(double level, double from, double until) {
    for (std::size_t column = columnAt(from); column < sums_.size(); ++column) {
      const double left = begin_ + width_ * static_cast<double>(column);
      const double seconds = std::min(until, left + width_) - std::max(from, left);
      if (seconds <= 0) return;
      sums_[column] += level * seconds;
      seconds_[column] += seconds;
    }
  }

  [[nodiscard]] std::size_t columnAt(double time) const {
    return std::min(static_cast<std::size_t>((time - begin_) / width_), sums_.size() - 1);
  }

  double begin_;
  double width_;  // seconds
  std::vector<double> sums_;
  std::vector<double> seconds_;
};

// How a cell is filled, from empty to full.
std::string_view cellText(double share, bool unicode) {
  constexpr std::array<std::string_view, 9> blocks{" ", "▁", "▂", "▃", "▄", "▅", "▆", "▇", "█"};
  constexpr std::array<std::string_view, 4> plain{" ", ".", ":", "#"};
  const double filled = std::clamp(share, 0.0, 1.0);
  if (unicode) return blocks.at(static_cast<std::size_t>(std::lround(filled * 8)));
  return plain.at(static_cast<std::size_t>(std::lround(filled * 3)));
}

std::string rowText(const Columns& columns, std::size_t count, std::size_t row, bool unicode) {
  std::string text = row == rows ? "100 |" : row == rows / 2 ? " 50 |" : "    |";
  for (std::size_t column = 0; column < count; ++column) {
    const auto level = columns.average(column);
    const double filled = level ? *level / 100 * static_cast<double>(rows) - static_cast<double>(row - 1) : 0;
    // An empty battery was recorded as well.
    const bool isLowest = level && row == 1;
    text += cellText(isLowest ? std::max(filled, unicode ? 0.125 : 0.34) : filled, unicode);
  }
  return text.substr(0, text.find_last_not_of(' ') + 1) + "\n";
}

std::string labelOf(double time, bool withClock) {
  return withClock ? stampText(time).substr(11, 5) : dateText(time);
}

}  // namespace

std::string plotText(const std::vector<lab::Moment>& samples, const OutputStyle& style) {
  const std::size_t count = std::clamp<std::size_t>(style.width, 40, 80) - axisWidth - 1;
  const Columns columns(samples, count);
  std::string text;
  for (std::size_t row = rows; row > 0; --row) text += rowText(columns, count, row, style.unicode);
  text += "  0 +" + std::string(count, '-') + "\n";
  const double from = samples.front().time;
  const double until = samples.back().time;
  const bool withClock = dayText(from) == dayText(until);
  const std::string left = labelOf(from, withClock);
  const std::string right = labelOf(until, withClock);
  return text + std::string(axisWidth, ' ') + left + std::string(count - left.size() - right.size(), ' ') +
         right + "\n";
}

}  // namespace brisko::client
