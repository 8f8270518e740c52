#include "platform/smart_charge_client.h"

#include <string>

#include <dlfcn.h>
#include <objc/runtime.h>

#include "platform/macos/smart_charge_calls.h"

namespace brisko::platform {
namespace {

// The class of the one client; none while there is no client.
Class clientClass = nullptr;

// A message that a class does not understand raises an exception, so each one is checked before it is sent:
// the framework is private, and a new version may lack any of them.
bool understands(Class receiver, const char* message) {
  return class_respondsToSelector(receiver, sel_registerName(message));
}

bool clientUnderstands(const char* message) {
  return clientClass != nullptr && understands(clientClass, message);
}

// Whether the class exists shows if loading succeeded.
Class loadClass() {
  ::dlopen("/System/Library/PrivateFrameworks/PowerUI.framework/PowerUI", RTLD_LAZY);
  const Class found = objc_getClass(smart_charge::className);
  return found != nullptr && understands(found, "setMCLLimit:error:") ? found : nullptr;
}

Class makeClient(std::string_view name) {
  const Class found = loadClass();
  if (found == nullptr || !understands(found, "initWithClientName:")) return nullptr;
  return smart_charge::initWithClientName(std::string(name)) ? found : nullptr;
}

}  // namespace

bool smartChargeClassPresent() { return loadClass() != nullptr; }

// The result of the first call is kept until the process ends, also a failure.
bool makeSmartChargeClient(std::string_view name) {
  static const bool made = (clientClass = makeClient(name)) != nullptr;
  return made;
}

std::optional<bool> smartChargeLimitSupported() {
  if (!clientUnderstands("isMCLSupported")) return std::nullopt;
  return smart_charge::isMCLSupported();
}

std::optional<bool> smartChargeLimitEnabled() {
  if (!clientUnderstands("isMCLCurrentlyEnabled:")) return std::nullopt;
  return smart_charge::isMCLCurrentlyEnabled();
}

std::optional<std::int64_t> smartChargeLimit() {
  if (!clientUnderstands("getMCLLimitWithError:")) return std::nullopt;
  return smart_charge::getMCLLimit();
}

std::optional<bool> setSmartChargeLimit(std::int64_t percent) {
  if (!clientUnderstands("setMCLLimit:error:")) return std::nullopt;
  return smart_charge::setMCLLimit(percent);
}

}  // namespace brisko::platform
