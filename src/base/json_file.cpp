#include "base/json_file.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <nlohmann/json.hpp>
#include <vector>

namespace brisko {
namespace {

constexpr std::ptrdiff_t deepestNesting = 512;  // levels

// Where the string that begins at `index` ends; the end of `json` if it does not end.
std::size_t closingQuote(std::string_view json, std::size_t index) {
  for (++index; index < json.size() && json[index] != '"'; ++index) {
    if (json[index] == '\\') ++index;
  }
  return index;
}

// Checked before parsing, because parsing a deeply nested value takes stack. Brackets inside strings do not
// count.
bool nestsTooDeep(std::string_view json) {
  std::ptrdiff_t depth = 0;
  for (std::size_t index = 0; index < json.size(); ++index) {
    const char character = json[index];
    if (character == '"') {
      index = closingQuote(json, index);
    } else if (character == '[' || character == '{') {
      if (++depth > deepestNesting) return true;
    } else if (character == ']' || character == '}') {
      --depth;
    }
  }
  return false;
}

// ---- Numbers beyond a double: the parser rejects them, but they must be read as infinite.

bool beginsANumber(char character) { return character == '-' || (character >= '0' && character <= '9'); }

// The parser reads it in two halves, neither of which can be too large.
bool isNumber(std::string_view text) {
  const std::size_t exponent = text.find_first_of("eE");
  const std::string digits = std::string(text.substr(0, exponent)) + "e-99999999";
  if (!Json::accept(digits)) return false;
  return exponent == std::string_view::npos || Json::accept("0e" + std::string(text.substr(exponent + 1)));
}

// None if the parser accepts `text`, or if it is not a number.
std::optional<double> infiniteNumber(std::string_view text) {
  if (Json::accept(text) || !isNumber(text)) return std::nullopt;
  constexpr double infinity = std::numeric_limits<double>::infinity();
  return text.front() == '-' ? -infinity : infinity;
}

struct InfiniteNumbers {
  std::string finite;          // the text, with each of these numbers replaced by zero
  std::vector<double> values;  // one for each number of the text, in order; 0 for those that are finite
};

// Extracts what may be a number; the parser decides whether it is one.
InfiniteNumbers takeOutInfiniteNumbers(std::string_view json) {
  InfiniteNumbers taken;
  std::size_t copied = 0;
  for (std::size_t index = 0; index < json.size(); ++index) {
    if (json[index] == '"') index = closingQuote(json, index);
    if (index >= json.size() || !beginsANumber(json[index])) continue;
    const std::size_t end = std::min(json.find_first_not_of("+-.0123456789eE", index), json.size());
    const auto infinite = infiniteNumber(json.substr(index, end - index));
    taken.values.push_back(infinite.value_or(0));
    if (infinite) {
      taken.finite.append(json, copied, index - copied).append("0");
      copied = end;
    }
    index = end - 1;
  }
  taken.finite.append(json, copied);
  return taken;
}

Json parseWithInfiniteNumbers(std::string_view json) {
  const InfiniteNumbers numbers = takeOutInfiniteNumbers(json);
  auto value = numbers.values.begin();
  const auto putBack = [&](int, Json::parse_event_t event, Json& parsed) {
    if (event != Json::parse_event_t::value || !parsed.is_number()) return true;
    if (*value != 0) parsed = *value;
    ++value;
    return true;
  };
  return Json::parse(numbers.finite, putBack, false);
}

Json parse(std::string_view json) {
  try {
    return Json::parse(json);
  } catch (const Json::out_of_range&) {
    return parseWithInfiniteNumbers(json);
  } catch (const Json::parse_error&) {
    return Json::value_t::discarded;
  }
}

// Whether every number in `value` is finite.
bool isFinite(const Json& value) {
  if (value.is_structured()) return std::all_of(value.begin(), value.end(), isFinite);
  return !value.is_number_float() || std::isfinite(value.get<double>());
}

// Null when `object` is not an object or has no such key.
const Json* valueAt(const Json& object, const char* key) {
  const auto entry = object.find(key);
  return entry == object.end() ? nullptr : &*entry;
}

}  // namespace

std::optional<Json> parseJson(std::string_view text) {
  // The parser would treat a zero byte as the end of the text.
  if (text.find('\0') != std::string_view::npos) return std::nullopt;
  if (nestsTooDeep(text)) return std::nullopt;
  Json value = parse(text);
  if (value.is_discarded()) return std::nullopt;
  return value;
}

std::optional<Json> readJsonObject(const std::string& path) {
  const std::optional<std::string> bytes = readWholeFile(path);
  if (!bytes) return std::nullopt;
  std::optional<Json> value = parseJson(*bytes);
  if (!value || !value->is_object()) return std::nullopt;
  return value;
}

std::optional<std::string> jsonText(const Json& value) {
  if (!isFinite(value)) return std::nullopt;  // JSON has no such number: null would be written in its place
  try {
    return value.dump();
  } catch (const Json::exception&) {  // the text is not UTF-8
    return std::nullopt;
  }
}

void writeJsonFile(const std::string& path, const Json& value) {
  const std::optional<std::string> text = jsonText(value);
  if (!text) return;
  // A failed write loses only this file's content: the readers treat it as a missing file.
  static_cast<void>(overwriteFile(path, *text));
}

std::optional<bool> booleanAt(const Json& object, const char* key) {
  const Json* value = valueAt(object, key);
  if (value == nullptr || !value->is_boolean()) return std::nullopt;
  return value->get<bool>();
}

std::optional<std::int64_t> integerAt(const Json& object, const char* key) {
  const Json* value = valueAt(object, key);
  if (value == nullptr || !value->is_number_integer()) return std::nullopt;
  constexpr auto largest = static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max());
  if (value->is_number_unsigned() && value->get<std::uint64_t>() > largest) return std::nullopt;
  return value->get<std::int64_t>();
}

std::optional<double> doubleAt(const Json& object, const char* key) {
  const Json* value = valueAt(object, key);
  if (value == nullptr || !value->is_number_float()) return std::nullopt;
  return value->get<double>();
}

std::optional<double> numberAt(const Json& object, const char* key) {
  const Json* value = valueAt(object, key);
  if (value == nullptr || !value->is_number()) return std::nullopt;
  return value->get<double>();
}

}  // namespace brisko
