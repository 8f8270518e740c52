// report/panel_drawing.h
// What every chart is made of: panels above each other over one time axis, in a document of its own or in a
// page.
#pragma once

#include <string>
#include <vector>

#include "report/scale.h"

namespace brisko::lab {

// The sizes of a drawing, in its units, which are pixels at its natural size.
struct Layout {
  std::string name = {};  // a class of the drawing and the end of its ids; may be empty
  double width = 1000;
  double left = 80;  // of the panels
  double right = 986;
  double letter = 6.3;      // average width of a letter in the fonts that may be used
  double titleHeight = 18;  // of a panel's title
  double zoneRight = 50;    // where the name of the time zone ends
  double lineHeight = 15;
  double rowHeight = 15;
  double baseline = 11.5;  // of the text in a row, below its top
  std::size_t timeTicks = 12;
  std::size_t headingLetters = 100;  // in a line
  std::size_t textLetters = 150;
};

// Letters that are large enough for a page on any screen as long as the drawing is not made smaller: for
// windows of a phone, for paper and small windows, and for large ones.
[[nodiscard]] Layout narrowLayout();
[[nodiscard]] Layout mediumLayout();
[[nodiscard]] Layout wideLayout();

enum class Frame {
  alone,        // an SVG document with a heading
  inPage,       // an element of a page
  amongOthers,  // likewise; the page itself has the style sheet and the patterns
};

struct Texts {
  std::string title = {};
  std::string facts = {};    // below the title of a document of its own
  std::string summary = {};  // of the whole drawing, for readers who cannot see it
  std::vector<std::string> notes = {};
};

// The patterns that the style sheet of charts refers to.
[[nodiscard]] std::string chartPatterns();

class PanelDrawing {
 protected:
  PanelDrawing(Layout layout, Frame frame, double from, double until);
  ~PanelDrawing() = default;

  [[nodiscard]] double xOf(double time) const { return time_.at(time); }
  [[nodiscard]] double widthOf(const std::string& text) const;

  void drawHeading(const Texts& texts);
  // Begins a panel with this title and axis of values. `behind` is drawn below the lines of the axes.
  Scale beginPanel(const std::string& title, double height, const Extent& extent, double step,
                   const std::string& behind);
  // Where the next panel will be: below its title.
  [[nodiscard]] double nextPanelTop() const;
  // The step of an axis of values with room for its labels.
  [[nodiscard]] double valueStep(double span, double height, double least) const;
  void drawTimeAxis();
  void drawNotes(const std::vector<std::string>& notes);
  [[nodiscard]] std::string document(const Texts& texts) const;

  Layout layout_;
  Frame frame_;
  Scale time_;
  std::vector<TimeTick> ticks_;
  std::string body_;
  double y_ = 0;             // everything above it is drawn
  double panelsBottom_ = 0;  // of the last panel or row

 private:
  [[nodiscard]] std::string timeLines(double top, double bottom, bool midnight) const;
  [[nodiscard]] double tickX(const TimeTick& tick, const std::string& text) const;
  [[nodiscard]] std::vector<bool> ticksWithDay() const;
};

}  // namespace brisko::lab
