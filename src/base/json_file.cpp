#include "base/json_file.h"

#include <algorithm>
#include <cerrno>
#include <limits>
#include <nlohmann/json.hpp>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "base/files.h"

namespace brisko {
namespace {

constexpr std::size_t largestFile = 16U << 20U;  // bytes
constexpr std::ptrdiff_t deepestNesting = 512;   // levels

// Judged before parsing: working through a deeply nested value costs stack. Brackets inside texts are none.
bool nestsTooDeep(std::string_view text) {
  std::ptrdiff_t depth = 0;
  bool inText = false;
  for (std::size_t index = 0; index < text.size(); ++index) {
    const char character = text[index];
    if (inText) {
      if (character == '\\') ++index;
      if (character == '"') inText = false;
    } else if (character == '"') {
      inText = true;
    } else if (character == '[' || character == '{') {
      if (++depth > deepestNesting) return true;
    } else if (character == ']' || character == '}') {
      --depth;
    }
  }
  return false;
}

// Null when `object` is no object or has no such key.
const Json* valueAt(const Json& object, const char* key) {
  const auto entry = object.find(key);
  return entry == object.end() ? nullptr : &*entry;
}

}  // namespace

std::optional<std::string> readWholeFile(const std::string& path) {
  const Descriptor file = openRegularFile(path, O_RDONLY);
  struct stat status {};
  if (!file || ::fstat(file.number(), &status) != 0) return std::nullopt;
  if (status.st_size > static_cast<off_t>(largestFile)) return std::nullopt;

  // The size is only a first guess: the file may be written to right now. One byte more than it shows the end
  // in the first read, and one more than the largest shows that it grew too large.
  std::string bytes(static_cast<std::size_t>(status.st_size) + 1, '\0');
  std::size_t filled = 0;
  for (;;) {
    const ssize_t got = ::read(file.number(), bytes.data() + filled, bytes.size() - filled);
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) return std::nullopt;
    if (got == 0) break;
    filled += static_cast<std::size_t>(got);
    if (filled > largestFile) return std::nullopt;
    if (filled == bytes.size()) bytes.resize(std::min(bytes.size() * 2, largestFile + 1));
  }
  bytes.resize(filled);
  return bytes;
}

std::optional<Json> parseJson(std::string_view text) {
  // The parser would take a zero byte for the end of the text.
  if (text.find('\0') != std::string_view::npos) return std::nullopt;
  if (nestsTooDeep(text)) return std::nullopt;
  Json value = Json::parse(text.begin(), text.end(), nullptr, false);
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
  try {
    return value.dump();
  } catch (const Json::exception&) {  // a text that is not UTF-8
    return std::nullopt;
  }
}

void writeJsonFile(const std::string& path, const Json& value) {
  const std::optional<std::string> text = jsonText(value);
  if (!text) return;
  const Descriptor file = openRegularFile(path, O_WRONLY | O_CREAT | O_TRUNC, 0666);
  // A write that fails loses the file's content and nothing else: the readers take that as no file.
  if (file) static_cast<void>(writeAll(file.number(), *text));
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
