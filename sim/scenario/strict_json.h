// sim/scenario/strict_json.h
// Reads JSON written by people: every mistake is reported with its file, its line and its place.
#pragma once

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
  void addAtLine(int line, const std::string& what);
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

// A value in a file, with its place.
class JsonCursor {
 public:
  JsonCursor(const Json& value, Json::json_pointer pointer, Diagnostics& diagnostics)
      : value_(&value), pointer_(std::move(pointer)), diagnostics_(&diagnostics) {}

  [[nodiscard]] const Json& value() const { return *value_; }
  [[nodiscard]] std::string pointer() const { return pointer_.to_string(); }
  [[nodiscard]] Diagnostics& diagnostics() const { return *diagnostics_; }
  [[nodiscard]] const std::string& name() const { return pointer_.back(); }  // of a member
  [[nodiscard]] JsonCursor at(const std::string& key) const;                 // of an object that has the key
  [[nodiscard]] std::vector<JsonCursor> members() const;
  [[nodiscard]] std::vector<JsonCursor> elements() const;

  void addError(const std::string& what) const { diagnostics_->add(pointer(), what); }

 private:
  const Json* value_;
  Json::json_pointer pointer_;
  Diagnostics* diagnostics_;
};

// A text, or a list of texts.
[[nodiscard]] std::vector<std::string> textsOf(const Json& value);
// What a file contains: a text as it is, everything else as JSON.
[[nodiscard]] std::string contentOf(const Json& value);
// The value as text, truncated when it is long.
[[nodiscard]] std::string shown(const Json& value);
// A number as people write it: no decimal point where none is needed.
[[nodiscard]] std::string plainNumber(double number);

}  // namespace brisko::lab
