// support/record_schemas.h
// Validates the daemon's files against docs/schemas. Each folder of a test is checked before it is removed,
// and the volume of a virtual Mac also whenever a process on it is paused.
#pragma once

#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>
#include <string_view>

namespace brisko::test {

// The schema in docs/schemas/<kind>.schema.json, e.g. "status", which must exist.
[[nodiscard]] nlohmann::json schemaOf(const std::string& kind);

// The error in `text` as a document of this kind, in one line; missing if it is valid. The text must be
// compact JSON with the keys in byte order and must match the schema. A "number" needs a point or an
// exponent, because the daemon's readers distinguish 2.0 from 2.
[[nodiscard]] std::optional<std::string> flawIn(std::string_view text, const std::string& kind);

// The kind of the daemon's file at `path`, by its name; missing for other files.
[[nodiscard]] std::optional<std::string> recordKind(std::string_view path);

// Fails the test for each invalid record below `folder`. Bytes that the test itself has put() are not the
// daemon's; if a history file begins with them, only the rest is checked. An empty record is allowed: a
// failed write or a kill leaves one, and every reader treats it as missing.
void checkRecords(const std::string& folder);

}  // namespace brisko::test
