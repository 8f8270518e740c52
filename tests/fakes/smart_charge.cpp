// The private class of macOS's own limit: the framework that contains it, the runtime functions that look it
// up, and the messages to it, which replace src/platform/macos/smart_charge_calls.mm.
#include "fakes/smart_charge.h"

#include <cstring>
#include <optional>

#include <dlfcn.h>
#include <objc/runtime.h>

#include "fakes/objects.h"
#include "platform/macos/smart_charge_calls.h"
#include "sim/machine/charge_limit.h"
#include "sim/machine/machine_store.h"
#include "sim/seam/moment.h"

using brisko::virtual_mac::Journal;
using brisko::virtual_mac::LimitClient;
using brisko::virtual_mac::Machine;

namespace brisko::fakes {

std::set<std::string>& missingSelectors() {
  static auto& selectors = *new std::set<std::string>;
  return selectors;
}

std::set<std::string>& raisingSelectors() {
  static auto& selectors = *new std::set<std::string>;
  return selectors;
}

namespace {

// The class in the framework when it was last loaded.
LimitClient gLoaded = LimitClient::noFramework;
bool gClientMade = false;

bool hasClass() { return gLoaded == LimitClient::offered || gLoaded == LimitClient::noSelector; }

// Any address will do for the one class.
Class classOfClient() { return reinterpret_cast<Class>(&gLoaded); }

bool understands(const std::string& selector) {
  static const std::set<std::string> known{"initWithClientName:", "isMCLSupported", "isMCLCurrentlyEnabled:",
                                           "getMCLLimitWithError:", "setMCLLimit:error:"};
  if (selector == "setMCLLimit:error:" && gLoaded == LimitClient::noSelector) return false;
  return known.contains(selector) && !missingSelectors().contains(selector);
}

template <class Change>
auto changeMachine(Change change) {
  return virtual_mac::changeNow(*virtual_mac::attachedMachine(), change);
}

// The result of a message, missing if it raises an exception. A message to a missing client ends the process.
template <class Answer>
auto send(const char* selector, Answer answer) -> decltype(changeMachine(answer)) {
  if (!gClientMade) misuse(std::string(selector) + " is sent to no client");
  if (!understands(selector)) misuse(std::string(selector) + " is not understood");
  if (raisingSelectors().contains(selector)) return std::nullopt;
  return changeMachine(answer);
}

}  // namespace

}  // namespace brisko::fakes

using namespace brisko;

extern "C" {

void* brisko_stand_in_dlopen(const char* path, int mode) {
  auto* store = virtual_mac::attachedMachine();
  const bool isPowerUI =
      std::strcmp(path, "/System/Library/PrivateFrameworks/PowerUI.framework/PowerUI") == 0;
  if (store == nullptr || !isPowerUI || mode != RTLD_LAZY) return nullptr;
  fakes::gLoaded = virtual_mac::changeNow(
      *store, [](Machine& machine, Journal&) { return virtual_mac::loadClient(machine); });
  return fakes::gLoaded == LimitClient::noFramework ? nullptr : &fakes::gLoaded;
}

Class objc_getClass(const char* name) {
  if (std::strcmp(name, "PowerUISmartChargeClient") != 0 || !fakes::hasClass()) return nullptr;
  return fakes::classOfClient();
}

// A selector is its name, stored once and never freed.
SEL sel_registerName(const char* name) {
  static auto& selectors = *new std::set<std::string>;
  return reinterpret_cast<SEL>(const_cast<char*>(selectors.insert(name).first->c_str()));
}

BOOL class_respondsToSelector(Class type, SEL selector) {
  return type == fakes::classOfClient() && fakes::understands(reinterpret_cast<const char*>(selector));
}
}

namespace brisko::platform::smart_charge {

bool initWithClientName(const std::string& name) {
  if (!fakes::understands("initWithClientName:")) fakes::misuse("initWithClientName: is not understood");
  if (name.empty() || fakes::raisingSelectors().contains("initWithClientName:")) return false;
  fakes::changeMachine([](Machine& machine, Journal&) { virtual_mac::noteClientMade(machine); });
  fakes::gClientMade = true;
  return true;
}

std::optional<bool> isMCLSupported() {
  return fakes::send("isMCLSupported", [](Machine& machine, Journal&) {
    return std::optional(virtual_mac::clientSaysSupported(machine));
  });
}

std::optional<bool> isMCLCurrentlyEnabled() {
  return fakes::send("isMCLCurrentlyEnabled:",
                     [](Machine& machine, Journal&) { return virtual_mac::clientSaysEnabled(machine); });
}

std::optional<std::int64_t> getMCLLimit() {
  return fakes::send("getMCLLimitWithError:",
                     [](Machine& machine, Journal&) { return virtual_mac::clientSaysLimit(machine); });
}

std::optional<bool> setMCLLimit(std::int64_t percent) {
  return fakes::send("setMCLLimit:error:", [percent](Machine& machine, Journal& journal) {
    return std::optional(virtual_mac::setByClient(machine, journal, percent).value_or(false));
  });
}

}  // namespace brisko::platform::smart_charge
