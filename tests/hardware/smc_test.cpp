#include "hardware/smc.h"

#include <array>
#include <string>

#include "support/on_virtual_mac.h"
#include "support/testing.h"

namespace brisko::smc_test {
namespace {

using namespace test;

class Smc : public test::OnVirtualMac {
 protected:
  void SetUp() override { openController(); }
  std::uint64_t exchanges() { return mac.machine().smc.exchanges; }
  void readStatus(std::string_view key, std::uint32_t status) {
    mac.change({.kind = ChangeKind::keyReadStatus, .key = virtual_mac::keyCode(key), .status = status});
  }
  void size(std::string_view key, double bytes) {
    mac.change({.kind = ChangeKind::keySize, .key = virtual_mac::keyCode(key), .number = bytes});
  }
};

TEST_F(Smc, opensAndClosesTheController) {
  EXPECT_NE(gConn, 0U);
  EXPECT_TRUE(readKey("CHTE"));
  EXPECT_EQ(SMCClose(gConn), platform::kernelSuccess);
  EXPECT_FALSE(readKey("CHTE"));
}

TEST_F(Smc, reportsNotFoundOnAComputerWithoutTheController) {
  mac.number(ChangeKind::smcService, static_cast<double>(virtual_mac::SmcService::absent));
  platform::SmcConnection connection = 7;
  EXPECT_EQ(SMCOpen(connection), platform::kernelNotFound);
  EXPECT_EQ(connection, 0U);
}

TEST_F(Smc, passesOnTheStatusOfARefusedOpening) {
  mac.number(ChangeKind::smcService, static_cast<double>(virtual_mac::SmcService::refusesToOpen));
  platform::SmcConnection connection = 7;
  EXPECT_NE(SMCOpen(connection), platform::kernelSuccess);
}

TEST_F(Smc, readsAKeyInTwoExchanges) {
  mac.keyBytes("CHTE", {1, 0, 0, 0});
  const auto before = exchanges();
  SmcValue value;
  ASSERT_EQ(SMCReadKey(gConn, "CHTE", value), platform::kernelSuccess);
  EXPECT_EQ(exchanges(), before + 2);
  EXPECT_EQ(value.key, 0x43485445U);
  EXPECT_EQ(value.dataSize, 4U);
  EXPECT_EQ(value.bytes[0], 1);
  EXPECT_EQ(readKey("CHTE"), (Bytes{1, 0, 0, 0}));
}

TEST_F(Smc, returnsNothingForAnUnknownKey) {
  SmcValue value;
  EXPECT_EQ(SMCReadKey(gConn, "XXXX", value), platform::kernelNotFound);
  EXPECT_EQ(value.key, 0x58585858U);
  EXPECT_FALSE(readKey("XXXX"));
  EXPECT_FALSE(readFirstByte("XXXX"));
}

TEST_F(Smc, passesOnTheKernelsStatusOfARead) {
  readStatus("CHTE", platform::kernelNotPrivileged);
  SmcValue value;
  EXPECT_EQ(SMCReadKey(gConn, "CHTE", value), platform::kernelNotPrivileged);
  EXPECT_FALSE(readKey("CHTE"));
}

TEST_F(Smc, readsAKeyOfSizeZeroAsAnEmptyList) {
  size("CHTE", 0);
  EXPECT_EQ(readKey("CHTE"), Bytes{});
  EXPECT_FALSE(readFirstByte("CHTE"));
}

TEST_F(Smc, readsAtMost32BytesOfALongerKey) {
  size("CHTE", 40);
  SmcValue value;
  ASSERT_EQ(SMCReadKey(gConn, "CHTE", value), platform::kernelSuccess);
  EXPECT_EQ(value.dataSize, 40U);
  ASSERT_TRUE(readKey("CHTE"));
  EXPECT_EQ(readKey("CHTE")->size(), 32U);
}

TEST_F(Smc, usesTheFirstFourBytesOfTheKey) {
  EXPECT_EQ(readKey("CHTE and more"), readKey("CHTE"));
  EXPECT_FALSE(readKey("CH"));
  EXPECT_FALSE(readKey(""));
}

TEST_F(Smc, writesAKeyWithExactlyItsSize) {
  mac.forgetJournal();
  const Bytes stopped{1, 0, 0, 0};
  EXPECT_TRUE(writeKey("CHTE", stopped));
  EXPECT_THAT(mac.writes(), ElementsAre("CHTE=01000000"));
  EXPECT_EQ(readKey("CHTE"), stopped);
}

TEST_F(Smc, failsBeforeTheWriteIfTheSizeDiffersFromTheKeys) {
  mac.forgetJournal();
  const auto before = exchanges();
  EXPECT_EQ(SMCWriteKey(gConn, "ACLC", Bytes{1, 2}), platform::kernelBadArgument);
  EXPECT_EQ(SMCWriteKey(gConn, "CHTE", Bytes{1, 0, 0}), platform::kernelBadArgument);
  EXPECT_EQ(SMCWriteKey(gConn, "CHTE", Bytes{}), platform::kernelBadArgument);
  EXPECT_EQ(exchanges(), before + 3);  // only the exchanges that ask for the size
  EXPECT_THAT(mac.writes(), IsEmpty());
}

TEST_F(Smc, refusesMoreThan32BytesWithoutAnyExchange) {
  const auto before = exchanges();
  EXPECT_EQ(SMCWriteKey(gConn, "CHTE", Bytes(33)), platform::kernelBadArgument);
  EXPECT_EQ(exchanges(), before);
  size("CHTE", 32);
  EXPECT_EQ(SMCWriteKey(gConn, "CHTE", Bytes(32)), platform::kernelSuccess);
}

TEST_F(Smc, distinguishesWhyAWriteFailed) {
  const Bytes stopped{1, 0, 0, 0};
  EXPECT_EQ(SMCWriteKey(gConn, "XXXX", stopped), platform::kernelNotFound);
  mac.keyOnWrite("CHTE", OnWrite::refuse);
  EXPECT_EQ(SMCWriteKey(gConn, "CHTE", stopped), platform::kernelError);
  EXPECT_FALSE(writeKey("CHTE", stopped));
  mac.keyOnWrite("CHTE", OnWrite::kernelError, 0xE00002D8);
  EXPECT_EQ(SMCWriteKey(gConn, "CHTE", stopped), 0xE00002D8);
  readStatus("CHTE", 0xE00002EB);
  EXPECT_EQ(SMCWriteKey(gConn, "CHTE", stopped), 0xE00002EB);
}

TEST_F(Smc, reportsAnIgnoredWriteAsAccepted) {
  mac.keyOnWrite("CHTE", OnWrite::ignore);
  EXPECT_TRUE(writeKey("CHTE", Bytes{1, 0, 0, 0}));
  EXPECT_EQ(readKey("CHTE"), (Bytes{0, 0, 0, 0}));
}

TEST_F(Smc, namesTheKeyAtAnIndex) {
  std::array<char, 5> name{};
  bool found = false;
  for (std::uint32_t index = 0; index < virtual_mac::keyPlaces; ++index) {
    name = {'?', '?', '?', '?', '?'};
    ASSERT_EQ(SMCKeyAtIndex(gConn, index, name), platform::kernelSuccess);
    EXPECT_EQ(name[4], '\0');
    found = found || std::string(name.data()) == "CHTE";
  }
  EXPECT_TRUE(found);
}

TEST_F(Smc, leavesTheNameUnchangedWhenTheCallFails) {
  static_cast<void>(SMCClose(gConn));
  std::array<char, 5> name{'a', 'b', 'c', 'd', 'e'};
  EXPECT_NE(SMCKeyAtIndex(gConn, 0, name), platform::kernelSuccess);
  EXPECT_EQ(name[0], 'a');
}

TEST(SmcWithoutConnection, readsAndWritesNothing) {
  const test::VirtualMac mac;
  EXPECT_FALSE(readKey("CHTE"));
  EXPECT_FALSE(writeKey("CHTE", Bytes{1, 0, 0, 0}));
}

}  // namespace
}  // namespace brisko::smc_test
