// sim/scenario/strict_json.h
// Reads JSON written by people strictly: reports every mistake at once, each with its file, its line, its
// place and what was expected there.
#pragma once

#include <cstdint>
#include <map>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace brisko::lab {

using Json = nlohmann::json;

// The mistakes found in one file.
class Diagnostics {
 public:
  explicit Diagnostics(std::string file) : file_(std::move(file)) {}

  // `place` is a JSON pointer, "" for the whole file.
  void add(const std::string& place, const std::string& what);
  [[nodiscard]] bool none() const { return texts_.empty(); }
  [[nodiscard]] const std::vector<std::string>& texts() const { return texts_; }
  [[nodiscard]] const std::string& file() const { return file_; }

  // The line of the place, or of the nearest place around it; 0 when unknown.
  [[nodiscard]] int lineOf(std::string place) const;
  void setLines(std::map<std::string, int> lines) { lines_ = std::move(lines); }

 private:
  std::string file_;
  std::map<std::string, int> lines_;  // by JSON pointer
  std::vector<std::string> texts_;
};

// Parses the text. Returns none and adds to the diagnostics when the text is not JSON or an object has a key
// twice. Afterwards the diagnostics know the line of every place.
[[nodiscard]] std::optional<Json> parseStrictly(std::string_view text, Diagnostics& diagnostics);

// A value in a file, with its place. The readers below add to the diagnostics when the value does not fit.
class JsonCursor {
 public:
  JsonCursor(const Json& value, std::string pointer, Diagnostics& diagnostics)
      : value_(&value), pointer_(std::move(pointer)), diagnostics_(&diagnostics) {}

  [[nodiscard]] const Json& value() const { return *value_; }
  [[nodiscard]] const std::string& pointer() const { return pointer_; }
  [[nodiscard]] Diagnostics& diagnostics() const { return *diagnostics_; }
  [[nodiscard]] JsonCursor at(const std::string& key) const;  // of an object that has the key
  [[nodiscard]] JsonCursor at(std::size_t index) const;

  [[nodiscard]] std::optional<std::string> text() const;
  [[nodiscard]] std::optional<bool> boolean() const;
  [[nodiscard]] std::optional<std::int64_t> integer(std::int64_t least, std::int64_t most) const;
  [[nodiscard]] std::optional<double> number(double least, double most) const;
  [[nodiscard]] std::optional<std::string> oneOf(const std::vector<std::string>& words) const;
  [[nodiscard]] std::vector<std::string> texts() const;  // of a list of texts, or one text
  // The members of an object. Names that are not among `known` are reported.
  [[nodiscard]] std::vector<JsonCursor> members(const std::vector<std::string>& known) const;
  [[nodiscard]] std::vector<JsonCursor> members() const;  // with any names
  [[nodiscard]] std::vector<JsonCursor> elements() const;
  [[nodiscard]] std::string name() const;  // the last part of the pointer, unescaped

  void expected(const std::string& what) const;  // reports "expected <what>, not <value>"
  void complain(const std::string& what) const;

 private:
  const Json* value_;
  std::string pointer_;
  Diagnostics* diagnostics_;
};

// "one, two or three"
[[nodiscard]] std::string listOf(const std::vector<std::string>& words);
// The value as text, truncated when it is long.
[[nodiscard]] std::string shown(const Json& value);
// A number as people write it: no decimal point where none is needed.
[[nodiscard]] std::string plainNumber(double number);

}  // namespace brisko::lab
