#include "fakes/values.h"

#include <algorithm>
#include <cstring>

#include "fakes/system.h"
#include "sim/seam/simulated/virtual_time.h"

namespace brisko::fakes {

namespace {

using platform::Value;

constexpr double from1970To2001 = 978307200;

// One reference of the creator becomes one of the system.
void take(Object* object) {
  object->holdForSystem();
  object->release();
}

Object* arrayOf(const platform::List& list) {
  std::vector<Object*> values;
  for (const Value& value : list) {
    if (Object* object = objectOf(value)) values.push_back(object);
  }
  return new Array(std::move(values));
}

bool isContinuation(char byte) { return (static_cast<unsigned char>(byte) & 0xC0U) == 0x80U; }

// A check that is sufficient for the tests: each sequence has the length that its first byte announces.
bool isUtf8(std::string_view text) {
  for (std::size_t at = 0; at < text.size();) {
    const auto first = static_cast<unsigned char>(text[at]);
    const std::size_t length = first < 0x80U                      ? 1
                               : first >= 0xC2U && first < 0xE0U  ? 2
                               : first >= 0xE0U && first < 0xF0U  ? 3
                               : first >= 0xF0U && first <= 0xF4U ? 4
                                                                  : 0;
    if (length == 0 || at + length > text.size()) return false;
    for (std::size_t next = 1; next < length; ++next) {
      if (!isContinuation(text[at + next])) return false;
    }
    at += length;
  }
  return true;
}

CFIndex utf16Length(std::string_view text) {
  CFIndex units = 0;
  for (const char byte : text) {
    if (isContinuation(byte)) continue;
    units += static_cast<unsigned char>(byte) >= 0xF0U ? 2 : 1;
  }
  return units;
}

CFBooleanRef constantBoolean(bool value) {
  auto* boolean = new Truth(value);
  boolean->makeConstant();
  return refTo<CFBooleanRef>(boolean);
}

}  // namespace

Array::Array(std::vector<Object*> content) : Object(kind), values(std::move(content)) {
  for (Object* value : values) take(value);
}
Array::~Array() {
  for (Object* value : values) value->dropForSystem();
}

DictionaryOf::DictionaryOf(std::vector<Entry> content) : Object(kind), entries(std::move(content)) {
  for (const auto& [key, value] : entries) {
    take(key);
    take(value);
  }
}
DictionaryOf::~DictionaryOf() {
  for (const auto& [key, value] : entries) {
    key->dropForSystem();
    value->dropForSystem();
  }
}

Object* DictionaryOf::find(std::string_view key) const {
  for (const auto& [name, value] : entries) {
    if (is<String>(*name) && static_cast<const String*>(name)->value == key) return value;
  }
  return nullptr;
}

Object* objectOf(const Value& value) {
  if (const auto flag = value.asBoolean()) {
    Object& constant = objectAt(*flag ? kCFBooleanTrue : kCFBooleanFalse);
    constant.retain();
    return &constant;
  }
  // The registry stores integers in 64 bits, which Core Foundation returns as signed ones.
  if (const auto integer = value.asWrappedInteger()) return new Number(*integer);
  if (const auto real = value.asDouble()) return new Number(*real);
  if (const std::string* text = value.asText()) return new String(*text);
  if (const platform::Data* data = value.asData()) return new DataBytes(data->bytes);
  if (const auto date = value.asDate()) return new DateValue(date->secondsSince1970 - from1970To2001);
  if (const platform::List* list = value.asList()) return arrayOf(*list);
  if (const platform::Dictionary* dictionary = value.asDictionary()) return dictionaryOf(*dictionary);
  return nullptr;
}

DictionaryOf* dictionaryOf(const platform::Dictionary& dictionary) {
  std::vector<DictionaryOf::Entry> entries;
  for (const auto& [key, value] : dictionary) {
    if (Object* object = objectOf(value)) entries.emplace_back(new String(key), object);
  }
  // In no defined order.
  std::reverse(entries.begin(), entries.end());
  return new DictionaryOf(std::move(entries));
}

std::optional<Value> valueOf(const void* object) {
  const Object& any = objectAt(object);
  if (is<Truth>(any)) return as<Truth>(object).value;
  if (is<String>(any)) return as<String>(object).value;
  if (is<DateValue>(any)) return platform::Date{as<DateValue>(object).seconds + from1970To2001};
  if (is<Number>(any)) {
    return std::visit([](auto value) -> Value { return value; }, as<Number>(object).value);
  }
  return std::nullopt;
}

const std::string& textOf(CFStringRef string) { return as<String>(string).value; }

CFStringRef constantString(std::string_view text) {
  auto* string = new String(text);
  string->makeConstant();
  return refTo<CFStringRef>(string);
}

}  // namespace brisko::fakes

using namespace brisko::fakes;

