// A fake for IOKit's access to the registry and to drivers.
#pragma once

#include <cstddef>
#include <cstdint>

#include <CoreFoundation/CoreFoundation.h>
#include <mach/mach_types.h>

using IOReturn = kern_return_t;
using IOOptionBits = UInt32;
using io_object_t = mach_port_t;
using io_connect_t = io_object_t;
using io_service_t = io_object_t;
using io_registry_entry_t = io_object_t;
using IONotificationPortRef = struct IONotificationPort*;

enum : io_object_t { IO_OBJECT_NULL = 0 };

extern "C" {

extern const mach_port_t kIOMainPortDefault;

using IOServiceInterestCallback = void (*)(void* refcon, io_service_t service, std::uint32_t messageType,
                                           void* messageArgument);

kern_return_t IOObjectRelease(io_object_t object);

CFMutableDictionaryRef IOServiceMatching(const char* name);
// Consumes `matching`.
io_service_t IOServiceGetMatchingService(mach_port_t mainPort, CFDictionaryRef matching);

kern_return_t IORegistryEntryCreateCFProperties(io_registry_entry_t entry, CFMutableDictionaryRef* properties,
                                                CFAllocatorRef allocator, IOOptionBits options);
CFTypeRef IORegistryEntryCreateCFProperty(io_registry_entry_t entry, CFStringRef key,
                                          CFAllocatorRef allocator, IOOptionBits options);

kern_return_t IOServiceOpen(io_service_t service, task_port_t owningTask, std::uint32_t type,
                            io_connect_t* connection);
kern_return_t IOServiceClose(io_connect_t connection);
kern_return_t IOConnectCallStructMethod(mach_port_t connection, std::uint32_t selector, const void* input,
                                        std::size_t inputSize, void* output, std::size_t* outputSize);

CFRunLoopSourceRef IONotificationPortGetRunLoopSource(IONotificationPortRef port);
}
