// How the client reaches the control service.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "client/service.h"
#include "objective_c/foundation.h"

using ReplyBlock = void (^)(BOOL done, NSString* error);

namespace {
std::string received;
}  // namespace

// A daemon that answers at once, or not at all.
@interface FakeService : NSObject {
 @public
  bool answers;
  bool does;
}
@end

@implementation FakeService
- (void)applySettings:(NSData*)settings reply:(ReplyBlock)reply {
  received.assign(static_cast<const char*>(settings.bytes), settings.length);
  const char* reason = "Unreadable settings.";
  if (answers) reply(does, does ? nil : @(reason));
}
- (void)restartWithReply:(ReplyBlock)reply {
  received = "restart";
  if (answers) reply(does, nil);
}
@end

namespace brisko::client {
namespace {

using fakes::connectionJournal;
using ::testing::ElementsAre;

FakeService* serviceThat(bool answers, bool does) {
  FakeService* service = [[FakeService alloc] init];
  service->answers = answers;
  service->does = does;
  fakes::gService = service;
  return service;
}

TEST(ServiceClient, sendsSettingsToTheDaemonsMachServiceAndDisconnects) {
  static_cast<void>(serviceThat(true, true));
  EXPECT_EQ(applySettings("{\"limit\":70}", 5).answer, ServiceAnswer::done);
  EXPECT_EQ(received, "{\"limit\":70}");
  EXPECT_THAT(connectionJournal(), ElementsAre("connects to com.brisko.daemon.xpc, privileged", "interface",
                                               "invalidation handler", "resume", "invalidate"));
}

TEST(ServiceClient, passesOnTheReasonOfARefusal) {
  static_cast<void>(serviceThat(true, false));
  const ServiceReply reply = applySettings("[]", 5);
  EXPECT_EQ(reply.answer, ServiceAnswer::refused);
  EXPECT_EQ(reply.error, "Unreadable settings.");
}

TEST(ServiceClient, asksForARestart) {
  static_cast<void>(serviceThat(true, true));
  EXPECT_EQ(requestRestart(5).answer, ServiceAnswer::done);
  EXPECT_EQ(received, "restart");
}

TEST(ServiceClient, treatsAConnectionErrorAsNoAnswer) {
  fakes::gService = nil;
  EXPECT_EQ(applySettings("{}", 5).answer, ServiceAnswer::noAnswer);
  EXPECT_EQ(connectionJournal().back(), "invalidate");
}

TEST(ServiceClient, waitsNoLongerThanItsTimeout) {
  static_cast<void>(serviceThat(false, true));
  EXPECT_EQ(requestRestart(0.05).answer, ServiceAnswer::noAnswer);
}

}  // namespace
}  // namespace brisko::client
