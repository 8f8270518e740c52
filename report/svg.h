// report/svg.h
// Elements of an SVG drawing as text. Positions are in units of the drawing.
#pragma once

#include <string>

namespace brisko::lab::svg {

[[nodiscard]] std::string attribute(const char* name, const std::string& value);
[[nodiscard]] std::string attribute(const char* name, double value);

[[nodiscard]] std::string rectangle(const char* style, double left, double top, double right, double bottom);
[[nodiscard]] std::string line(const char* style, double x1, double y1, double x2, double y2);
[[nodiscard]] std::string label(const std::string& style, double x, double y, const std::string& text);

// Empty without steps.
[[nodiscard]] std::string path(const std::string& style, const std::string& steps);

// A rectangle as steps of a path. One too narrow to be seen is widened.
[[nodiscard]] std::string box(double left, double top, double right, double bottom);

}  // namespace brisko::lab::svg
