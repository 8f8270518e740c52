// platform/macos/cf_value.h
// Properties between Core Foundation and platform::Value.
#pragma once

#include <string>
#include <string_view>

#include <CoreFoundation/CoreFoundation.h>

#include "platform/macos/owned.h"
#include "platform/value.h"

namespace brisko::platform {

// A copy of the property; the kinds of numbers are kept apart. Null for null and for what is no property. Of
// a dictionary the entries under texts are taken.
[[nodiscard]] Value valueOf(CFTypeRef object);
[[nodiscard]] SharedDictionary dictionaryOf(CFDictionaryRef dictionary);
[[nodiscard]] std::string textOf(CFStringRef text);

// The property as Core Foundation has it; owns nothing for null, lists and dictionaries, which nobody writes.
[[nodiscard]] Owned<CFTypeRef> objectOf(const Value& value);
[[nodiscard]] Owned<CFStringRef> stringOf(std::string_view text);
[[nodiscard]] Owned<CFDateRef> dateOf(double secondsSince1970);

}  // namespace brisko::platform
