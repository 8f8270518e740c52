// What the JSON reader takes is JSON by another reader's judgement too; it can be written and reads back the
// same.
#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <nlohmann/json.hpp>

#include <rapidjson/memorystream.h>
#include <rapidjson/reader.h>

#include "base/json_file.h"
#include "fuzz/require.h"

namespace brisko {
namespace {

// How deep it nests, as the other reader tells of it; it stops at a number beyond every double.
struct Depth : rapidjson::BaseReaderHandler<rapidjson::UTF8<>, Depth> {
  bool RawNumber(const char* digits, rapidjson::SizeType length, bool) {
    return std::isfinite(std::strtod(std::string(digits, length).c_str(), nullptr));
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
};

// None where the other reader does not even look at the value: it takes no exponent that is out of all
// bounds.
std::optional<bool> isJson(std::string_view text) {
  constexpr int mostLevels = 512;
  constexpr unsigned flags = rapidjson::kParseIterativeFlag | rapidjson::kParseValidateEncodingFlag |
                             rapidjson::kParseNumbersAsStringsFlag;
  rapidjson::MemoryStream stream(text.data(), text.size());
  rapidjson::Reader reader;
  Depth depth;
  const rapidjson::ParseResult result = reader.Parse<flags>(stream, depth);
  if (result.Code() == rapidjson::kParseErrorNumberTooBig) return std::nullopt;
  return !result.IsError() && depth.deepest <= mostLevels;
}

// Where the two readers are known to differ: the other one takes half a surrogate pair, and no byte order
// mark.
bool isUndisputed(std::string_view text) {
  return text.find("\\u") == std::string_view::npos && !text.starts_with("\xEF\xBB\xBF") &&
         text.find('\0') == std::string_view::npos;
}

void tryText(std::string_view text) {
  const std::optional<Json> value = parseJson(text);
  if (isUndisputed(text)) require(value.has_value() == isJson(text).value_or(value.has_value()));
  if (!value) return;
  const std::optional<std::string> written = jsonText(*value);
  require(written.has_value());
  const std::optional<Json> again = parseJson(*written);
  require(again.has_value());
  require(*again == *value);
  require(jsonText(*again) == written);
}

}  // namespace
}  // namespace brisko

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  brisko::tryText({reinterpret_cast<const char*>(data), size});
  return 0;
}
