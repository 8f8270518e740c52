#include "platform/macos/smart_charge_calls.h"

#import <Foundation/Foundation.h>

// The expected messages of the private class. The width of the returned limit is not documented; the lower
// half is the same in every width.
@protocol SmartChargeClient
- (instancetype)initWithClientName:(NSString*)name;
- (BOOL)isMCLSupported;
- (BOOL)isMCLCurrentlyEnabled:(NSError**)error;
- (int)getMCLLimitWithError:(NSError**)error;
- (BOOL)setMCLLimit:(NSInteger)percent error:(NSError**)error;
@end

namespace brisko::platform::smart_charge {
namespace {

// Kept until the process ends.
id<SmartChargeClient> client = nil;

// The behaviour of the class may change at any time. An exception that left this file would end the daemon
// with the charge still held.
template <class Call>
auto caught(Call call) -> decltype(call()) {
  @autoreleasepool {
    @try {
      return call();
    } @catch (...) {
      return {};
    }
  }
}

}  // namespace

bool initWithClientName(const std::string& name) {
  return caught([&name] {
    const id<SmartChargeClient> fresh = (id<SmartChargeClient>)[NSClassFromString(@(className)) alloc];
    client = [fresh initWithClientName:@(name.c_str())];
    return client != nil;
  });
}

std::optional<bool> isMCLSupported() {
  return caught([]() -> std::optional<bool> { return [client isMCLSupported]; });
}

std::optional<bool> isMCLCurrentlyEnabled() {
  return caught([]() -> std::optional<bool> {
    NSError* error = nil;
    const BOOL enabled = [client isMCLCurrentlyEnabled:&error];
    if (error != nil) return std::nullopt;
    return enabled;
  });
}

std::optional<std::int64_t> getMCLLimit() {
  return caught([]() -> std::optional<std::int64_t> {
    NSError* error = nil;
    const int limit = [client getMCLLimitWithError:&error];
    if (error != nil) return std::nullopt;
    return limit;
  });
}

std::optional<bool> setMCLLimit(std::int64_t percent) {
  return caught([percent]() -> std::optional<bool> {
    NSError* error = nil;
    const BOOL done = [client setMCLLimit:percent error:&error];
    return error == nil && done;
  });
}

}  // namespace brisko::platform::smart_charge
