#include <Security/Security.h>

#include "fakes/system.h"
#include "fakes/values.h"
#include "sim/machine/machine_store.h"
#include "sim/seam/moment.h"

namespace brisko::fakes {

bool gSignedByATeam = true;

namespace {

constexpr OSStatus unsignedCode = -67062;  // errSecCSUnsigned

struct Code : Object {
  static constexpr TypeId kind = codeType;
  explicit Code(bool disk) : Object(kind), onDisk(disk) {}
  bool onDisk;
};

}  // namespace

}  // namespace brisko::fakes

using namespace brisko::fakes;

extern "C" {

const CFStringRef kSecCodeInfoTeamIdentifier = constantString("teamid");

OSStatus SecCodeCopySelf(SecCSFlags, SecCodeRef* self) {
  if (gFailing == "SecCodeCopySelf") return unsignedCode;
  *self = refTo<SecCodeRef>(new Code(false));
  return errSecSuccess;
}

OSStatus SecCodeCopyStaticCode(SecCodeRef code, SecCSFlags, SecStaticCodeRef* staticCode) {
  (void)as<Code>(code);
  if (gFailing == "SecCodeCopyStaticCode") return unsignedCode;
  *staticCode = refTo<SecStaticCodeRef>(new Code(true));
  return errSecSuccess;
}

// The result contains the signer only if it is asked for, and only for code on the disk.
OSStatus SecCodeCopySigningInformation(SecStaticCodeRef code, SecCSFlags flags,
                                       CFDictionaryRef* information) {
  auto* store = brisko::virtual_mac::attachedMachine();
  if (!as<Code>(code).onDisk || store == nullptr) return unsignedCode;
  const auto system = brisko::virtual_mac::readNow(
      *store, [](const brisko::virtual_mac::Machine& machine) { return machine.system; });
  if (!system.daemonSignatureReadable) return unsignedCode;
  brisko::platform::Dictionary entries{{"main-executable", "brisko-daemon"}};
  if ((flags & kSecCSSigningInformation) != 0 && gSignedByATeam) {
    entries.emplace(textOf(kSecCodeInfoTeamIdentifier),
                    std::string(brisko::virtual_mac::textOf(system.daemonTeam)));
  }
  *information = refTo<CFDictionaryRef>(dictionaryOf(entries));
  return errSecSuccess;
}
}
