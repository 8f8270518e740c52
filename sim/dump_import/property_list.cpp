#include "sim/dump_import/property_list.h"

#include <cstdint>
#include <cstdlib>
#include <limits>
#include <memory>
#include <string>
#include <utility>

#include <plist/plist.h>

namespace brisko {
namespace {

using platform::Data;
using platform::Date;
using platform::Dictionary;
using platform::List;
using platform::Value;

constexpr double appleEpoch = 978307200;  // 2001-01-01 in seconds since 1970

struct PlistFree {
  void operator()(void* node) const { plist_free(node); }
};
struct MemoryFree {
  void operator()(char* text) const { std::free(text); }
};

Value fromPlist(plist_t node, int level);

// Keys in a binary list may contain zero bytes. The library ends the process when asked for such a key.
// Written as XML, the key can be inspected safely.
bool holdsZeroBytes(plist_t key) {
  char* rawText = nullptr;
  std::uint32_t length = 0;
  plist_to_xml(key, &rawText, &length);
  const std::unique_ptr<char, MemoryFree> text(rawText);
  return text == nullptr || std::string_view(text.get(), length).find('\0') != std::string_view::npos;
}

// The key of a dictionary's entry; none for a key that the library must not be asked for.
std::optional<std::string> keyOf(plist_t entry) {
  const plist_t key = plist_dict_item_get_key(entry);
  if (key == nullptr || holdsZeroBytes(key)) return std::nullopt;
  char* rawText = nullptr;
  plist_get_key_val(key, &rawText);
  const std::unique_ptr<char, MemoryFree> text(rawText);
  return text == nullptr ? std::string() : std::string(text.get());
}

Dictionary dictionaryFromPlist(plist_t node, int level) {
  Dictionary dictionary;
  plist_dict_iter rawIterator = nullptr;
  plist_dict_new_iter(node, &rawIterator);
  const std::unique_ptr<void, decltype(&std::free)> iterator(rawIterator, &std::free);
  while (true) {
    plist_t entry = nullptr;
    plist_dict_next_item(node, iterator.get(), nullptr, &entry);
    if (entry == nullptr) return dictionary;
    if (auto key = keyOf(entry)) dictionary.insert_or_assign(std::move(*key), fromPlist(entry, level));
  }
}

List listFromPlist(plist_t node, int level) {
  List list;
  for (std::uint32_t index = 0; index < plist_array_get_size(node); ++index) {
    list.push_back(fromPlist(plist_array_get_item(node, index), level));
  }
  return list;
}

Data dataFromPlist(plist_t node) {
  std::uint64_t length = 0;
  const char* bytes = plist_get_data_ptr(node, &length);
  return bytes == nullptr ? Data{} : Data{{bytes, bytes + length}};
}

Value numberFromPlist(plist_t node) {
  // Negative numbers arrive as 2^64 - n.
  std::uint64_t number = 0;
  plist_get_uint_val(node, &number);
  return static_cast<std::int64_t>(number);
}

Date dateFromPlist(plist_t node) {
  std::int32_t seconds = 0;
  std::int32_t microseconds = 0;
  plist_get_date_val(node, &seconds, &microseconds);
  return {appleEpoch + seconds + microseconds / 1e6};
}

std::string textFromPlist(plist_t node) {
  std::uint64_t length = 0;
  const char* text = plist_get_string_ptr(node, &length);
  return text == nullptr ? std::string() : std::string(text, length);
}

Value scalarFromPlist(plist_t node) {
  switch (plist_get_node_type(node)) {
    case PLIST_BOOLEAN: {
      std::uint8_t value = 0;
      plist_get_bool_val(node, &value);
      return value != 0;
    }
    case PLIST_REAL: {
      double value = 0;
      plist_get_real_val(node, &value);
      return value;
    }
    case PLIST_UINT:
      return numberFromPlist(node);
    case PLIST_STRING:
      return textFromPlist(node);
    case PLIST_DATA:
      return dataFromPlist(node);
    case PLIST_DATE:
      return dateFromPlist(node);
    default:
      return {};
  }
}

Value fromPlist(plist_t node, int level) {
  if (level >= mostDumpLevels) return {};
  switch (plist_get_node_type(node)) {
    case PLIST_DICT:
      return dictionaryFromPlist(node, level + 1);
    case PLIST_ARRAY:
      return listFromPlist(node, level + 1);
    default:
      return scalarFromPlist(node);
  }
}

}  // namespace

std::optional<Value> readPropertyList(std::string_view text) {
  if (text.size() > std::numeric_limits<std::uint32_t>::max()) return std::nullopt;
  plist_t raw = nullptr;
  plist_from_memory(text.data(), static_cast<std::uint32_t>(text.size()), &raw);
  const std::unique_ptr<void, PlistFree> node(raw);
  if (!node) return std::nullopt;
  return fromPlist(node.get(), 0);
}

}  // namespace brisko
