// Answers of the controller's driver that have not been seen on a Mac.

#include "platform/smc_service.h"

#include <algorithm>
#include <array>

#include "fakes/system.h"
#include "hardware/smc.h"
#include "support/on_virtual_mac.h"
#include "support/testing.h"

namespace brisko::smc_service_test {
namespace {

using namespace test;
using platform::kernelError;
using platform::kernelSuccess;

constexpr std::size_t whole = 80;
constexpr std::size_t resultAt = 40;
constexpr std::size_t bytesAt = 48;

class SmcAnswer : public test::OnVirtualMac {
 protected:
  void SetUp() override { openController(); }
  ~SmcAnswer() override { fakes::gAnswerBytes = whole; }

  static bool isReadFrom(std::string_view key, std::size_t answered) {
    fakes::gAnswerBytes = answered;
    return readKey(key).has_value();
  }
  void size(std::string_view key, double bytes) {
    mac.change({.kind = ChangeKind::keySize, .key = virtual_mac::keyCode(key), .number = bytes});
  }
};

TEST_F(SmcAnswer, isPaddedWithZeroesIfItIsTooShort) {
  platform::SmcRecord question{'E', 'T', 'H', 'C'};  // asks for the size of CHTE
  question[42] = 9;
  platform::SmcRecord all{};
  ASSERT_EQ(platform::exchangeSmc(gConn, question, all).status, kernelSuccess);
  for (const std::size_t bytes : {std::size_t{0}, std::size_t{29}, resultAt, whole - 1, whole, whole + 8}) {
    fakes::gAnswerBytes = bytes;
    platform::SmcRecord output;
    output.fill(0xAB);
    const auto exchange = platform::exchangeSmc(gConn, question, output);
    EXPECT_EQ(exchange.status, kernelSuccess);
    EXPECT_EQ(exchange.answered, std::min(bytes, whole));
    platform::SmcRecord expected{};
    std::copy_n(all.begin(), std::min(bytes, whole), expected.begin());
    EXPECT_EQ(output, expected) << bytes;
  }
}

TEST_F(SmcAnswer, isReadIfItContainsTheResultAndTheRequestedBytes) {
  mac.keyBytes("CHTE", {1, 2, 3, 4});
  for (const std::size_t bytes : {bytesAt + 4, bytesAt + 5, whole - 1, whole, whole + 8}) {
    fakes::gAnswerBytes = bytes;
    EXPECT_EQ(readKey("CHTE"), (test::Bytes{1, 2, 3, 4})) << bytes;
  }
  for (const std::size_t bytes : {std::size_t{0}, resultAt, resultAt + 1, bytesAt, bytesAt + 3}) {
    EXPECT_FALSE(isReadFrom("CHTE", bytes)) << bytes;
  }
}

TEST_F(SmcAnswer, holds32BytesOfALargerKeyAndNoneOfAnEmptyOne) {
  size("CHTE", 40);
  EXPECT_TRUE(isReadFrom("CHTE", whole));
  EXPECT_FALSE(isReadFrom("CHTE", whole - 1));
  size("CHTE", 0);
  EXPECT_TRUE(isReadFrom("CHTE", resultAt + 1));
  EXPECT_FALSE(isReadFrom("CHTE", resultAt));
}

TEST_F(SmcAnswer, needsOnlyTheResultForAWrite) {
  const std::array<std::uint8_t, 4> stop{1, 0, 0, 0};
  fakes::gAnswerBytes = resultAt + 1;
  EXPECT_TRUE(writeKey("CHTE", stop));
  fakes::gAnswerBytes = resultAt;
  EXPECT_EQ(SMCWriteKey(gConn, "CHTE", stop), kernelError) << "unknown without a result";
}

TEST_F(SmcAnswer, needsTheKeyAndTheResultForAnIndex) {
  std::array<char, 5> name{};
  fakes::gAnswerBytes = resultAt + 1;
  EXPECT_EQ(SMCKeyAtIndex(gConn, 0, name), kernelSuccess);
  EXPECT_NE(name[0], '\0');
  fakes::gAnswerBytes = resultAt;
  EXPECT_EQ(SMCKeyAtIndex(gConn, 0, name), kernelError);
}

}  // namespace
}  // namespace brisko::smc_service_test
