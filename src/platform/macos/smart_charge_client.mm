#include "platform/smart_charge_client.h"

#include <string>

#import <Foundation/Foundation.h>
#include <dlfcn.h>

// What the private class is expected to understand. The limit is returned in a width that nobody documents;
// its lower half is the same in all of them.
@protocol SmartChargeClient
- (instancetype)initWithClientName:(NSString*)name;
- (BOOL)isMCLSupported;
- (BOOL)isMCLCurrentlyEnabled:(NSError**)error;
- (int)getMCLLimitWithError:(NSError**)error;
- (BOOL)setMCLLimit:(NSInteger)percent error:(NSError**)error;
@end

namespace brisko::platform {
namespace {

// For the life of the process.
id<SmartChargeClient> client = nil;

// What became of the loading shows in whether the class is there.
Class loadClass() {
  dlopen("/System/Library/PrivateFrameworks/PowerUI.framework/PowerUI", RTLD_LAZY);
  Class found = NSClassFromString(@"PowerUISmartChargeClient");
  return [found instancesRespondToSelector:@selector(setMCLLimit:error:)] ? found : Nil;
}

}  // namespace

bool smartChargeClassPresent() {
  @autoreleasepool {
    return loadClass() != Nil;
  }
}

bool makeSmartChargeClient(std::string_view name) {
  if (client != nil) return true;
  @autoreleasepool {
    Class found = loadClass();
    if (found == Nil) return false;
    client = [(id<SmartChargeClient>)[found alloc] initWithClientName:@(std::string(name).c_str())];
  }
  return client != nil;
}

bool smartChargeLimitSupported() {
  @autoreleasepool {
    return [client isMCLSupported];
  }
}

std::optional<bool> smartChargeLimitEnabled() {
  @autoreleasepool {
    NSError* error = nil;
    const BOOL enabled = [client isMCLCurrentlyEnabled:&error];
    if (error != nil) return std::nullopt;
    return enabled;
  }
}

std::optional<std::int64_t> smartChargeLimit() {
  @autoreleasepool {
    NSError* error = nil;
    const int limit = [client getMCLLimitWithError:&error];
    if (error != nil) return std::nullopt;
    return limit;
  }
}

std::optional<bool> setSmartChargeLimit(std::int64_t percent) {
  @autoreleasepool {
    NSError* error = nil;
    const BOOL done = [client setMCLLimit:percent error:&error];
    if (error != nil) return std::nullopt;
    return done;
  }
}

}  // namespace brisko::platform
