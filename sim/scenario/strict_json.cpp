#include "sim/scenario/strict_json.h"

#include <algorithm>
#include <cstdio>
#include <iterator>
#include <set>

namespace brisko::lab {
namespace {

// No file written by people nests deeper, and every level costs stack and memory for its pointer.
constexpr std::size_t mostLevels = 64;

std::string escaped(std::string_view key) {
  std::string text;
  for (const char letter : key) {
    if (letter == '~') {
      text += "~0";
    } else if (letter == '/') {
      text += "~1";
    } else {
      text += letter;
    }
  }
  return text;
}

// Records the line on which each value begins or, for a list or an object, opens. When the parser reports
// something it has read up to `*read` bytes of the text, and the last of them may lie beyond the value.
class LineReader {
 public:
  LineReader(std::string_view text, const std::size_t& read, Diagnostics& diagnostics)
      : text_(text), read_(&read), diagnostics_(&diagnostics) {}

  bool null() { return value(); }
  bool boolean(bool) { return value(); }
  bool number_integer(Json::number_integer_t) { return value(); }
  bool number_unsigned(Json::number_unsigned_t) { return value(); }
  bool number_float(Json::number_float_t, const std::string&) { return value(); }
  bool string(std::string&) { return value(); }
  bool binary(Json::binary_t&) { return value(); }
  bool start_object(std::size_t) { return open(false); }
  bool start_array(std::size_t) { return open(true); }
  bool end_object() { return close(); }
  bool end_array() { return close(); }
  bool key(std::string& name) {
    Level& level = levels_.back();
    level.key = level.pointer + "/" + escaped(name);
    if (!level.names.insert(name).second) duplicates_.push_back(level.key);
    lines_[level.key] = line();
    return true;
  }
  bool parse_error(std::size_t, const std::string&, const nlohmann::detail::exception& error) {
    // "[json.exception.parse_error.101] parse error at line 3, column 5: …"
    const std::string what = error.what();
    const std::size_t from = what.find("parse error");
    diagnostics_->add("", "it is no JSON: " + (from == std::string::npos ? what : what.substr(from)));
    return false;
  }

  void finish() {
    diagnostics_->setLines(std::move(lines_));
    for (const std::string& place : duplicates_) diagnostics_->add(place, "stands there twice");
  }

 private:
  struct Level {
    std::string pointer;
    bool isList;
    std::size_t index;
    std::string key;
    std::set<std::string> names;
  };

  // Counts forward only, because the text is read in order.
  int line() {
    const std::size_t end = std::min(text_.size(), *read_ > 0 ? *read_ - 1 : 0);
    line_ += static_cast<int>(std::count(text_.begin() + static_cast<std::ptrdiff_t>(counted_),
                                         text_.begin() + static_cast<std::ptrdiff_t>(end), '\n'));
    counted_ = end;
    return line_;
  }
  std::string next() {
    if (levels_.empty()) return "";
    Level& level = levels_.back();
    return level.isList ? level.pointer + "/" + std::to_string(level.index++) : level.key;
  }
  bool value() {
    lines_.emplace(next(), line());
    return true;
  }
  bool open(bool isList) {
    std::string pointer = next();
    if (levels_.size() == mostLevels) {
      diagnostics_->add("", "line " + std::to_string(line()) + " nests too deep");
      return false;
    }
    lines_.emplace(pointer, line());
    levels_.push_back({std::move(pointer), isList, 0, "", {}});
    return true;
  }
  bool close() {
    levels_.pop_back();
    return true;
  }

  std::string_view text_;
  const std::size_t* read_;
  Diagnostics* diagnostics_;
  std::vector<Level> levels_;
  std::map<std::string, int> lines_;
  std::vector<std::string> duplicates_;
  std::size_t counted_ = 0;
  int line_ = 1;
};

// Iterates over the text and counts the bytes.
class CountingIterator {
 public:
  using iterator_category = std::input_iterator_tag;
  using value_type = char;
  using difference_type = std::ptrdiff_t;
  using pointer = const char*;
  using reference = const char&;

  CountingIterator(const char* at, std::size_t* read) : at_(at), read_(read) {}
  reference operator*() const { return *at_; }
  CountingIterator& operator++() {
    ++at_;
    ++*read_;
    return *this;
  }
  CountingIterator operator++(int) {
    CountingIterator before = *this;
    ++*this;
    return before;
  }
  bool operator==(const CountingIterator& other) const { return at_ == other.at_; }
  bool operator!=(const CountingIterator& other) const { return at_ != other.at_; }

