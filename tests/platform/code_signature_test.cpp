// The contract of platform/code_signature.h.

#include "platform/code_signature.h"

#include "sim/machine/client_requirement.h"
#include "support/contract_machine.h"
#include "support/testing.h"

namespace brisko::platform::code_signature_test {
namespace {

using namespace test;
using virtual_mac::appTeam;
using virtual_mac::ChangeKind;

TEST(CodeSignatureContract, isThatOfTheAppOnANewMac) {
  const ContractMachine mac;
  EXPECT_EQ(teamIdentifier(), std::string(appTeam));
}

TEST(CodeSignatureContract, returnsAnEmptyTeamUnchanged) {
  ContractMachine mac;
  mac.change({.kind = ChangeKind::daemonTeam});
  EXPECT_EQ(teamIdentifier(), "");
}

TEST(CodeSignatureContract, namesNoTeamWhileItCannotBeRead) {
  ContractMachine mac;
  mac.change({.kind = ChangeKind::daemonSignature, .number = 0});
  EXPECT_EQ(teamIdentifier(), std::nullopt);
  mac.change({.kind = ChangeKind::daemonSignature, .number = 1});
  EXPECT_EQ(teamIdentifier(), std::string(appTeam));
  mac.change({.kind = ChangeKind::daemonSignature, .number = 0});
  mac.change({.kind = ChangeKind::daemonTeam, .text = virtual_mac::shortText("ABCDE12345")});
  EXPECT_EQ(teamIdentifier(), "ABCDE12345") << "signed anew";
}

TEST(CodeSignatureWithoutAMachine, namesNoTeam) { EXPECT_EQ(teamIdentifier(), std::nullopt); }

}  // namespace
}  // namespace brisko::platform::code_signature_test
