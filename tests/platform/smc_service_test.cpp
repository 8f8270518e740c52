// The contract of platform/smc_service.h.

#include "platform/smc_service.h"

#include <algorithm>
#include <string_view>

#include "support/contract_machine.h"
#include "support/testing.h"

namespace brisko::platform::smc_service_test {
namespace {

using namespace test;
using virtual_mac::ChangeKind;
using virtual_mac::SmcService;

constexpr std::uint8_t readKeyCommand = 5;
constexpr std::uint8_t writeKeyCommand = 6;
constexpr std::uint8_t keyInfoCommand = 9;

constexpr std::size_t sizeOffset = 28;
constexpr std::size_t resultOffset = 40;
constexpr std::size_t commandOffset = 42;
constexpr std::size_t bytesOffset = 48;

// A record as it is sent: the key's code is a little-endian number.
SmcRecord recordFor(std::string_view key, std::uint8_t command, std::uint8_t size = 0) {
  SmcRecord record{};
  for (std::size_t index = 0; index < 4; ++index) record[index] = static_cast<std::uint8_t>(key[3 - index]);
  record[sizeOffset] = size;
  record[commandOffset] = command;
  return record;
}

SmcRecord marked() {
  SmcRecord record;
  record.fill(0xEE);
  return record;
}

void setService(ContractMachine& mac, SmcService service) {
  mac.change({.kind = ChangeKind::smcService, .number = static_cast<double>(service)});
}

class SmcServiceContract : public ::testing::Test {
 protected:
  KernelStatus exchange(const SmcRecord& input) {
    const SmcExchange done = exchangeSmc(connection, input, output);
    EXPECT_EQ(done.answered, done.status == kernelSuccess ? output.size() : 0);
    return done.status;
  }

  ContractMachine mac;
  SmcConnection connection = openSmc().connection;
  SmcRecord output = marked();
};

TEST(SmcOpeningContract, returnsAConnectionThatIsNotZero) {
  const ContractMachine mac;
  const SmcOpening opening = openSmc();
  EXPECT_EQ(opening.status, kernelSuccess);
  EXPECT_NE(opening.connection, 0U);
}

TEST(SmcOpeningContract, returnsADifferentConnectionEachTime) {
  const ContractMachine mac;
  const SmcOpening first = openSmc();
  const SmcOpening second = openSmc();
  EXPECT_NE(first.connection, second.connection);
  EXPECT_EQ(closeSmc(first.connection), kernelSuccess);
  SmcRecord output;
  EXPECT_EQ(exchangeSmc(second.connection, recordFor("CHTE", keyInfoCommand), output).status, kernelSuccess);
}

TEST(SmcOpeningContract, countsTheProcessesThatOpenedTheMachine) {
  const ContractMachine mac;
  const std::uint64_t before = mac.record().system.processes;
  (void)openSmc();
  EXPECT_EQ(mac.record().system.processes, before + 1);
}

TEST(SmcOpeningContract, findsNoServiceOnAMachineWithoutAController) {
  ContractMachine mac;
  setService(mac, SmcService::absent);
  const SmcOpening opening = openSmc();
  EXPECT_EQ(opening.status, kernelNotFound);
  EXPECT_EQ(opening.connection, 0U);
}

TEST(SmcOpeningContract, passesOnARefusal) {
  ContractMachine mac;
  setService(mac, SmcService::refusesToOpen);
  const SmcOpening opening = openSmc();
  EXPECT_EQ(opening.status, kernelNotPrivileged);
  EXPECT_EQ(opening.connection, 0U);
  EXPECT_EQ(mac.record().system.processes, 0U);
}

TEST(SmcOpeningContract, findsNoServiceWithoutAMachine) {
  const SmcOpening opening = openSmc();
  EXPECT_EQ(opening.status, kernelNotFound);
  EXPECT_EQ(opening.connection, 0U);
  SmcRecord output = marked();
  EXPECT_EQ(exchangeSmc(1, recordFor("CHTE", keyInfoCommand), output).status, kernelNotOpen);
  EXPECT_EQ(output, SmcRecord{});
}

TEST_F(SmcServiceContract, reportsTheSizeOfAKey) {
  EXPECT_EQ(exchange(recordFor("CHTE", keyInfoCommand)), kernelSuccess);
  EXPECT_EQ(output[resultOffset], 0);
  EXPECT_EQ(output[sizeOffset], 4);
}

TEST_F(SmcServiceContract, readsWhatWasWritten) {
  SmcRecord write = recordFor("CHTE", writeKeyCommand, 4);
  write[bytesOffset] = 1;
  EXPECT_EQ(exchange(write), kernelSuccess);
  EXPECT_EQ(output[resultOffset], 0);
  EXPECT_EQ(exchange(recordFor("CHTE", readKeyCommand, 4)), kernelSuccess);
  EXPECT_EQ(output[resultOffset], 0);
  EXPECT_EQ(output[bytesOffset], 1);
  EXPECT_EQ(output[bytesOffset + 1], 0);
}

TEST_F(SmcServiceContract, anUnknownKeyIsASuccessfulCallWithAnUnsuccessfulResult) {
  EXPECT_EQ(exchange(recordFor("ZZZZ", keyInfoCommand)), kernelSuccess);
  EXPECT_NE(output[resultOffset], 0);
}

TEST_F(SmcServiceContract, aCallThatFailsLeavesTheOutputAllZero) {
  mac.change({.kind = ChangeKind::keyReadStatus,
              .key = virtual_mac::keyCode("CHTE"),
              .status = kernelNotPrivileged});
  EXPECT_EQ(exchange(recordFor("CHTE", keyInfoCommand)), kernelNotPrivileged);
  EXPECT_EQ(output, SmcRecord{});
}

TEST_F(SmcServiceContract, closingEndsTheConnection) {
  EXPECT_EQ(closeSmc(connection), kernelSuccess);
  EXPECT_EQ(exchange(recordFor("CHTE", keyInfoCommand)), kernelNotOpen);
  EXPECT_EQ(output, SmcRecord{});
  EXPECT_EQ(closeSmc(connection), kernelNotOpen);
}

TEST_F(SmcServiceContract, aConnectionThatWasNeverOpenedIsRefused) {
  SmcRecord untouched = marked();
  EXPECT_EQ(exchangeSmc(0, recordFor("CHTE", keyInfoCommand), untouched).status, kernelNotOpen);
  EXPECT_EQ(untouched, SmcRecord{});
  EXPECT_EQ(exchangeSmc(connection + 7, recordFor("CHTE", keyInfoCommand), untouched).status, kernelNotOpen);
  EXPECT_EQ(closeSmc(0), kernelNotOpen);
}

TEST_F(SmcServiceContract, theKeysKeepTheirValuesAfterTheConnection) {
  SmcRecord write = recordFor("CHTE", writeKeyCommand, 4);
  write[bytesOffset] = 1;
  ASSERT_EQ(exchange(write), kernelSuccess);
  ASSERT_EQ(closeSmc(connection), kernelSuccess);
  connection = openSmc().connection;
  ASSERT_EQ(exchange(recordFor("CHTE", readKeyCommand, 4)), kernelSuccess);
  EXPECT_EQ(output[bytesOffset], 1);
}

}  // namespace
}  // namespace brisko::platform::smc_service_test
