// client/output.h
// What brisko prints: text for a terminal, plain text for a pipe, or one JSON object.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "base/json_file.h"

namespace brisko::client {

struct OutputStyle {
  bool color = false;
  bool unicode = true;     // else "–", "°" and the like are written in ASCII
  std::size_t width = 80;  // columns
  bool terminal = false;
};

// By the terminal, the locale and NO_COLOR.
[[nodiscard]] OutputStyle styleOfStandardOutput(bool noColor);

// `text` with every character that is not ASCII replaced by a similar one.
[[nodiscard]] std::string inAscii(std::string_view text);

// How many columns the text takes.
[[nodiscard]] std::size_t columnsOf(std::string_view text);

// Breaks lines between words so that none is longer than `width`; continued lines begin with `indent` blanks.
[[nodiscard]] std::string wrapped(const std::string& text, std::size_t width, std::size_t indent = 0);

// In bold.
[[nodiscard]] std::string highlighted(const std::string& text);

// Every line of standard output and standard error is written by these. What a file contains may be in any of
// them, so none passes on a control character other than those of highlighted(). A closed pipe is not a
// failure; the rest of the output is dropped.
class Output {
 public:
  explicit Output(OutputStyle style, bool quiet) : style_(style), quiet_(quiet) {}

  [[nodiscard]] const OutputStyle& style() const { return style_; }

  void line(const std::string& text) const;    // an answer; with a line feed
  void lines(const std::string& text) const;   // several, each with its line feed
  void remark(const std::string& text) const;  // not printed with --quiet
  void raw(std::string_view bytes) const;      // as they are, unless it is to a terminal
  void clearTerminal() const;
  void json(const Json& object) const;           // one object on a line
  void complain(const std::string& text) const;  // "brisko: …" on standard error
  [[nodiscard]] bool isClosed() const;           // nobody reads standard output any longer
  // Writes what is still buffered. False when it could not be written, other than to a closed pipe.
  [[nodiscard]] bool flush() const;

 private:
  void write(std::string_view bytes) const;
  OutputStyle style_;
  bool quiet_;
  mutable int error_ = 0;  // of the first failed write
};

}  // namespace brisko::client
