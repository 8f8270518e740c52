#include "platform/value.h"

#include <limits>

namespace brisko::platform {

std::optional<bool> Value::asBoolean() const {
  if (const auto* value = std::get_if<bool>(&storage_)) return *value;
  return std::nullopt;
}

std::optional<std::int64_t> Value::asInteger() const {
  if (const auto* value = std::get_if<std::int64_t>(&storage_)) return *value;
  if (const auto* value = std::get_if<std::uint64_t>(&storage_)) {
    constexpr auto largest = static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max());
    if (*value <= largest) return static_cast<std::int64_t>(*value);
  }
  return std::nullopt;
}

std::optional<std::int64_t> Value::asWrappedInteger() const {
  if (const auto* value = std::get_if<std::int64_t>(&storage_)) return *value;
  if (const auto* value = std::get_if<std::uint64_t>(&storage_)) return static_cast<std::int64_t>(*value);
  return std::nullopt;
}

std::optional<double> Value::asDouble() const {
  if (const auto* value = std::get_if<double>(&storage_)) return *value;
  return std::nullopt;
}

std::optional<Date> Value::asDate() const {
  if (const auto* value = std::get_if<Date>(&storage_)) return *value;
  return std::nullopt;
}

const List* Value::asList() const {
  const auto* list = std::get_if<SharedList>(&storage_);
  return list == nullptr ? nullptr : list->get();
}

const Dictionary* Value::asDictionary() const {
  const auto* dictionary = std::get_if<SharedDictionary>(&storage_);
  return dictionary == nullptr ? nullptr : dictionary->get();
}

const Value* find(const Dictionary& dictionary, std::string_view key) {
  const auto entry = dictionary.find(key);
  return entry == dictionary.end() ? nullptr : &entry->second;
}

}  // namespace brisko::platform