extern "C" {

const CFAllocatorRef kCFAllocatorDefault = nullptr;
const CFTimeInterval kCFAbsoluteTimeIntervalSince1970 = from1970To2001;
const CFBooleanRef kCFBooleanTrue = constantBoolean(true);
const CFBooleanRef kCFBooleanFalse = constantBoolean(false);

CFTypeID CFBooleanGetTypeID() { return booleanType; }
CFTypeID CFNumberGetTypeID() { return numberType; }
CFTypeID CFStringGetTypeID() { return stringType; }
CFTypeID CFDataGetTypeID() { return dataType; }
CFTypeID CFDateGetTypeID() { return dateType; }
CFTypeID CFArrayGetTypeID() { return arrayType; }
CFTypeID CFDictionaryGetTypeID() { return dictionaryType; }

Boolean CFBooleanGetValue(CFBooleanRef boolean) { return as<Truth>(boolean).value ? 1 : 0; }

CFNumberRef CFNumberCreate(CFAllocatorRef, CFNumberType type, const void* value) {
  if (type == kCFNumberSInt64Type)
    return refTo<CFNumberRef>(new Number(*static_cast<const std::int64_t*>(value)));
  if (type == kCFNumberDoubleType) return refTo<CFNumberRef>(new Number(*static_cast<const double*>(value)));
  misuse("a kind of number that nobody declared");
}

Boolean CFNumberIsFloatType(CFNumberRef number) {
  return std::holds_alternative<double>(as<Number>(number).value) ? 1 : 0;
}

// False when the conversion loses something, as with a fraction that becomes an integer.
Boolean CFNumberGetValue(CFNumberRef number, CFNumberType type, void* value) {
  const Number::Storage& kept = as<Number>(number).value;
  const auto store = [&kept, value](auto zero) {
    using Wanted = decltype(zero);
    const auto wanted = std::visit([](auto any) { return static_cast<Wanted>(any); }, kept);
    std::memcpy(value, &wanted, sizeof wanted);
    return std::visit([wanted](auto any) { return static_cast<decltype(any)>(wanted) == any; }, kept);
  };
  if (type == kCFNumberSInt64Type) return store(std::int64_t{0}) ? 1 : 0;
  if (type == kCFNumberDoubleType) return store(0.0) ? 1 : 0;
  misuse("a kind of number that nobody declared");
}

CFStringRef CFStringCreateWithBytes(CFAllocatorRef, const UInt8* bytes, CFIndex count,
                                    CFStringEncoding encoding, Boolean) {
  if (encoding != kCFStringEncodingUTF8) misuse("an encoding that nobody declared");
  const std::string_view text(reinterpret_cast<const char*>(bytes), static_cast<std::size_t>(count));
  if (!isUtf8(text)) return nullptr;
  return refTo<CFStringRef>(new String(text));
}

CFIndex CFStringGetLength(CFStringRef string) { return utf16Length(textOf(string)); }

CFIndex CFStringGetMaximumSizeForEncoding(CFIndex length, CFStringEncoding) { return 3 * length; }

Boolean CFStringGetCString(CFStringRef string, char* buffer, CFIndex size, CFStringEncoding) {
  const std::string& text = textOf(string);
  if (static_cast<std::size_t>(size) <= text.size() || gFailing == "CFStringGetCString") return 0;
  std::memcpy(buffer, text.c_str(), text.size() + 1);
  return 1;
}

CFDataRef CFDataCreate(CFAllocatorRef, const UInt8* bytes, CFIndex length) {
  return refTo<CFDataRef>(new DataBytes(std::vector<std::uint8_t>(bytes, bytes + length)));
}
const UInt8* CFDataGetBytePtr(CFDataRef data) { return as<DataBytes>(data).bytes.data(); }
CFIndex CFDataGetLength(CFDataRef data) { return static_cast<CFIndex>(as<DataBytes>(data).bytes.size()); }

CFDateRef CFDateCreate(CFAllocatorRef, CFAbsoluteTime time) { return refTo<CFDateRef>(new DateValue(time)); }
CFAbsoluteTime CFDateGetAbsoluteTime(CFDateRef date) { return as<DateValue>(date).seconds; }
CFAbsoluteTime CFAbsoluteTimeGetCurrent() { return brisko::virtual_mac::virtualWallClock() - from1970To2001; }

CFIndex CFArrayGetCount(CFArrayRef array) { return static_cast<CFIndex>(as<Array>(array).values.size()); }
const void* CFArrayGetValueAtIndex(CFArrayRef array, CFIndex index) {
  const auto& values = as<Array>(array).values;
  if (index < 0 || static_cast<std::size_t>(index) >= values.size()) misuse("beyond the end of an array");
  return values[static_cast<std::size_t>(index)];
}

const void* CFDictionaryGetValue(CFDictionaryRef dictionary, const void* key) {
  return as<DictionaryOf>(dictionary).find(as<String>(key).value);
}

void CFDictionaryApplyFunction(CFDictionaryRef dictionary, CFDictionaryApplierFunction applier,
                               void* context) {
  for (const auto& [key, value] : as<DictionaryOf>(dictionary).entries) applier(key, value, context);
}
}
