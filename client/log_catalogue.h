// client/log_catalogue.h
// What each line of the daemon's log means: derived from docs/log.md, which a test compares with the sources.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace brisko::client {

// A variable or a fixed part of a line.
enum class PartKind : std::uint8_t {
  fixed,
  optional,  // a fixed text that may be missing
  oneOf,     // one of several texts
  number,    // with a sign or a fraction
  word,      // without a blank
  anything,  // also nothing
};
struct LinePart {
  PartKind kind = PartKind::fixed;
  std::vector<std::string> texts = {};  // of fixed, optional and oneOf; "#" in them is a number
  std::string name = {};                // of a variable part, as in the document
};

enum class Severity : std::uint8_t { info, warning, error };

struct LogEntry {
  std::string id;  // e.g. "limit-verified-charging-really-does-stop"
  Severity severity = Severity::info;
  std::vector<LinePart> parts;
  std::string english;      // in place of a line in another language, with <names>; empty otherwise
  std::string explanation;  // what it means and what to do
};

// The entries of a document in the form of docs/log.md.
[[nodiscard]] std::vector<LogEntry> entriesIn(std::string_view document);
// Those of docs/log.md.
[[nodiscard]] std::span<const LogEntry> logCatalogue();

// The variable parts of a line by name, if the line matches the entry.
using LogFields = std::vector<std::pair<std::string, std::string>>;
[[nodiscard]] std::optional<LogFields> fieldsIn(const LogEntry& entry, std::string_view message);

struct LogMatch {
  const LogEntry* entry;
  LogFields fields;
};
// The one entry that matches a line without its time; none if no entry or more than one matches.
[[nodiscard]] std::optional<LogMatch> findEntry(std::string_view message);

// The line in English.
[[nodiscard]] std::string englishText(const LogMatch& match, std::string_view message);

}  // namespace brisko::client
