#include <algorithm>
#include <cstring>
#include <functional>
#include <map>
#include <memory>
#include <tuple>
#include <utility>
#include <vector>

#include <IOKit/IOKitLib.h>
#include <IOKit/ps/IOPowerSources.h>
#include <IOKit/pwr_mgt/IOPMLib.h>

#include "fakes/main_loop.h"
#include "fakes/system.h"
#include "fakes/values.h"
#include "platform/host.h"
#include "sim/machine/machine_store.h"
#include "sim/machine/properties.h"
#include "sim/seam/moment.h"
#include "sim/seam/power_source_watch.h"
#include "sim/seam/signals.h"

using brisko::virtual_mac::Journal;
using brisko::virtual_mac::Machine;
using brisko::virtual_mac::PowerNotice;

// The port through which a registration receives power messages. Never freed.
struct IONotificationPort {
  brisko::fakes::Source* source;
};

namespace brisko::fakes {

std::size_t gAnswerBytes = std::tuple_size_v<platform::SmcRecord>;
bool gNotifiesOfPowerSources = true;
std::function<void(const platform::SmcRecord&)> gBeforeAnswer;

namespace {

enum class PortKind { service, connection, rootPower, notifier, assertion };
struct Port {
  PortKind kind;
  std::string name;  // for a service, its class
};

// Exit hooks still reach the controller, hence never destroyed.
struct Ports {
  std::map<io_object_t, Port> open;
  std::vector<std::unique_ptr<IONotificationPort>> notifying;
  io_object_t last = 0x900;
};
Ports& ports() {
  static Ports& kept = *new Ports;
  return kept;
}

io_object_t newPort(Port port) {
  ports().last += 4;
  ports().open.emplace(ports().last, std::move(port));
  return ports().last;
}

const Port* portAt(io_object_t number, PortKind kind) {
  const auto found = ports().open.find(number);
  return found == ports().open.end() || found->second.kind != kind ? nullptr : &found->second;
}

const std::string& serviceAt(io_object_t number) {
  const Port* port = portAt(number, PortKind::service);
  if (port == nullptr) misuse("this is no service, or one that was released");
  return port->name;
}

kern_return_t resultOf(platform::KernelStatus status) { return static_cast<kern_return_t>(status); }

virtual_mac::MachineStore* machineStore() { return virtual_mac::attachedMachine(); }

platform::SharedDictionary propertiesOf(const std::string& name) {
  if (machineStore() == nullptr) return nullptr;
  return virtual_mac::readNow(
      *machineStore(), [&](const Machine& machine) { return virtual_mac::entryProperties(machine, name); });
}

bool hasService(const std::string& name) {
  if (machineStore() == nullptr) return false;
  if (name != "AppleSMC") return propertiesOf(name) != nullptr;
  return machineStore()->view().machine().smc.service != virtual_mac::SmcService::absent;
}

// -- The controller

constexpr std::uint32_t userClientType = 0;
constexpr std::uint32_t exchangeSelector = 2;
constexpr std::size_t recordSize = sizeof(platform::SmcRecord);

platform::KernelStatus openOn(Machine& machine) {
  // A signal that was raised while no process used the machine has no effect.
  machine.pendingSignals = 0;
  if (machine.smc.service != virtual_mac::SmcService::present) return platform::kernelNotPrivileged;
  machine.system.processes += 1;
  return platform::kernelSuccess;
}

platform::KernelStatus exchange(const void* input, void* output) {
  platform::SmcRecord sent{};
  platform::SmcRecord received{};
  std::memcpy(sent.data(), input, recordSize);
  std::uint32_t signals = 0;
  const auto status = virtual_mac::changeNow(*machineStore(), [&](Machine& machine, Journal& journal) {
    const auto answer = virtual_mac::exchange(machine, journal, sent, received);
    signals = std::exchange(machine.pendingSignals, 0);
    return answer;
  });
  // The output of a failed call is undefined.
  const std::size_t given = std::min(gAnswerBytes, recordSize);
  if (status == platform::kernelSuccess) std::memcpy(output, received.data(), given);
  if (status != platform::kernelSuccess) std::memset(output, 0xEE, recordSize);
  virtual_mac::raiseSignals(signals);
  if (gBeforeAnswer) gBeforeAnswer(sent);
  return status;
}

// -- Power

struct Registration {
  void* refcon;
  IOServiceInterestCallback callback;
  io_object_t root;
  std::uint32_t lastReceived;  // token of the last message received
};

void tell(const Registration& registration, const PowerNotice& notice) {
  virtual_mac::changeNow(*machineStore(), [&notice](Machine& machine, Journal& journal) {
    virtual_mac::noteReceived(machine, journal, notice);
  });
  const auto token = reinterpret_cast<void*>(static_cast<std::uintptr_t>(notice.token));
  registration.callback(registration.refcon, registration.root, notice.type, token);
}

std::vector<Work> arrivedFor(const std::shared_ptr<Registration>& registration, const Machine& machine) {
  std::vector<Work> work;
  const std::uint32_t sent = machine.sleep.noticesSent;
  const std::uint32_t kept = std::min<std::uint32_t>(sent, virtual_mac::noticePlaces);
  for (std::uint32_t token = std::max(registration->lastReceived, sent - kept) + 1; token <= sent; ++token) {
    const PowerNotice notice = machine.sleep.notices[token % virtual_mac::noticePlaces];
    work.emplace_back([registration, notice] { tell(*registration, notice); });
  }
  registration->lastReceived = sent;
  return work;
}

// As the machine counts: seconds since 1970.
double dateOf(CFDateRef date) { return CFDateGetAbsoluteTime(date) + kCFAbsoluteTimeIntervalSince1970; }

using EventCall = platform::KernelStatus (*)(Machine&, Journal&, double, std::string_view, std::string_view);

IOReturn callForEvent(EventCall call, CFDateRef time, CFStringRef identifier, CFStringRef type) {
  if (machineStore() == nullptr) return resultOf(platform::kernelNotFound);
  return resultOf(virtual_mac::changeNow(*machineStore(), [=](Machine& machine, Journal& journal) {
    return call(machine, journal, dateOf(time), textOf(identifier), textOf(type));
  }));
}

}  // namespace

long servicesHeld() {
  return std::count_if(ports().open.begin(), ports().open.end(),
                       [](const auto& entry) { return entry.second.kind == PortKind::service; });
}

}  // namespace brisko::fakes

