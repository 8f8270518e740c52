// platform/macos/cf_value.h
// Properties between Core Foundation and platform::Value.
#pragma once

#include <string>
#include <string_view>

#include <CoreFoundation/CoreFoundation.h>

#include "platform/macos/owned.h"
#include "platform/value.h"

namespace brisko::platform {

// A copy of the property; the types of numbers are preserved. Null for null and for objects that are not
// properties. Of a dictionary only the entries whose keys are texts are copied.
[[nodiscard]] Value valueOf(CFTypeRef object);
[[nodiscard]] SharedDictionary dictionaryOf(CFDictionaryRef dictionary);
[[nodiscard]] std::string textOf(CFStringRef text);

// The property as a Core Foundation object; owns nothing for null, lists and dictionaries, which are never
// written.
[[nodiscard]] Owned<CFTypeRef> objectOf(const Value& value);
[[nodiscard]] Owned<CFStringRef> stringOf(std::string_view text);
[[nodiscard]] Owned<CFDateRef> dateOf(double secondsSince1970);

}  // namespace brisko::platform
