// Which connections the listener admits.
#include "platform/control_listener.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "objective_c/foundation.h"
#include "platform/macos/control_protocol.h"

namespace brisko::platform {
namespace {

using fakes::connectionJournal;
using ::testing::ElementsAre;

BOOL acceptsWith(const std::optional<std::string>& requirement) {
  listenForControl("com.brisko.daemon.xpc", [requirement] { return requirement; }, {});
  NSXPCConnection* connection = [[NSXPCConnection alloc] init];
  NSXPCListener* noListener = nil;
  return [fakes::listenerDelegate() listener:noListener shouldAcceptNewConnection:connection];
}

TEST(ControlListener, requiresASignatureBeforeAConnectionIsServed) {
  EXPECT_TRUE(acceptsWith("anchor apple generic"));
  EXPECT_THAT(connectionJournal(),
              ElementsAre("requires anchor apple generic", "interface", "object", "resume"));
}

TEST(ControlListener, admitsAConnectionWithoutARequirement) {
  EXPECT_TRUE(acceptsWith(std::nullopt));
  EXPECT_THAT(connectionJournal(), ElementsAre("interface", "object", "resume"));
}

TEST(ControlListener, refusesAConnectionWhoseRequirementRaises) {
  fakes::gRequirementRaises = true;
  EXPECT_FALSE(acceptsWith("no requirement at all"));
  EXPECT_THAT(connectionJournal(), ElementsAre("requires no requirement at all"));
}

std::vector<std::string>& replies() {
  static std::vector<std::string> all;
  return all;
}

TEST(ControlService, passesOnTheReasonOfARefusalAndNoneOtherwise) {
  ControlRequests requests;
  requests.purgeAllData = [](const Reply& reply) { reply(false, "The folder is busy."); };
  requests.restart = [](const Reply& reply) { reply(true, std::nullopt); };
  listenForControl(
      "com.brisko.daemon.xpc", [] { return std::nullopt; }, requests);
  NSXPCConnection* connection = [[NSXPCConnection alloc] init];
  NSXPCListener* noListener = nil;
  ASSERT_TRUE([fakes::listenerDelegate() listener:noListener shouldAcceptNewConnection:connection]);
  const ReplyBlock note = ^(BOOL done, NSString* error) {
    replies().push_back((done ? "done " : "refused: ") + std::string(error == nil ? "" : error.UTF8String));
  };
  [fakes::gExported purgeAllDataWithReply:note];
  [fakes::gExported restartWithReply:note];
  EXPECT_THAT(replies(), ElementsAre("refused: The folder is busy.", "done "));
}

}  // namespace
}  // namespace brisko::platform