using namespace brisko::fakes;
namespace virtual_mac = brisko::virtual_mac;
namespace platform = brisko::platform;

extern "C" {

const mach_port_t kIOMainPortDefault = 0;

kern_return_t IOObjectRelease(io_object_t object) {
  (void)serviceAt(object);
  ports().open.erase(object);
  return KERN_SUCCESS;
}

CFMutableDictionaryRef IOServiceMatching(const char* name) {
  return refTo<CFMutableDictionaryRef>(dictionaryOf({{"IOProviderClass", name}}));
}

io_service_t IOServiceGetMatchingService(mach_port_t mainPort, CFDictionaryRef matching) {
  if (mainPort != kIOMainPortDefault) misuse("that is not the main port");
  const Object* wanted = as<DictionaryOf>(matching).find("IOProviderClass");
  const std::string name = wanted == nullptr ? "" : as<String>(wanted).value;
  CFRelease(matching);
  return hasService(name) ? newPort({PortKind::service, name}) : IO_OBJECT_NULL;
}

kern_return_t IORegistryEntryCreateCFProperties(io_registry_entry_t entry, CFMutableDictionaryRef* properties,
                                                CFAllocatorRef, IOOptionBits) {
  const auto all = propertiesOf(serviceAt(entry));
  if (all == nullptr || gFailing == "IORegistryEntryCreateCFProperties") {
    return resultOf(platform::kernelError);
  }
  *properties = refTo<CFMutableDictionaryRef>(dictionaryOf(*all));
  return KERN_SUCCESS;
}

CFTypeRef IORegistryEntryCreateCFProperty(io_registry_entry_t entry, CFStringRef key, CFAllocatorRef,
                                          IOOptionBits) {
  const auto all = propertiesOf(serviceAt(entry));
  const platform::Value* value = all == nullptr ? nullptr : platform::find(*all, textOf(key));
  return value == nullptr ? nullptr : refTo<CFTypeRef>(objectOf(*value));
}

kern_return_t IOServiceOpen(io_service_t service, task_port_t owningTask, std::uint32_t type,
                            io_connect_t* connection) {
  if (serviceAt(service) != "AppleSMC" || owningTask != mach_task_self() || type != userClientType) {
    return resultOf(platform::kernelBadArgument);
  }
  const auto status =
      virtual_mac::changeNow(*machineStore(), [](Machine& machine, Journal&) { return openOn(machine); });
  if (status == platform::kernelSuccess) *connection = newPort({PortKind::connection, ""});
  return resultOf(status);
}

kern_return_t IOServiceClose(io_connect_t connection) {
  if (portAt(connection, PortKind::connection) == nullptr) return resultOf(platform::kernelNotOpen);
  ports().open.erase(connection);
  return KERN_SUCCESS;
}

kern_return_t IOConnectCallStructMethod(mach_port_t connection, std::uint32_t selector, const void* input,
                                        std::size_t inputSize, void* output, std::size_t* outputSize) {
  const bool isOpen = portAt(connection, PortKind::connection) != nullptr;
  if (!isOpen || machineStore() == nullptr) return resultOf(platform::kernelNotOpen);
  if (selector != exchangeSelector || inputSize != recordSize || *outputSize != recordSize) {
    return resultOf(platform::kernelBadArgument);
  }
  *outputSize = gAnswerBytes;
  return resultOf(exchange(input, output));
}

CFRunLoopSourceRef IONotificationPortGetRunLoopSource(IONotificationPortRef port) {
  return refTo<CFRunLoopSourceRef>(port->source);
}

io_connect_t IORegisterForSystemPower(void* refcon, IONotificationPortRef* port,
                                      IOServiceInterestCallback callback, io_object_t* notifier) {
  if (machineStore() == nullptr) return IO_OBJECT_NULL;
  std::uint32_t sentBefore = 0;
  const bool taken = virtual_mac::changeNow(*machineStore(), [&sentBefore](Machine& machine, const Journal&) {
    sentBefore = machine.sleep.noticesSent;
    return virtual_mac::registerPowerClient(machine, platform::processId());
  });
  if (!taken) return IO_OBJECT_NULL;
  const io_object_t root = newPort({PortKind::rootPower, ""});
  const auto registration = std::make_shared<Registration>(Registration{refcon, callback, root, sentBefore});
  auto* source = new Source(Rank::powerMessages, [registration](const Machine& machine) {
    return arrivedFor(registration, machine);
  });
  source->makeConstant();
  ports().notifying.push_back(std::make_unique<IONotificationPort>(IONotificationPort{source}));
  *port = ports().notifying.back().get();
  *notifier = newPort({PortKind::notifier, ""});
  return root;
}

IOReturn IOAllowPowerChange(io_connect_t rootPort, std::intptr_t notification) {
  if (portAt(rootPort, PortKind::rootPower) == nullptr || machineStore() == nullptr) {
    return resultOf(platform::kernelBadArgument);
  }
  virtual_mac::changeNow(*machineStore(), [notification](Machine& machine, Journal& journal) {
    virtual_mac::allowPowerChange(machine, journal, static_cast<std::uint32_t>(notification));
  });
  return KERN_SUCCESS;
}

IOReturn IOPMSchedulePowerEvent(CFDateRef time, CFStringRef identifier, CFStringRef type) {
  return callForEvent(virtual_mac::scheduleEvent, time, identifier, type);
}

IOReturn IOPMCancelScheduledPowerEvent(CFDateRef time, CFStringRef identifier, CFStringRef type) {
  return callForEvent(virtual_mac::cancelEvent, time, identifier, type);
}

IOReturn IOPMAssertionCreateWithName(CFStringRef type, IOPMAssertionLevel level, CFStringRef name,
                                     IOPMAssertionID* assertion) {
  if (textOf(type) != "PreventSystemSleep" || level != kIOPMAssertionLevelOn || textOf(name).empty())
    return resultOf(platform::kernelBadArgument);
  if (machineStore() == nullptr) return resultOf(platform::kernelNotFound);
  const auto status = virtual_mac::changeNow(*machineStore(), virtual_mac::preventSleep);
  if (status == platform::kernelSuccess) *assertion = newPort({PortKind::assertion, ""});
  return resultOf(status);
}

IOReturn IOPMAssertionRelease(IOPMAssertionID assertion) {
  if (portAt(assertion, PortKind::assertion) == nullptr) return resultOf(platform::kernelBadArgument);
  ports().open.erase(assertion);
  virtual_mac::changeNow(*machineStore(), virtual_mac::allowSleep);
  return KERN_SUCCESS;
}

// The snapshot contains the descriptions; the list contains their indexes.

CFTypeRef IOPSCopyPowerSourcesInfo() {
  if (machineStore() == nullptr) return nullptr;
  const auto sources = virtual_mac::readNow(*machineStore(), virtual_mac::powerSourceList);
  if (!sources) return nullptr;
  std::vector<Object*> descriptions;
  for (const auto& source : *sources) descriptions.push_back(dictionaryOf(*source));
  return refTo<CFTypeRef>(new Array(std::move(descriptions)));
}

CFArrayRef IOPSCopyPowerSourcesList(CFTypeRef snapshot) {
  if (gFailing == "IOPSCopyPowerSourcesList") return nullptr;
  std::vector<Object*> indexes;
  const auto count = static_cast<std::int64_t>(as<Array>(snapshot).values.size());
  for (std::int64_t place = 0; place < count; ++place) indexes.push_back(new Number(place));
  return refTo<CFArrayRef>(new Array(std::move(indexes)));
}

CFDictionaryRef IOPSGetPowerSourceDescription(CFTypeRef snapshot, CFTypeRef source) {
  if (gFailing == "IOPSGetPowerSourceDescription") return nullptr;
  const auto place = static_cast<std::size_t>(std::get<std::int64_t>(as<Number>(source).value));
  return refTo<CFDictionaryRef>(as<Array>(snapshot).values.at(place));
}

CFRunLoopSourceRef IOPSNotificationCreateRunLoopSource(IOPowerSourceCallbackType callback, void* context) {
  if (machineStore() == nullptr || !gNotifiesOfPowerSources) return nullptr;
  const virtual_mac::DeliveredChanges before{.count = machineStore()->view().machine().powerSource.changes};
  const auto arrived = [callback, context, delivered = before](const Machine& machine) mutable {
    std::vector<Work> work;
    if (delivered.takeNew(machine)) work.emplace_back([=] { callback(context); });
    return work;
  };
  return refTo<CFRunLoopSourceRef>(new Source(Rank::powerSources, arrived));
}
}
