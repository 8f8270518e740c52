// Which connections the listener admits.
#include "platform/control_listener.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "objective_c/foundation.h"

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

}  // namespace
}  // namespace brisko::platform
