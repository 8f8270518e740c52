#include "platform/registry.h"

#include "sim/machine/machine_store.h"
#include "sim/machine/properties.h"
#include "sim/seam/call_watch.h"
#include "sim/seam/moment.h"

namespace brisko::platform {

namespace {

SharedDictionary propertiesOf(virtual_mac::MachineStore* store, std::string_view entry) {
  if (store == nullptr) return nullptr;
  return virtual_mac::readNow(*store, [entry](const virtual_mac::Machine& machine) {
    return virtual_mac::entryProperties(machine, entry);
  });
}

}  // namespace

SharedDictionary registryProperties(std::string_view entry) {
  return propertiesOf(virtual_mac::machineFor({.name = "registryProperties", .subject = entry}), entry);
}

std::optional<Value> registryProperty(std::string_view entry, std::string_view key) {
  const SharedDictionary properties =
      propertiesOf(virtual_mac::machineFor({.name = "registryProperty", .subject = key}), entry);
  if (properties == nullptr) return std::nullopt;
  const Value* value = find(*properties, key);
  if (value == nullptr) return std::nullopt;
  return *value;
}

}  // namespace brisko::platform