 private:
  const char* at_;
  std::size_t* read_;
};

}  // namespace

void Diagnostics::add(const std::string& place, const std::string& what) {
  std::string text = file_;
  if (const int line = lineOf(place); line > 0) text += ":" + std::to_string(line);
  text += ": ";
  if (!place.empty()) text += place + ": ";
  texts_.push_back(text + what);
}

int Diagnostics::lineOf(std::string place) const {
  while (true) {
    const auto found = lines_.find(place);
    if (found != lines_.end()) return found->second;
    if (place.empty()) return 0;
    place.erase(place.rfind('/'));
  }
}

std::optional<Json> parseStrictly(std::string_view text, Diagnostics& diagnostics) {
  std::size_t read = 0;
  LineReader lines(text, read, diagnostics);
  const CountingIterator begin(text.data(), &read);
  const CountingIterator end(text.data() + text.size(), &read);
  if (!Json::sax_parse(begin, end, &lines)) return std::nullopt;
  lines.finish();
  if (!diagnostics.none()) return std::nullopt;
  return Json::parse(text.begin(), text.end(), nullptr, false);
}

JsonCursor JsonCursor::at(const std::string& key) const {
  return {value_->at(key), pointer_ + "/" + escaped(key), *diagnostics_};
}

JsonCursor JsonCursor::at(std::size_t index) const {
  return {value_->at(index), pointer_ + "/" + std::to_string(index), *diagnostics_};
}

std::optional<std::string> JsonCursor::text() const {
  if (value_->is_string()) return value_->get<std::string>();
  expected("a text");
  return std::nullopt;
}

std::optional<bool> JsonCursor::boolean() const {
  if (value_->is_boolean()) return value_->get<bool>();
  expected("true or false");
  return std::nullopt;
}

std::optional<std::int64_t> JsonCursor::integer(std::int64_t least, std::int64_t most) const {
  if (value_->is_number_integer()) {
    const auto number = value_->get<std::int64_t>();
    if (number >= least && number <= most) return number;
  }
  expected("a whole number from " + std::to_string(least) + " to " + std::to_string(most));
  return std::nullopt;
}

std::optional<double> JsonCursor::number(double least, double most) const {
  if (value_->is_number()) {
    const auto number = value_->get<double>();
    if (number >= least && number <= most) return number;
  }
  expected("a number from " + plainNumber(least) + " to " + plainNumber(most));
  return std::nullopt;
}

std::optional<std::string> JsonCursor::oneOf(const std::vector<std::string>& words) const {
  if (value_->is_string()) {
    const auto word = value_->get<std::string>();
    if (std::find(words.begin(), words.end(), word) != words.end()) return word;
  }
  expected(listOf(words));
  return std::nullopt;
}

std::vector<std::string> JsonCursor::texts() const {
  if (value_->is_string()) return {value_->get<std::string>()};
  std::vector<std::string> all;
  if (!value_->is_array()) expected("a text or a list of texts");
  for (const JsonCursor& element : value_->is_array() ? elements() : std::vector<JsonCursor>{}) {
    if (const auto one = element.text()) all.push_back(*one);
  }
  return all;
}

std::vector<JsonCursor> JsonCursor::members(const std::vector<std::string>& known) const {
  std::vector<JsonCursor> all = members();
  std::erase_if(all, [&](const JsonCursor& member) {
    if (std::find(known.begin(), known.end(), member.name()) != known.end()) return false;
    member.complain("is not known here; known are " + listOf(known));
    return true;
  });
  return all;
}

std::vector<JsonCursor> JsonCursor::members() const {
  std::vector<JsonCursor> all;
  if (!value_->is_object()) {
    expected("an object");
    return all;
  }
  for (const auto& [key, ignored] : value_->items()) all.push_back(at(key));
  return all;
}

std::vector<JsonCursor> JsonCursor::elements() const {
  std::vector<JsonCursor> all;
  if (!value_->is_array()) {
    expected("a list");
    return all;
  }
  for (std::size_t index = 0; index < value_->size(); ++index) all.push_back(at(index));
  return all;
}

std::string JsonCursor::name() const {
  std::string text = pointer_.substr(pointer_.rfind('/') + 1);
  for (const auto& [code, letter] : {std::pair{"~1", "/"}, std::pair{"~0", "~"}}) {
    for (std::size_t at = text.find(code); at != std::string::npos; at = text.find(code, at + 1)) {
      text.replace(at, 2, letter);
    }
  }
  return text;
}

void JsonCursor::expected(const std::string& what) const {
  complain("expected " + what + ", not " + shown(*value_));
}
void JsonCursor::complain(const std::string& what) const { diagnostics_->add(pointer_, what); }

std::string listOf(const std::vector<std::string>& words) {
  std::string text;
  for (std::size_t index = 0; index < words.size(); ++index) {
    if (index > 0) text += index + 1 == words.size() ? " or " : ", ";
    text += words[index];
  }
  return text;
}

std::string shown(const Json& value) {
  constexpr std::size_t most = 120;
  std::string text = value.dump(-1, ' ', false, Json::error_handler_t::replace);
  if (text.size() > most) text = text.substr(0, most) + "…";
  return text;
}

std::string plainNumber(double number) {
  char text[40];
  static_cast<void>(std::snprintf(text, sizeof text, "%.10g", number));
  return text;
}

}  // namespace brisko::lab
