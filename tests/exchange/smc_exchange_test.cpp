// The client of the controller, exchange by exchange: the test checks each request and provides each answer.
#include <algorithm>
#include <array>
#include <string_view>
#include <utility>
#include <vector>

#include "fuzz/served_machine.h"
#include "hardware/smc.h"
#include "support/testing.h"

namespace brisko::smc_exchange_test {
namespace {

using namespace test;
using platform::KernelStatus;
using platform::kernelSuccess;
using platform::SmcRecord;

constexpr platform::SmcConnection connection = 7;
constexpr KernelStatus notReady = 0xE00002D8;
constexpr std::size_t sizeAt = 28;
constexpr std::size_t typeAt = 32;
constexpr std::size_t resultAt = 40;
constexpr std::size_t commandAt = 42;
constexpr std::size_t indexAt = 44;
constexpr std::size_t bytesAt = 48;

// A record of zeroes, except these bytes at its beginning and these single bytes.
SmcRecord record(std::string_view key, const std::vector<std::pair<std::size_t, std::uint8_t>>& bytes) {
  SmcRecord made{};
  std::copy(key.begin(), key.end(), made.begin());
  for (const auto& [at, byte] : bytes) made[at] = byte;
  return made;
}

struct Answer {
  KernelStatus status = kernelSuccess;
  SmcRecord record{};
};

class SmcExchange : public ::testing::Test {
 protected:
  SmcExchange() {
    gConn = connection;
    gServed.exchange = [this](const SmcRecord& input, SmcRecord& output) {
      sent.push_back(input);
      const Answer& answer = sent.size() == 1 ? first : second;
      if (answer.status == kernelSuccess) output = answer.record;
      return answer.status;
    };
  }

  // The answer about the key: four bytes, of a type whose code is 1, 2, 3, 4.
  Answer first{
      .record = record(
          "",
          {{sizeAt, 4}, {typeAt, 1}, {typeAt + 1, 2}, {typeAt + 2, 3}, {typeAt + 3, 4}, {bytesAt, 0xEE}})};
  Answer second{.record = record("", {{bytesAt, 0xAA}, {bytesAt + 31, 0xBB}})};
  std::vector<SmcRecord> sent;
};

// In a record the first character of a key is the last of its four bytes.
const SmcRecord question = record("ETHC", {{commandAt, 9}});

TEST_F(SmcExchange, sendsTheKeyThenTheKeyWithItsSizeForARead) {
  SmcValue value;
  EXPECT_EQ(SMCReadKey(connection, "CHTE", value), kernelSuccess);
  EXPECT_THAT(sent, ElementsAre(question, record("ETHC", {{sizeAt, 4}, {commandAt, 5}})));
  EXPECT_EQ(value.key, 0x43485445U);
  EXPECT_EQ(value.dataSize, 4U);
  EXPECT_EQ(value.dataType, 0x04030201U);
  EXPECT_EQ(value.bytes.front(), 0xAA);
  EXPECT_EQ(value.bytes.back(), 0xBB);
}

TEST_F(SmcExchange, sendsTheKeyThenTheBytesWithTheirSizeAndNoTypeForAWrite) {
  EXPECT_EQ(SMCWriteKey(connection, "CHTE", std::vector<std::uint8_t>{1, 2, 3, 4}), kernelSuccess);
  EXPECT_THAT(sent, ElementsAre(question, record("ETHC", {{sizeAt, 4},
                                                          {commandAt, 6},
                                                          {bytesAt, 1},
                                                          {bytesAt + 1, 2},
                                                          {bytesAt + 2, 3},
                                                          {bytesAt + 3, 4}})));
}

TEST_F(SmcExchange, sendsTheIndexAloneForTheKeyAtAnIndex) {
  first.record = record("ETHC", {{resultAt, 1}});  // a result that is ignored
  std::array<char, 5> name{'?', '?', '?', '?', '?'};
  EXPECT_EQ(SMCKeyAtIndex(connection, 0x01020304, name), kernelSuccess);
  EXPECT_THAT(sent,
              ElementsAre(record(
                  "", {{commandAt, 8}, {indexAt, 4}, {indexAt + 1, 3}, {indexAt + 2, 2}, {indexAt + 3, 1}})));
  EXPECT_EQ(name, (std::array<char, 5>{'C', 'H', 'T', 'E', '\0'}));
}

TEST_F(SmcExchange, padsAShorterKeyWithZeroBytes) {
  for (const auto& [key, wire] :
       {std::pair{"CHT", std::string_view("\0THC", 4)}, std::pair{"CH", std::string_view("\0\0HC", 4)},
        std::pair{"C", std::string_view("\0\0\0C", 4)}, std::pair{"", std::string_view()}}) {
    sent.clear();
    SmcValue value;
    EXPECT_EQ(SMCReadKey(connection, key, value), kernelSuccess);
    EXPECT_EQ(sent.front(), record(wire, {{commandAt, 9}})) << key;
  }
}

TEST_F(SmcExchange, failsTheReadIfTheSecondCallFails) {
  second.status = notReady;
  SmcValue value;
  EXPECT_EQ(SMCReadKey(connection, "CHTE", value), notReady);
  sent.clear();
  EXPECT_EQ(readKey("CHTE"), std::nullopt);
}

TEST_F(SmcExchange, failsTheReadIfTheControllerRefusesTheValue) {
  second.record[resultAt] = 1;
  SmcValue value;
  EXPECT_EQ(SMCReadKey(connection, "CHTE", value), platform::kernelNotFound);
  sent.clear();
  EXPECT_EQ(readKey("CHTE"), std::nullopt);
}

TEST_F(SmcExchange, clearsTheValueIfTheReadFails) {
  const auto old = [] {
    SmcValue value{.key = 1, .dataSize = 2, .dataType = 3};
    value.bytes.fill(0xCC);
    return value;
  };
  SmcValue value = old();
  second.status = notReady;
  EXPECT_EQ(SMCReadKey(connection, "CHTE", value), notReady);
  EXPECT_EQ(value.key, 0x43485445U);
  EXPECT_EQ(value.dataSize, 4U);
  EXPECT_THAT(value.bytes, Each(0));

  sent.clear();
  value = old();
  first.record[resultAt] = 0x84;
  EXPECT_EQ(SMCReadKey(connection, "CHTE", value), platform::kernelNotFound);
  EXPECT_EQ(value.key, 0x43485445U);
  EXPECT_EQ(value.dataSize, 0U);
  EXPECT_EQ(value.dataType, 0U);
  EXPECT_THAT(value.bytes, Each(0));
}

}  // namespace
}  // namespace brisko::smc_exchange_test
