#include "platform/registry.h"

#include "platform/macos/cf_value.h"
#include "platform/macos/owned.h"

namespace brisko::platform {

SharedDictionary registryProperties(std::string_view entry) {
  const OwnedService service = firstService(std::string(entry).c_str());
  if (!service) return nullptr;
  Owned<CFMutableDictionaryRef> properties;
  if (IORegistryEntryCreateCFProperties(service.get(), properties.out(), kCFAllocatorDefault, 0) !=
      KERN_SUCCESS) {
    return nullptr;
  }
  return dictionaryOf(properties.get());
}

std::optional<Value> registryProperty(std::string_view entry, std::string_view key) {
  const OwnedService service = firstService(std::string(entry).c_str());
  if (!service) return std::nullopt;
  const Owned<CFTypeRef> property(
      IORegistryEntryCreateCFProperty(service.get(), stringOf(key).get(), kCFAllocatorDefault, 0));
  if (!property) return std::nullopt;
  return valueOf(property.get());
}

}  // namespace brisko::platform
