#include "platform/system_power.h"

#include <memory>
#include <utility>

#include <IOKit/pwr_mgt/IOPMLib.h>

#include "platform/macos/cf_value.h"
#include "platform/macos/owned.h"

namespace brisko::platform {
namespace {

void onPowerMessage(void* context, io_service_t /*service*/, std::uint32_t message, void* argument) {
  (*static_cast<const PowerCallback*>(context))(static_cast<PowerMessage>(message),
                                                reinterpret_cast<std::intptr_t>(argument));
}

KernelStatus toKernelStatus(IOReturn result) { return static_cast<KernelStatus>(result); }

}  // namespace

PowerRegistration registerSystemPower(PowerCallback callback) {
  auto context = std::make_unique<PowerCallback>(std::move(callback));
  IONotificationPortRef port = nullptr;
  io_object_t notifier = IO_OBJECT_NULL;
  const io_connect_t root = IORegisterForSystemPower(context.get(), &port, onPowerMessage, &notifier);
  if (port == nullptr) return {.rootPort = root, .notifying = false};
  // Used until the process ends, so never destroyed, like the port and the notifier.
  static_cast<void>(context.release());
  CFRunLoopAddSource(CFRunLoopGetMain(), IONotificationPortGetRunLoopSource(port), kCFRunLoopCommonModes);
  return {.rootPort = root, .notifying = true};
}

void allowPowerChange(RootPowerPort rootPort, std::intptr_t argument) {
  IOAllowPowerChange(rootPort, argument);
}

KernelStatus schedulePowerEvent(double date, std::string_view identifier, std::string_view type) {
  return toKernelStatus(
      IOPMSchedulePowerEvent(dateOf(date).get(), stringOf(identifier).get(), stringOf(type).get()));
}

KernelStatus cancelPowerEvent(double date, std::string_view identifier, std::string_view type) {
  return toKernelStatus(
      IOPMCancelScheduledPowerEvent(dateOf(date).get(), stringOf(identifier).get(), stringOf(type).get()));
}

SleepAssertion preventSystemSleep(std::string_view reason) {
  IOPMAssertionID assertion = kIOPMNullAssertionID;
  const IOReturn result = IOPMAssertionCreateWithName(
      stringOf("PreventSystemSleep").get(), kIOPMAssertionLevelOn, stringOf(reason).get(), &assertion);
  return result == KERN_SUCCESS ? assertion : SleepAssertion{0};
}

void releaseSleepAssertion(SleepAssertion assertion) { IOPMAssertionRelease(assertion); }

}  // namespace brisko::platform
