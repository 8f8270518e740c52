#include "report/svg.h"

#include <algorithm>

#include "report/markup.h"

namespace brisko::lab::svg {

std::string attribute(const char* name, const std::string& value) {
  return std::string(" ") + name + "=\"" + value + "\"";
}

std::string attribute(const char* name, double value) { return attribute(name, coordinate(value)); }

std::string rectangle(const char* style, double left, double top, double right, double bottom) {
  return std::string("<rect") + attribute("class", style) + attribute("x", left) + attribute("y", top) +
         attribute("width", right - left) + attribute("height", bottom - top) + "/>\n";
}

std::string line(const char* style, double x1, double y1, double x2, double y2) {
  return std::string("<line") + attribute("class", style) + attribute("x1", x1) + attribute("y1", y1) +
         attribute("x2", x2) + attribute("y2", y2) + "/>\n";
}

std::string label(const std::string& style, double x, double y, const std::string& text) {
  return "<text" + attribute("class", style) + attribute("x", x) + attribute("y", y) + ">" + escaped(text) +
         "</text>\n";
}

std::string path(const std::string& style, const std::string& steps) {
  return steps.empty() ? "" : "<path" + attribute("class", style) + attribute("d", steps) + "/>\n";
}

std::string box(double left, double top, double right, double bottom) {
  constexpr double narrowest = 0.6;
  return "M" + coordinate(left) + " " + coordinate(top) + "h" +
         coordinate(std::max(right - left, narrowest)) + "v" + coordinate(bottom - top) + "h" +
         coordinate(-std::max(right - left, narrowest)) + "z";
}

}  // namespace brisko::lab::svg
