#include "report/panel_drawing.h"

#include <algorithm>
#include <utility>

#include "report/markup.h"
#include "report/page_texts.h"
#include "report/svg.h"

namespace brisko::lab {
namespace {

std::vector<std::string> wrapped(const std::string& text, std::size_t most) {
  std::vector<std::string> lines{""};
  std::size_t begin = 0;
  while (begin <= text.size()) {
    const std::size_t end = std::min(text.find(' ', begin), text.size());
    const std::string word = text.substr(begin, end - begin);
    std::string& last = lines.back();
    if (!last.empty() && charactersOf(last) + 1 + charactersOf(word) > most) {
      lines.push_back(word);
    } else {
      last += (last.empty() ? "" : " ") + word;
    }
    begin = end + 1;
  }
  return lines;
}

Layout largeLetters(std::string name, double width, double left, double right, std::size_t timeTicks) {
  constexpr double letter = 7.4;
  const double margin = 32;
  return {.name = std::move(name),
          .width = width,
          .left = left,
          .right = right,
          .letter = letter,
          .titleHeight = 26,
          .zoneRight = left - 40,  // a time below the first line of the axis is as wide as that
          .lineHeight = 18,
          .rowHeight = 19,
          .baseline = 14,
          .timeTicks = timeTicks,
          .headingLetters = static_cast<std::size_t>((width - margin) / letter / 1.4),
          .textLetters = static_cast<std::size_t>((width - margin) / letter)};
}

}  // namespace

Layout narrowLayout() { return largeLetters("narrow", 360, 66, 352, 5); }
Layout mediumLayout() { return largeLetters("medium", 640, 72, 628, 8); }
Layout wideLayout() { return largeLetters("wide", 1000, 78, 986, 11); }

std::string chartPatterns() {
  const auto pattern = [](const std::string& name, const std::string& style, const std::string& steps) {
    return "<pattern id=\"" + name + "\" width=\"8\" height=\"8\" patternUnits=\"userSpaceOnUse\">" +
           "<rect class=\"" + style + "-ground\" width=\"8\" height=\"8\"/><path class=\"" + style +
           "-lines\" d=\"" + steps + "\"/></pattern>\n";
  };
  const std::string slanted = "M-2 10L10 -2M-2 2L2 -2M6 10L10 6";
  return "<defs>\n" + pattern("discharge-pattern", "discharge", slanted) +
         pattern("blinking-pattern", "blinking", "M2 0V8M6 0V8") + "</defs>\n";
}

PanelDrawing::PanelDrawing(Layout layout, Frame frame, double from, double until)
    : layout_(std::move(layout)),
      frame_(frame),
      time_{from, until, layout_.left, layout_.right},
      ticks_(timeTicks(from, until, layout_.timeTicks)) {}

double PanelDrawing::widthOf(const std::string& text) const {
  return layout_.letter * static_cast<double>(charactersOf(text));
}

void PanelDrawing::drawHeading(const Texts& texts) {
  if (frame_ != Frame::alone) return;
  y_ = 8;
  for (const std::string& words : wrapped(texts.title, layout_.headingLetters)) {
    y_ += 20;
    body_ += svg::label("heading", 16, y_, words);
  }
  y_ += 3;
  for (const std::string& words : wrapped(texts.facts + ". " + texts.summary, layout_.textLetters)) {
    y_ += layout_.lineHeight;
    body_ += svg::label("facts", 16, y_, words);
  }
  y_ += 6;
}

double PanelDrawing::nextPanelTop() const { return y_ + layout_.titleHeight; }

Scale PanelDrawing::beginPanel(const std::string& title, double height, const Extent& extent, double step,
                               const std::string& behind) {
  const double top = nextPanelTop();
  const double bottom = top + height;
  body_ += svg::label("title", layout_.left, top - 5, title);
  const Scale scale{extent.from, extent.until, bottom, top};
  body_ += svg::rectangle("plot", layout_.left, top, layout_.right, bottom) + behind;
  std::string lines;
  for (const double value : multiples(extent.from, extent.until, step)) {
    const double y = scale.at(value);
    lines += "M" + coordinate(layout_.left) + " " + coordinate(y) + "H" + coordinate(layout_.right);
    body_ += svg::label("value", layout_.left - 6, y + 4, fixed(value, step < 1 ? 1 : 0));
  }
  body_ += svg::path("grid", lines) + svg::path("grid", timeLines(top, bottom, false)) +
           svg::path("midnight", timeLines(top, bottom, true));
  y_ = bottom;
  panelsBottom_ = bottom;
  return scale;
}

double PanelDrawing::valueStep(double span, double height, double least) const {
  return roundStep(span, static_cast<std::size_t>(height / (layout_.lineHeight + 1)), least);
}

// The lines of the ticks at midnight, or those of the others.
std::string PanelDrawing::timeLines(double top, double bottom, bool midnight) const {
  std::string lines;
  for (const TimeTick& tick : ticks_) {
    if ((tick.clock == "00:00" || tick.clock == "00:00:00") != midnight) continue;
    lines += "M" + coordinate(xOf(tick.time)) + " " + coordinate(top) + "V" + coordinate(bottom);
  }
  return lines;
}

double PanelDrawing::tickX(const TimeTick& tick, const std::string& text) const {
  return std::min(xOf(tick.time), layout_.width - 4 - widthOf(text) / 2);
}

// The ticks with the name of a day below the time. Of two that would overlap, the later one has it: the first
// of all may lie in the middle of its day.
std::vector<bool> PanelDrawing::ticksWithDay() const {
  std::vector<bool> chosen(ticks_.size(), false);
  std::size_t last = ticks_.size();
  for (std::size_t index = 0; index < ticks_.size(); ++index) {
    const TimeTick& tick = ticks_[index];
    if (tick.clock.empty() || tick.day.empty()) continue;
    const auto halfWidth = [&](const TimeTick& other) { return widthOf(other.day) / 2; };
    const bool overlaps = last < index && tickX(ticks_[last], ticks_[last].day) + halfWidth(ticks_[last]) >
                                              tickX(tick, tick.day) - halfWidth(tick);
    if (overlaps) chosen[last] = false;
    chosen[index] = true;
    last = index;
  }
  return chosen;
}

void PanelDrawing::drawTimeAxis() {
  const double line = layout_.lineHeight - 1;
  y_ += line;
  const std::vector<bool> withDay = ticksWithDay();
  for (std::size_t index = 0; index < ticks_.size(); ++index) {
    const TimeTick& tick = ticks_[index];
    const std::string& text = tick.clock.empty() ? tick.day : tick.clock;
    body_ += svg::label("tick", tickX(tick, text), y_, text);
    if (withDay[index]) body_ += svg::label("tick day", tickX(tick, tick.day), y_ + line, tick.day);
  }
  const std::string zone = zoneText(time_.from);
  if (widthOf(zone) <= layout_.zoneRight) body_ += svg::label("row", layout_.zoneRight, y_, zone);
  if (std::find(withDay.begin(), withDay.end(), true) != withDay.end()) y_ += line;
}

void PanelDrawing::drawNotes(const std::vector<std::string>& notes) {
  if (frame_ != Frame::alone) return;
  for (const std::string& note : notes) {
    for (const std::string& words : wrapped(note, layout_.textLetters)) {
      y_ += layout_.lineHeight;
      body_ += svg::label("note", 16, y_ + 6, words);
    }
  }
}

std::string PanelDrawing::document(const Texts& texts) const {
  const double height = y_ + 14;
  const bool isLarge = !layout_.name.empty();
  const std::string id = isLarge ? "-" + layout_.name : "";
  std::string text;
  if (frame_ == Frame::alone) text += "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n";
  text += "<svg xmlns=\"http://www.w3.org/2000/svg\"" +
          svg::attribute("class", isLarge ? "picture large " + layout_.name : "picture") +
          svg::attribute("viewBox", "0 0 " + coordinate(layout_.width) + " " + coordinate(height));
  if (frame_ == Frame::alone)
    text += svg::attribute("width", layout_.width) + svg::attribute("height", height);
  text += " role=\"img\" aria-labelledby=\"picture-title" + id + " picture-words" + id +
          "\">\n<title id=\"picture-title" + id + "\">" + escaped(texts.title) +
          "</title>\n<desc id=\"picture-words" + id + "\">" + escaped(texts.summary) + "</desc>\n";
  if (frame_ != Frame::amongOthers)
    text +=
        std::string("<style>\n") + chartCss + (isLarge ? largeChartCss : "") + "</style>\n" + chartPatterns();
  return text + svg::rectangle("paper", 0, 0, layout_.width, height) + body_ + "</svg>\n";
}

}  // namespace brisko::lab
