// A signature that the system does not hand out, or that names no team.

#include "platform/code_signature.h"

#include "fakes/system.h"
#include "support/testing.h"
#include "support/virtual_mac.h"

namespace brisko::platform::mac_code_signature_test {
namespace {

TEST(MacCodeSignature, namesNoTeamIfItCannotBeRead) {
  const test::VirtualMac mac;
  ASSERT_TRUE(teamIdentifier().has_value());
  for (const char* function : {"SecCodeCopySelf", "SecCodeCopyStaticCode"}) {
    fakes::gFailing = function;
    EXPECT_EQ(teamIdentifier(), std::nullopt) << function;
  }
}

TEST(MacCodeSignature, namesNoTeamIfNoneSignedTheProgram) {
  const test::VirtualMac mac;
  fakes::gSignedByATeam = false;
  EXPECT_EQ(teamIdentifier(), std::nullopt);
}

}  // namespace
}  // namespace brisko::platform::mac_code_signature_test
