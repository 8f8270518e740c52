// A fake for code signatures.
#pragma once

#include <cstdint>

#include <CoreFoundation/CoreFoundation.h>

using OSStatus = std::int32_t;
using SecCSFlags = std::uint32_t;
using SecCodeRef = struct __SecCode*;
using SecStaticCodeRef = const struct __SecCode*;

enum : OSStatus { errSecSuccess = 0 };
enum : SecCSFlags { kSecCSDefaultFlags = 0, kSecCSSigningInformation = 1U << 1U };

extern "C" {

extern const CFStringRef kSecCodeInfoTeamIdentifier;

OSStatus SecCodeCopySelf(SecCSFlags flags, SecCodeRef* self);
OSStatus SecCodeCopyStaticCode(SecCodeRef code, SecCSFlags flags, SecStaticCodeRef* staticCode);
OSStatus SecCodeCopySigningInformation(SecStaticCodeRef code, SecCSFlags flags, CFDictionaryRef* information);
}
