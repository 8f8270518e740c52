// base/json_file.h
// Reading and writing the JSON files, in one way for all of them. Paths are used as given; callers map them
// with onVolume().
#pragma once

#include <cstdint>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>
#include <string_view>

#include "base/files.h"

namespace brisko {

using Json = nlohmann::json;  // objects keep their keys in byte order

// None when `text` is not JSON as a whole: trailing bytes, comments, bad UTF-8 or more than 512 levels of
// nesting. A number beyond the largest double is an infinite one, with or without a point or an exponent.
[[nodiscard]] std::optional<Json> parseJson(std::string_view text);

// The object in the file at `path`; none when it is unreadable, not JSON or not an object.
[[nodiscard]] std::optional<Json> readJsonObject(const std::string& path);

// Compact, keys in byte order, doubles always with a point or an exponent; none when a text is not UTF-8
// or a number is not finite.
[[nodiscard]] std::optional<std::string> jsonText(const Json& value);

// Overwrites the file at `path` in place (same inode and mode if it exists; otherwise created with 0666 less
// the umask). Creates no folders. Failures are silent and may leave a truncated file; a value that has no
// text leaves the file unchanged.
void writeJsonFile(const std::string& path, const Json& value);

// Values by their JSON type: a boolean is never a number, and a floating-point number is not an integer. None
// when `key` is missing or has another type.
[[nodiscard]] std::optional<bool> booleanAt(const Json& object, const char* key);
[[nodiscard]] std::optional<std::int64_t> integerAt(const Json& object, const char* key);
[[nodiscard]] std::optional<double> doubleAt(const Json& object, const char* key);  // floating point only
// Either type of number, as a double.
[[nodiscard]] std::optional<double> numberAt(const Json& object, const char* key);

}  // namespace brisko
