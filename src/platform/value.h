// platform/value.h
// A property of the machine as the system publishes it. The type of a number is preserved, because the
// readers depend on it (a boolean is never a number, an integer is not a floating-point number). Dictionaries
// and lists are shared and immutable, so passing them copies nothing.
#pragma once

#include <concepts>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

namespace brisko::platform {

class Value;
using List = std::vector<Value>;
using Dictionary = std::map<std::string, Value, std::less<>>;
using SharedList = std::shared_ptr<const List>;
using SharedDictionary = std::shared_ptr<const Dictionary>;

struct Data {
  std::vector<std::uint8_t> bytes;
  bool operator==(const Data&) const = default;
};

struct Date {
  double secondsSince1970 = 0;  // UTC
  bool operator==(const Date&) const = default;
};

class Value {
 public:
  // The conversions are implicit on purpose, so that a dictionary in the code looks like a property list.
  // NOLINTBEGIN(google-explicit-constructor)
  Value() = default;  // null
  Value(bool value) : storage_(value) {}
  Value(double value) : storage_(value) {}
  Value(const char* text) : storage_(std::string(text)) {}
  Value(std::string text) : storage_(std::move(text)) {}
  Value(Data data) : storage_(std::move(data)) {}
  Value(Date date) : storage_(date) {}
  Value(List list) : storage_(std::make_shared<const List>(std::move(list))) {}
  Value(Dictionary dictionary) : storage_(std::make_shared<const Dictionary>(std::move(dictionary))) {}
  Value(SharedDictionary dictionary) : storage_(std::move(dictionary)) {}

  // A template, so that every integer type is mapped correctly on every system.
  template <std::integral Integer>
  requires(!std::same_as<Integer, bool>) Value(Integer value) : storage_(wide(value)) {}
  // NOLINTEND(google-explicit-constructor)

  [[nodiscard]] bool isNull() const { return std::holds_alternative<std::monostate>(storage_); }
  [[nodiscard]] std::optional<bool> asBoolean() const;
  // A signed integer, or an unsigned one that fits; a floating-point number is not an integer.
  [[nodiscard]] std::optional<std::int64_t> asInteger() const;
  // An integer of either kind as 64 bits of two's complement: the registry shows -1000 as 2^64 - 1000.
  [[nodiscard]] std::optional<std::int64_t> asWrappedInteger() const;
  [[nodiscard]] std::optional<double> asDouble() const;  // a floating-point number only
  [[nodiscard]] const std::string* asText() const { return std::get_if<std::string>(&storage_); }
  [[nodiscard]] const Data* asData() const { return std::get_if<Data>(&storage_); }
  [[nodiscard]] std::optional<Date> asDate() const;
  [[nodiscard]] const List* asList() const;              // null when it is not a list
  [[nodiscard]] const Dictionary* asDictionary() const;  // null when it is not a dictionary

 private:
  using Storage = std::variant<std::monostate, bool, std::int64_t, std::uint64_t, double, std::string, Data,
                               Date, SharedList, SharedDictionary>;

  template <std::signed_integral Integer>
  static std::int64_t wide(Integer value) {
    return value;
  }
  template <std::unsigned_integral Integer>
  static std::uint64_t wide(Integer value) {
    return value;
  }

  Storage storage_;
};

// The value under `key`, or null when there is none.
[[nodiscard]] const Value* find(const Dictionary& dictionary, std::string_view key);

}  // namespace brisko::platform
