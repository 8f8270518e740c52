// support/record_schemas.h
// What the daemon writes, held to docs/schemas. Every folder of a test is looked through before it is
// removed, and the volume of a virtual Mac also whenever a process on it is paused.
#pragma once

#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>
#include <string_view>

namespace brisko::test {

// The schema in docs/schemas/<kind>.schema.json, e.g. "status"; it has to be there.
[[nodiscard]] nlohmann::json schemaOf(const std::string& kind);

// Why the daemon may not have written `text` as a document of this kind, as one line; none when it may. The
// text has to be JSON in its compact form with the keys in byte order, and to meet the schema, where a
// "number" is one with a point or an exponent only: the daemon's readers tell 2.0 from 2.
[[nodiscard]] std::optional<std::string> flawIn(std::string_view text, const std::string& kind);

// The kind of the daemon's file at `path`, by its name; none when it is no record.
[[nodiscard]] std::optional<std::string> recordKind(std::string_view path);

// Fails the test for each record below `folder` that has a flaw. Bytes that the test itself has put() are
// none of the daemon's; of a history file that begins with what was put there, only the rest counts. An empty
// record is what a failed write and a kill leave, and what every reader takes for no record.
void checkRecords(const std::string& folder);

}  // namespace brisko::test
