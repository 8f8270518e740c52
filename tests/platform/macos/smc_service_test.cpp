// Answers of the controller's driver that a Mac has not been seen to give.

#include "platform/smc_service.h"

#include <algorithm>

#include <gtest/gtest.h>

#include "stand_ins/system.h"
#include "support/virtual_mac.h"

namespace brisko::platform {
namespace {

TEST(SmcAnswer, thatIsNotWholeIsAFailure) {
  const test::VirtualMac mac;
  const SmcConnection connection = openSmc().connection;
  SmcRecord question{'E', 'T', 'H', 'C'};  // what is CHTE?
  question[42] = 9;
  SmcRecord output;
  ASSERT_EQ(exchangeSmc(connection, question, output), kernelSuccess);
  for (const std::size_t bytes : {std::size_t{0}, output.size() / 2, output.size() - 1}) {
    stand_ins::gAnswerBytes = bytes;
    output.fill(0xAB);
    EXPECT_EQ(exchangeSmc(connection, question, output), kernelError);
    EXPECT_EQ(std::count(output.begin(), output.end(), 0), 80) << bytes << " bytes";
  }
}

}  // namespace
}  // namespace brisko::platform
