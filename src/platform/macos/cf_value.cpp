#include "platform/macos/cf_value.h"

#include <cstdint>
#include <vector>

namespace brisko::platform {
namespace {

Value numberOf(CFNumberRef number) {
  if (CFNumberIsFloatType(number) != 0) {
    double value = 0;
    CFNumberGetValue(number, kCFNumberDoubleType, &value);
    return value;
  }
  std::int64_t value = 0;
  CFNumberGetValue(number, kCFNumberSInt64Type, &value);
  return value;
}

Value dataOf(CFDataRef data) {
  const UInt8* bytes = CFDataGetBytePtr(data);
  return Data{std::vector<std::uint8_t>(bytes, bytes + CFDataGetLength(data))};
}

Value listOf(CFArrayRef array) {
  List list;
  const CFIndex count = CFArrayGetCount(array);
  for (CFIndex index = 0; index < count; ++index)
    list.push_back(valueOf(CFArrayGetValueAtIndex(array, index)));
  return list;
}

void addEntry(const void* key, const void* value, void* context) {
  if (CFGetTypeID(key) != CFStringGetTypeID()) return;
  static_cast<Dictionary*>(context)->insert_or_assign(textOf(static_cast<CFStringRef>(key)), valueOf(value));
}

template <typename Ref>
Owned<CFTypeRef> anyOf(Owned<Ref> object) {
  return Owned<CFTypeRef>(object ? CFRetain(object.get()) : nullptr);
}

}  // namespace

Value valueOf(CFTypeRef object) {
  if (object == nullptr) return {};
  const CFTypeID type = CFGetTypeID(object);
  if (type == CFBooleanGetTypeID()) return CFBooleanGetValue(static_cast<CFBooleanRef>(object)) != 0;
  if (type == CFNumberGetTypeID()) return numberOf(static_cast<CFNumberRef>(object));
  if (type == CFStringGetTypeID()) return textOf(static_cast<CFStringRef>(object));
  if (type == CFDataGetTypeID()) return dataOf(static_cast<CFDataRef>(object));
  if (type == CFDateGetTypeID()) {
    return Date{CFDateGetAbsoluteTime(static_cast<CFDateRef>(object)) + kCFAbsoluteTimeIntervalSince1970};
  }
  if (type == CFArrayGetTypeID()) return listOf(static_cast<CFArrayRef>(object));
  if (type == CFDictionaryGetTypeID()) return dictionaryOf(static_cast<CFDictionaryRef>(object));
  return {};
}

SharedDictionary dictionaryOf(CFDictionaryRef dictionary) {
  if (dictionary == nullptr) return nullptr;
  auto entries = std::make_shared<Dictionary>();
  CFDictionaryApplyFunction(dictionary, addEntry, entries.get());
  return entries;
}

std::string textOf(CFStringRef text) {
  const CFIndex most = CFStringGetMaximumSizeForEncoding(CFStringGetLength(text), kCFStringEncodingUTF8) + 1;
  std::vector<char> bytes(static_cast<std::size_t>(most));
  if (CFStringGetCString(text, bytes.data(), most, kCFStringEncodingUTF8) == 0) return "";
  return bytes.data();
}

Owned<CFTypeRef> objectOf(const Value& value) {
  if (const auto flag = value.asBoolean()) {
    return Owned<CFTypeRef>(CFRetain(*flag ? kCFBooleanTrue : kCFBooleanFalse));
  }
  if (const auto integer = value.asInteger()) {
    return Owned<CFTypeRef>(CFNumberCreate(kCFAllocatorDefault, kCFNumberSInt64Type, &*integer));
  }
  if (const auto real = value.asDouble()) {
    return Owned<CFTypeRef>(CFNumberCreate(kCFAllocatorDefault, kCFNumberDoubleType, &*real));
  }
  if (const std::string* text = value.asText()) return anyOf(stringOf(*text));
  if (const auto date = value.asDate()) return anyOf(dateOf(date->secondsSince1970));
  if (const Data* data = value.asData()) {
    return Owned<CFTypeRef>(
        CFDataCreate(kCFAllocatorDefault, data->bytes.data(), static_cast<CFIndex>(data->bytes.size())));
  }
  return {};
}

Owned<CFStringRef> stringOf(std::string_view text) {
  return Owned<CFStringRef>(
      CFStringCreateWithBytes(kCFAllocatorDefault, reinterpret_cast<const UInt8*>(text.data()),
                              static_cast<CFIndex>(text.size()), kCFStringEncodingUTF8, false));
}

Owned<CFDateRef> dateOf(double secondsSince1970) {
  return Owned<CFDateRef>(
      CFDateCreate(kCFAllocatorDefault, secondsSince1970 - kCFAbsoluteTimeIntervalSince1970));
}

}  // namespace brisko::platform
