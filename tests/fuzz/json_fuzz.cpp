// Another JSON reader accepts what ours accepts; the value can be written and reads back the same, unless a
// number in it is infinite.
#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <nlohmann/json.hpp>

#include <rapidjson/memorystream.h>
#include <rapidjson/reader.h>

#include "base/json_file.h"
#include "fuzz/require.h"
#include "fuzz/target.h"

namespace brisko::json_fuzz {
namespace {

// The depth of nesting as the other reader reports it, and whether a number is beyond every double.
struct Shape : rapidjson::BaseReaderHandler<rapidjson::UTF8<>, Shape> {
  bool RawNumber(const char* digits, rapidjson::SizeType length, bool) {
    if (!std::isfinite(std::strtod(std::string(digits, length).c_str(), nullptr))) infinite = true;
    return true;
  }
  bool StartObject() { return enter(); }
  bool StartArray() { return enter(); }
  bool EndObject(rapidjson::SizeType) { return leave(); }
  bool EndArray(rapidjson::SizeType) { return leave(); }
  bool enter() {
    deepest = std::max(deepest, ++now);
    return true;
  }
  bool leave() {
    --now;
    return true;
  }
  int now = 0;
  int deepest = 0;
  bool infinite = false;
};

enum class OtherResult { noJson, json, jsonWithInfiniteNumbers };

// Missing if the other reader rejects a number because of its huge exponent.
std::optional<OtherResult> readWithOther(std::string_view text) {
  constexpr int mostLevels = 512;
  constexpr unsigned flags = rapidjson::kParseIterativeFlag | rapidjson::kParseValidateEncodingFlag |
                             rapidjson::kParseNumbersAsStringsFlag;
  rapidjson::MemoryStream stream(text.data(), text.size());
  rapidjson::Reader reader;
  Shape shape;
  const rapidjson::ParseResult result = reader.Parse<flags>(stream, shape);
  if (result.Code() == rapidjson::kParseErrorNumberTooBig) return std::nullopt;
  if (result.IsError() || shape.deepest > mostLevels) return OtherResult::noJson;
  return shape.infinite ? OtherResult::jsonWithInfiniteNumbers : OtherResult::json;
}

bool holdsInfiniteNumber(const Json& value) {
  if (value.is_structured()) return std::any_of(value.begin(), value.end(), holdsInfiniteNumber);
  return value.is_number() && !std::isfinite(value.get<double>());
}

// Known differences of the two readers: the other one accepts half a surrogate pair, and no byte order mark.
bool isUndisputed(std::string_view text) {
  return text.find("\\u") == std::string_view::npos && !text.starts_with("\xEF\xBB\xBF") &&
         text.find('\0') == std::string_view::npos;
}

void tryText(std::string_view text) {
  const std::optional<Json> value = parseJson(text);
  const std::optional<OtherResult> other = readWithOther(text);
  if (isUndisputed(text) && other) require(value.has_value() == (*other != OtherResult::noJson));
  if (!value) return;
  const std::optional<std::string> written = jsonText(*value);
  require(written.has_value() != holdsInfiniteNumber(*value));
  // The last of duplicate keys may have replaced it.
  if (!written) return require(!other || *other != OtherResult::json);
  const std::optional<Json> again = parseJson(*written);
  require(again.has_value());
  require(*again == *value);
  require(jsonText(*again) == written);
}

const FuzzTarget target("json", tryText);

}  // namespace
}  // namespace brisko::json_fuzz
