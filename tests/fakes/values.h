// tests/fakes/values.h
// The values of Core Foundation.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "fakes/objects.h"
#include "platform/value.h"

namespace brisko::fakes {

struct Truth : Object {
  static constexpr TypeId kind = booleanType;
  explicit Truth(bool truth) : Object(kind), value(truth) {}
  bool value;
};

struct Number : Object {
  static constexpr TypeId kind = numberType;
  using Storage = std::variant<std::int64_t, double>;
  explicit Number(Storage number) : Object(kind), value(number) {}
  Storage value;
};

struct String : Object {
  static constexpr TypeId kind = stringType;
  explicit String(std::string_view text) : Object(kind), value(text) {}
  std::string value;  // UTF-8
};

struct DataBytes : Object {
  static constexpr TypeId kind = dataType;
  explicit DataBytes(std::vector<std::uint8_t> content) : Object(kind), bytes(std::move(content)) {}
  std::vector<std::uint8_t> bytes;
};

struct DateValue : Object {
  static constexpr TypeId kind = dateType;
  explicit DateValue(double since2001) : Object(kind), seconds(since2001) {}
  double seconds;  // since 2001
};

// Takes over the caller's references.
struct Array : Object {
  static constexpr TypeId kind = arrayType;
  explicit Array(std::vector<Object*> content);
  ~Array() override;
  std::vector<Object*> values;
};

struct DictionaryOf : Object {
  static constexpr TypeId kind = dictionaryType;
  using Entry = std::pair<Object*, Object*>;
  explicit DictionaryOf(std::vector<Entry> content);
  ~DictionaryOf() override;
  // The value under a text, or null.
  [[nodiscard]] Object* find(std::string_view key) const;
  std::vector<Entry> entries;
};

// Converts a property of the virtual Mac to a Core Foundation object, which the caller must release; null for
// null.
[[nodiscard]] Object* objectOf(const platform::Value& value);
[[nodiscard]] DictionaryOf* dictionaryOf(const platform::Dictionary& dictionary);

// The reverse; missing for an object that is not a value.
[[nodiscard]] std::optional<platform::Value> valueOf(const void* object);

[[nodiscard]] const std::string& textOf(CFStringRef string);

// A constant text.
[[nodiscard]] CFStringRef constantString(std::string_view text);

}  // namespace brisko::fakes
