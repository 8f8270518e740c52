#include "platform/code_signature.h"

#include <Security/Security.h>

#include "platform/macos/cf_value.h"
#include "platform/macos/owned.h"

namespace brisko::platform {
namespace {

Owned<CFDictionaryRef> signingInformation() {
  Owned<CFDictionaryRef> information;
  Owned<SecCodeRef> running;
  Owned<SecStaticCodeRef> onDisk;
  if (SecCodeCopySelf(kSecCSDefaultFlags, running.out()) != errSecSuccess) return information;
  if (SecCodeCopyStaticCode(running.get(), kSecCSDefaultFlags, onDisk.out()) != errSecSuccess) {
    return information;
  }
  if (SecCodeCopySigningInformation(onDisk.get(), kSecCSSigningInformation, information.out()) !=
      errSecSuccess) {
    return {};
  }
  return information;
}

}  // namespace

std::optional<std::string> teamIdentifier() {
  const Owned<CFDictionaryRef> information = signingInformation();
  if (!information) return std::nullopt;
  const Value team = valueOf(CFDictionaryGetValue(information.get(), kSecCodeInfoTeamIdentifier));
  const std::string* text = team.asText();
  if (text == nullptr) return std::nullopt;
  return *text;
}

}  // namespace brisko::platform
