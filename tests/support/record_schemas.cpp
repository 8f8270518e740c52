#include "support/record_schemas.h"

#include <algorithm>
#include <filesystem>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <utility>

#include "sim/schema/json_schema.h"
#include "support/files.h"
#include "support/testing.h"

namespace brisko::test {
namespace {

using nlohmann::json;

// For a schema 2 is as valid a number as 2.0, so integers are excluded from each "number".
void refuseIntegersForNumbers(json& schema) {
  if (schema.is_object() && schema.value("type", json()) == "number") schema["not"] = {{"type", "integer"}};
  for (json& inside : schema) {
    if (inside.is_structured()) refuseIntegersForNumbers(inside);
  }
}

// Compiled once in each process.
const schema::JsonSchema& compiledSchema(const std::string& kind) {
  static std::map<std::string, std::unique_ptr<schema::JsonSchema>> known;
  std::unique_ptr<schema::JsonSchema>& compiled = known[kind];
  if (compiled == nullptr) {
    json strict = schemaOf(kind);
    refuseIntegersForNumbers(strict);
    compiled = std::make_unique<schema::JsonSchema>(strict.dump());
  }
  return *compiled;
}

std::optional<std::string> breachOf(std::string_view text, const std::string& kind) {
  const auto breach = compiledSchema(kind).breachIn(text);
  if (!breach) return std::nullopt;
  return "#" + breach->place + " breaks \"" + breach->keyword + "\" of #" + breach->rule + " in " + kind +
         ".schema.json";
}

constexpr std::string_view historySuffix = ".jsonl";

// Each sample is a complete line.
std::optional<std::string> flawInLines(std::string_view text, const std::string& kind) {
  while (!text.empty()) {
    const std::size_t end = text.find('\n');
    if (end == std::string_view::npos) return "its last line does not end";
    if (auto flaw = flawIn(text.substr(0, end), kind)) return flaw;
    text.remove_prefix(end + 1);
  }
  return std::nullopt;
}

std::optional<std::string> flawInRecord(std::string_view bytes, const std::string& path,
                                        const std::string& kind) {
  if (path.ends_with(historySuffix)) return flawInLines(bytes, kind);
  return bytes.empty() ? std::nullopt : flawIn(bytes, kind);
}

// The contents that were already checked, by path; they are not checked again.
std::map<std::string, std::string>& everChecked() {
  static std::map<std::string, std::string> checked;
  return checked;
}

// How many bytes at the beginning of the file need no check. Only a history file grows; any other file needs
// a check as a whole or none.
std::size_t settledPart(const std::string& bytes, const std::string& path) {
  const std::string& checked = everChecked()[path];
  if (!path.ends_with(historySuffix)) return bytes == checked || wasPut(bytes) ? bytes.size() : 0;
  std::size_t settled = 0;
  for (const std::string& known : {checked, lastPut(path)}) {
    if (bytes.starts_with(known)) settled = std::max(settled, known.size());
  }
  return settled;
}

void checkRecord(const std::string& path, const std::string& kind) {
  std::string bytes = contents(path);
  const std::string_view unsettled = std::string_view(bytes).substr(settledPart(bytes, path));
  if (const auto flaw = flawInRecord(unsettled, path, kind)) {
    ADD_FAILURE() << "The daemon wrote " << path << "\n  " << *flaw << "\n  " << bytes;
  }
  everChecked()[path] = std::move(bytes);
}

}  // namespace

json schemaOf(const std::string& kind) {
  const std::string path = std::string(BRISKO_SCHEMAS) + "/" + kind + ".schema.json";
  json schema = json::parse(contents(path), nullptr, false);
  if (!schema.is_object()) throw std::runtime_error("no schema in " + path);
  return schema;
}

std::optional<std::string> flawIn(std::string_view text, const std::string& kind) {
  const json value = json::parse(text.begin(), text.end(), nullptr, false);
  if (value.is_discarded()) return "it is not JSON";
  if (value.dump() != text) return "it is not compact with its keys in byte order";
  return breachOf(text, kind);
}

std::optional<std::string> recordKind(std::string_view path) {
  static const std::map<std::string_view, std::string> kinds = {{"config.json", "config"},
                                                                {"status.json", "status"},
                                                                {"stats.json", "statistics"},
                                                                {"calibration.json", "calibration"}};
  if (path.ends_with(historySuffix)) return "history-line";
  const auto known = kinds.find(path.substr(path.rfind('/') + 1));
  return known == kinds.end() ? std::nullopt : std::optional(known->second);
}

void checkRecords(const std::string& folder) {
  std::error_code failure;
  std::filesystem::recursive_directory_iterator entry(folder, failure);
  for (; !failure && entry != std::filesystem::recursive_directory_iterator(); entry.increment(failure)) {
    const std::string& path = entry->path().native();
    const auto kind = recordKind(path);
    std::error_code ignored;
    if (kind && entry->is_regular_file(ignored) && !entry->is_symlink(ignored)) checkRecord(path, *kind);
  }
}

}  // namespace brisko::test
