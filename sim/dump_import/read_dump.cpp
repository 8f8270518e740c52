#include "sim/dump_import/read_dump.h"

#include <cstdint>
#include <nlohmann/json.hpp>
#include <utility>

#include "sim/dump_import/property_list.h"

namespace brisko {
namespace {

using platform::Dictionary;
using platform::List;
using platform::Value;

Value fromJson(const nlohmann::json& json, int level) {
  if (level >= mostDumpLevels) return {};
  switch (json.type()) {
    case nlohmann::json::value_t::boolean:
      return json.get<bool>();
    case nlohmann::json::value_t::number_integer:
      return json.get<std::int64_t>();
    case nlohmann::json::value_t::number_unsigned:
      return json.get<std::uint64_t>();
    case nlohmann::json::value_t::number_float:
      return json.get<double>();
    case nlohmann::json::value_t::string:
      return json.get<std::string>();
    case nlohmann::json::value_t::array: {
      List list;
      for (const auto& element : json) list.push_back(fromJson(element, level + 1));
      return list;
    }
    case nlohmann::json::value_t::object: {
      Dictionary dictionary;
      for (const auto& [key, value] : json.items()) dictionary.emplace(key, fromJson(value, level + 1));
      return dictionary;
    }
    default:
      return {};
  }
}

std::optional<Value> parseJson(std::string_view text) {
  const auto json = nlohmann::json::parse(text, nullptr, /*allow_exceptions=*/false);
  if (json.is_discarded()) return std::nullopt;
  return fromJson(json, 0);
}

bool looksLikeJson(std::string_view text) {
  const std::size_t start = text.find_first_not_of(" \t\r\n");
  return start != std::string_view::npos && (text[start] == '{' || text[start] == '[');
}

}  // namespace

std::optional<Dictionary> readDump(std::string_view text, std::string& reason) {
  const std::optional<Value> value = looksLikeJson(text) ? parseJson(text) : readPropertyList(text);
  if (!value) {
    reason = "neither a property list nor JSON";
    return std::nullopt;
  }
  const Value* dump = &*value;
  if (const List* list = dump->asList(); list != nullptr && list->size() == 1) dump = &list->front();
  const Dictionary* dictionary = dump->asDictionary();
  if (dictionary == nullptr) {
    reason = "not a dictionary, nor a list with one dictionary";
    return std::nullopt;
  }
  return *dictionary;
}

}  // namespace brisko
