#include "platform/power_sources.h"

#include <utility>

#include <IOKit/ps/IOPowerSources.h>

#include "platform/macos/cf_value.h"
#include "platform/macos/owned.h"

namespace brisko::platform {
namespace {

using Changed = std::function<void()>;

void onChange(void* context) { (*static_cast<const Changed*>(context))(); }

}  // namespace

std::optional<std::vector<SharedDictionary>> powerSources() {
  const Owned<CFTypeRef> snapshot(IOPSCopyPowerSourcesInfo());
  if (!snapshot) return std::nullopt;
  const Owned<CFArrayRef> list(IOPSCopyPowerSourcesList(snapshot.get()));
  if (!list) return std::nullopt;
  std::vector<SharedDictionary> sources;
  const CFIndex count = CFArrayGetCount(list.get());
  for (CFIndex index = 0; index < count; ++index) {
    // Belongs to the snapshot.
    const CFDictionaryRef description =
        IOPSGetPowerSourceDescription(snapshot.get(), CFArrayGetValueAtIndex(list.get(), index));
    if (description != nullptr) sources.push_back(dictionaryOf(description));
  }
  return sources;
}

bool addPowerSourceNotification(std::function<void()> changed) {
  // Used until the process ends, so never destroyed.
  auto* context = new Changed(std::move(changed));
  const Owned<CFRunLoopSourceRef> source(IOPSNotificationCreateRunLoopSource(onChange, context));
  if (!source) {
    delete context;
    return false;
  }
  CFRunLoopAddSource(CFRunLoopGetMain(), source.get(), kCFRunLoopCommonModes);
  return true;
}

}  // namespace brisko::platform
