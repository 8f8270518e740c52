#include "sim/scenario/strict_json.h"

#include <algorithm>
#include <cstdio>
#include <set>

#include <rapidjson/encodedstream.h>
#include <rapidjson/error/en.h>
#include <rapidjson/memorystream.h>
#include <rapidjson/reader.h>

namespace brisko::lab {
namespace {

// No file written by people nests deeper, and every level costs stack and memory for its pointer.
constexpr std::size_t mostLevels = 64;

using Stream = rapidjson::EncodedInputStream<rapidjson::UTF8<>, rapidjson::MemoryStream>;

int lineAt(std::string_view text, std::size_t offset) {
  const std::string_view before = text.substr(0, offset);
  return 1 + static_cast<int>(std::count(before.begin(), before.end(), '\n'));
}

// Records the line on which each value begins or, for a list or an object, opens.
class Places : public rapidjson::BaseReaderHandler<rapidjson::UTF8<>, Places> {
 public:
  Places(std::string_view text, const Stream& stream) : text_(text), stream_(&stream) {}

  bool Default() {
    begin();
    end();
    return true;
  }
  bool StartObject() { return open({.isList = false}); }
  bool StartArray() { return open({.isList = true}); }
  bool EndObject(rapidjson::SizeType) { return close(); }
  bool EndArray(rapidjson::SizeType) { return close(); }
  bool Key(const char* bytes, rapidjson::SizeType length, bool) {
    const std::string name(bytes, length);
    enter(name);
    lines_[pointer_] = line();
    if (!levels_.back().names.insert(name).second) duplicates_.push_back(pointer_);
    return true;
  }

  [[nodiscard]] bool tooDeep() const { return levels_.size() > mostLevels; }
  void finish(Diagnostics& diagnostics) {
    diagnostics.setLines(std::move(lines_));
    for (const std::string& place : duplicates_) diagnostics.add(place, "the key appears twice");
  }

 private:
  struct Level {
    bool isList;
    std::size_t next = 0;
    std::set<std::string> names = {};
  };

  // Counts forward only, because the text is read in order.
  int line() {
    const std::size_t to = stream_->Tell();
    line_ += lineAt(text_.substr(counted_), to - counted_) - 1;
    counted_ = to;
    return line_;
  }
  // A member of an object begins with its key, which is recorded already.
  void begin() {
    if (!levels_.empty() && !levels_.back().isList) return;
    if (!levels_.empty()) enter(std::to_string(levels_.back().next++));
    lines_.emplace(pointer_, line());
  }
  void end() {
    if (levels_.empty()) return;
    pointer_.resize(parents_.back());
    parents_.pop_back();
  }
  void enter(const std::string& name) {
    parents_.push_back(pointer_.size());
    pointer_ += (Json::json_pointer() / name).to_string();
  }
  bool open(const Level& level) {
    begin();
    levels_.push_back(level);
    return !tooDeep();
  }
  bool close() {
    levels_.pop_back();
    end();
    return true;
  }

  std::string_view text_;
  const Stream* stream_;
  std::string pointer_;               // to the value that is read, as text: it is needed for each
  std::vector<std::size_t> parents_;  // the lengths of the pointers to the values around it
  std::vector<Level> levels_;
  std::map<std::string, int> lines_;
  std::vector<std::string> duplicates_;
  std::size_t counted_ = 0;
  int line_ = 1;
};

}  // namespace

void Diagnostics::add(const std::string& place, const std::string& what) {
  addAtLine(lineOf(place), place.empty() ? what : place + ": " + what);
}

void Diagnostics::addAtLine(int line, const std::string& what) {
  texts_.push_back(file_ + (line > 0 ? ":" + std::to_string(line) : "") + ": " + what);
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
  rapidjson::MemoryStream bytes(text.data(), text.size());
  Stream stream(bytes);
  Places places(text, stream);
  rapidjson::Reader reader;
  const auto result = reader.Parse<rapidjson::kParseValidateEncodingFlag>(stream, places);
  // A zero byte would end the text for the parsers and hide the rest.
  const bool whole = !result.IsError() && stream.Tell() == text.size();
  const Json document =
      whole ? Json::parse(text.begin(), text.end(), nullptr, false) : Json(Json::value_t::discarded);
  if (document.is_discarded()) {
    const std::string why = places.tooDeep() ? "more than " + std::to_string(mostLevels) + " levels deep"
                            : result.IsError()
                                ? std::string("not valid JSON: ") + GetParseError_En(result.Code())
                                : "not valid JSON";
    diagnostics.addAtLine(lineAt(text, stream.Tell()), why);
    return std::nullopt;
  }
  places.finish(diagnostics);
  return diagnostics.none() ? std::optional(document) : std::nullopt;
}

JsonCursor JsonCursor::at(const std::string& key) const {
  return {value_->at(key), pointer_ / key, *diagnostics_};
}

std::vector<JsonCursor> JsonCursor::members() const {
  std::vector<JsonCursor> all;
  for (const auto& [key, member] : value_->items()) all.emplace_back(member, pointer_ / key, *diagnostics_);
  return all;
}

std::vector<JsonCursor> JsonCursor::elements() const {
  std::vector<JsonCursor> all;
  for (const Json& element : *value_) all.emplace_back(element, pointer_ / all.size(), *diagnostics_);
  return all;
}

std::vector<std::string> textsOf(const Json& value) {
  if (value.is_string()) return {value.get<std::string>()};
  return value.get<std::vector<std::string>>();
}

std::string contentOf(const Json& value) {
  return value.is_string() ? value.get<std::string>() : value.dump();
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
