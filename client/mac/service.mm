#include "client/service.h"

#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <optional>
#include <utility>

#include "platform/macos/control_protocol.h"

using brisko::client::ServiceAnswer;
using brisko::client::ServiceReply;

namespace {

constexpr const char* serviceName = "com.brisko.daemon.xpc";

// The one reply, which comes on a thread of the system, if at all. It may come after the wait has ended, so
// both sides share it.
class Mailbox {
 public:
  // Only the first reply counts: a broken connection may report itself more than once.
  void put(ServiceReply reply) {
    const std::lock_guard lock(mutex_);
    if (reply_) return;
    reply_ = std::move(reply);
    arrived_.notify_one();
  }

  [[nodiscard]] ServiceReply await(double seconds) {
    std::unique_lock lock(mutex_);
    arrived_.wait_for(lock, std::chrono::duration<double>(seconds), [this] { return reply_.has_value(); });
    return reply_.value_or(ServiceReply{});
  }

 private:
  std::mutex mutex_;  // guards the reply
  std::condition_variable arrived_;
  std::optional<ServiceReply> reply_;
};

// Sends one request over a new connection. Without a daemon, or if it does not accept us, the connection only
// reports an error.
template <typename Send>
ServiceReply ask(double seconds, const Send& send) {
  @autoreleasepool {
    const auto mailbox = std::make_shared<Mailbox>();
    NSXPCConnection* connection = [[NSXPCConnection alloc] initWithMachServiceName:@(serviceName)
                                                                           options:NSXPCConnectionPrivileged];
    connection.remoteObjectInterface =
        [NSXPCInterface interfaceWithProtocol:@protocol(BriskoServiceProtocol)];
    connection.invalidationHandler = ^{
      mailbox->put({});
    };
    [connection resume];
    const id service = [connection remoteObjectProxyWithErrorHandler:^(NSError* __unused error) {
      mailbox->put({});
    }];
    send(service, ^(BOOL done, NSString* error) {
      const char* text = error == nil ? nullptr : error.UTF8String;
      mailbox->put({done ? ServiceAnswer::done : ServiceAnswer::refused, text == nullptr ? "" : text});
    });
    ServiceReply reply = mailbox->await(seconds);
    [connection invalidate];
    return reply;
  }
}

}  // namespace

namespace brisko::client {

ServiceReply applySettings(const std::string& json, double seconds) {
  return ask(seconds, [&json](id<BriskoServiceProtocol> service, ReplyBlock reply) {
    [service applySettings:[NSData dataWithBytes:json.data() length:json.size()] reply:reply];
  });
}

ServiceReply requestRestart(double seconds) {
  return ask(seconds,
             [](id<BriskoServiceProtocol> service, ReplyBlock reply) { [service restartWithReply:reply]; });
}

}  // namespace brisko::client
