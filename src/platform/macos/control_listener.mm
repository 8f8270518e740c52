#include "platform/control_listener.h"

#include <utility>

#include "platform/macos/control_protocol.h"

using brisko::platform::ControlRequests;
using brisko::platform::Reply;

@interface BriskoService : NSObject <BriskoServiceProtocol>
@end

@interface BriskoServiceDelegate : NSObject <NSXPCListenerDelegate>
@end

namespace {

// Used until the process ends, so never destroyed. Set once, before the listener is resumed.
struct Service {
  std::function<std::optional<std::string>()> requirement;
  ControlRequests requests;
};
const Service* service = nullptr;

// Keeps the block for as long as an answer is possible.
Reply replyThrough(ReplyBlock block) {
  return [block](bool done, const std::optional<std::string>& error) {
    @autoreleasepool {
      block(done, error ? @(error->c_str()) : nil);
    }
  };
}

// Whether the system accepted the requirement. It raises an exception for an invalid one.
bool require(NSXPCConnection* connection, const std::string& requirement) {
  @try {
    [connection setCodeSigningRequirement:@(requirement.c_str())];
    return true;
  } @catch (...) {
    return false;
  }
}

}  // namespace

@implementation BriskoService

- (void)applySettings:(NSData*)settings reply:(ReplyBlock)reply {
  const auto* bytes = static_cast<const std::uint8_t*>(settings.bytes);
  service->requests.applySettings(std::vector<std::uint8_t>(bytes, bytes + settings.length),
                                  replyThrough(reply));
}

- (void)purgeAllDataWithReply:(ReplyBlock)reply {
  service->requests.purgeAllData(replyThrough(reply));
}

- (void)releaseChargeWithReply:(ReplyBlock)reply {
  service->requests.releaseCharge(replyThrough(reply));
}

- (void)restartWithReply:(ReplyBlock)reply {
  service->requests.restart(replyThrough(reply));
}

@end

@implementation BriskoServiceDelegate

- (BOOL)listener:(NSXPCListener*)__unused listener shouldAcceptNewConnection:(NSXPCConnection*)connection {
  // If the system checks a client's signature, no client is refused here. Without that check anybody could
  // control the daemon, which is worse than refusing the app.
  const auto requirement = service->requirement();
  if (requirement && !require(connection, *requirement)) return NO;
  connection.exportedInterface = [NSXPCInterface interfaceWithProtocol:@protocol(BriskoServiceProtocol)];
  connection.exportedObject = [[BriskoService alloc] init];
  [connection resume];
  return YES;
}

@end

namespace brisko::platform {

void listenForControl(const std::string& name, std::function<std::optional<std::string>()> requirement,
                      ControlRequests requests) {
  // The listener holds only a weak reference to its delegate.
  static BriskoServiceDelegate* delegate = nil;
  static NSXPCListener* listener = nil;
  @autoreleasepool {
    service = new Service{std::move(requirement), std::move(requests)};
    delegate = [[BriskoServiceDelegate alloc] init];
    listener = [[NSXPCListener alloc] initWithMachServiceName:@(name.c_str())];
    listener.delegate = delegate;
    [listener resume];
  }
}

}  // namespace brisko::platform
