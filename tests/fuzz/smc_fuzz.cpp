// The controller's client reads only the 80 bytes of any answer. The input is the answer of the kernel and
// the controller to the question for a key's size, and their answer to the next exchange.
#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>

#include "fuzz/bytes.h"
#include "fuzz/require.h"
#include "fuzz/served_machine.h"
#include "fuzz/target.h"
#include "hardware/adapter.h"
#include "hardware/battery.h"
#include "hardware/charge_gate.h"
#include "hardware/smc.h"
#include "state/tick_state.h"

namespace brisko::smc_fuzz {
namespace {

using platform::KernelStatus;
using platform::kernelSuccess;
using platform::SmcRecord;

constexpr const char* key = "CHTE";
constexpr std::uint8_t infoCommand = 9;
constexpr std::uint8_t writeCommand = 6;

struct Answer {
  KernelStatus status = kernelSuccess;
  SmcRecord record{};

  [[nodiscard]] bool isYes() const { return status == kernelSuccess && record[40] == 0; }
  [[nodiscard]] std::uint32_t word(std::size_t at) const {
    return record[at] + (record[at + 1] * 0x100U) + (record[at + 2] * 0x10000U) +
           (record[at + 3] * 0x1000000U);
  }
};

KernelStatus takeStatus(Bytes& bytes) {
  constexpr std::array statuses{platform::kernelNotPrivileged, platform::kernelNotOpen, platform::kernelError,
                                KernelStatus{1}};
  const std::uint8_t which = bytes.byte();
  return which < statuses.size() ? statuses[which] : kernelSuccess;
}

Answer takeAnswer(Bytes& bytes) {
  Answer answer{.status = takeStatus(bytes)};
  const std::uint8_t result = bytes.byte();
  answer.record = bytes.array<80>();
  // Mostly success: after a failure nothing else is read.
  answer.record[40] = result < 64 ? result : 0;
  return answer;
}

// The client's requests, in order.
std::vector<SmcRecord> gAsked;

void serve(const Answer& info, const Answer& answer) {
  gAsked.clear();
  gServed.exchange = [&info, &answer](const SmcRecord& input, SmcRecord& output) {
    gAsked.push_back(input);
    const Answer& given = input[42] == infoCommand ? info : answer;
    // The seam promises an empty record if the kernel returned none.
    if (given.status == kernelSuccess) output = given.record;
    return given.status;
  };
}

KernelStatus statusOf(const Answer& answer, KernelStatus whenRefused) {
  if (answer.status != kernelSuccess) return answer.status;
  return answer.record[40] == 0 ? kernelSuccess : whenRefused;
}

// The bytes of a read; missing if it fails.
std::optional<std::vector<std::uint8_t>> expectedBytes(const Answer& info, const Answer& answer) {
  if (!info.isYes() || !answer.isYes()) return std::nullopt;
  const auto begin = answer.record.begin() + 48;
  return std::vector<std::uint8_t>(begin, begin + std::min<std::uint32_t>(info.word(28), 32));
}

void tryReading(const Answer& info, const Answer& answer) {
  SmcValue value;
  const KernelStatus status = SMCReadKey(1, key, value);
  const KernelStatus informed = statusOf(info, platform::kernelNotFound);
  require(status == (informed == kernelSuccess ? statusOf(answer, platform::kernelNotFound) : informed));
  require(gAsked.size() == (informed == kernelSuccess ? 2 : 1));
  require(value.key == 0x43485445);
  if (status == kernelSuccess) {
    require(value.dataSize == info.word(28) && value.dataType == info.word(32));
    require(std::equal(value.bytes.begin(), value.bytes.end(), answer.record.begin() + 48));
  }
  const auto bytes = expectedBytes(info, answer);
  require(readKey(key) == bytes);
  require(readFirstByte(key) == (bytes && !bytes->empty() ? std::optional(bytes->front()) : std::nullopt));
}

void tryWriting(const Answer& info, const Answer& answer, std::span<const std::uint8_t> bytes) {
  gAsked.clear();
  const KernelStatus status = SMCWriteKey(1, key, bytes);
  if (bytes.size() > 32) return require(status == platform::kernelBadArgument && gAsked.empty());
  const KernelStatus informed = statusOf(info, platform::kernelNotFound);
  if (informed != kernelSuccess) return require(status == informed && gAsked.size() == 1);
  if (info.word(28) != bytes.size()) {
    return require(status == platform::kernelBadArgument && gAsked.size() == 1);
  }
  require(status == statusOf(answer, platform::kernelError) && gAsked.size() == 2);
  SmcRecord wanted{};
  std::memcpy(wanted.data(), "ETHC", 4);
  wanted[28] = static_cast<std::uint8_t>(bytes.size());
  wanted[42] = writeCommand;
  std::copy(bytes.begin(), bytes.end(), wanted.begin() + 48);
  require(gAsked[1] == wanted);
  require(writeKey(key, bytes) == (status == kernelSuccess));
}

void tryIndex(const Answer& answer, std::uint32_t index) {
  std::array<char, 5> name{};
  const KernelStatus status = SMCKeyAtIndex(1, index, name);
  require(status == answer.status || (answer.record[40] != 0 && status != kernelSuccess));
  if (status != kernelSuccess) return;
  const std::array<std::uint8_t, 5> wanted{answer.record[3], answer.record[2], answer.record[1],
                                           answer.record[0], 0};
  require(std::memcmp(name.data(), wanted.data(), wanted.size()) == 0);
}

void tryReadings(const Answer& info, const Answer& answer) {
  const auto bytes = expectedBytes(info, answer);
  const std::optional<std::uint8_t> first =
      bytes && !bytes->empty() ? std::optional(bytes->front()) : std::nullopt;
  const auto temperature = readTemp();
  const float celsius = std::bit_cast<float>(answer.word(48));
  const bool believable = std::isfinite(celsius) && celsius > 0 && celsius < 100;
  require(temperature.has_value() == (bytes && bytes->size() >= 4 && believable));
  require(!temperature || *temperature == static_cast<double>(celsius));

  require(chargingNow() == (first ? std::optional(*first != 0) : std::nullopt));
  require(adapterPresent() == (first ? *first != 0xFF : gLastPlugged));

  const std::vector<std::uint8_t> stopped{1, 0, 0, 0};
  require(ChargeGate{.charge = ChargeKeys::chte}.chargingIsStopped() == (bytes == stopped));
  require(ChargeGate{.charge = ChargeKeys::ch0b0c}.chargingIsStopped() == (first == 2));
  require(ChargeGate{.charge = ChargeKeys::firmwareBand}.chargingIsStopped() == (first == 2));
  require(ChargeGate{.charge = ChargeKeys::macOSLimit}.chargingIsStopped() == (first && *first != 0));
  require(ChargeGate{.cut = AdapterCutKey::chie}.adapterIsCut() == (first == 8));
  require(ChargeGate{.cut = AdapterCutKey::ch0i}.adapterIsCut() == (first == 1));
  require(ChargeGate{.cut = AdapterCutKey::ch0j}.adapterIsCut() == (first == 1));
  require(!ChargeGate{.cut = AdapterCutKey::none}.adapterIsCut());

  const auto gate = ChargeGate::detect(false);
  const bool found = std::holds_alternative<ChargeGate>(gate);
  require(found == bytes.has_value());
  require(!found || std::get<ChargeGate>(gate) == ChargeGate{ChargeKeys::chte, AdapterCutKey::chie});
}

void tryInput(std::string_view input) {
  Bytes bytes(input);
  const std::uint8_t size = bytes.byte() % 40;
  const bool plugged = bytes.byte() % 2 == 1;
  const Answer info = takeAnswer(bytes);
  const Answer answer = takeAnswer(bytes);
  gLastPlugged = plugged;
  gConn = 1;
  serve(info, answer);
  tryReading(info, answer);
  const std::vector<std::uint8_t> written(answer.record.begin(), answer.record.begin() + size);
  tryWriting(info, answer, written);
  tryIndex(answer, info.word(0));
  tryReadings(info, answer);
}

const FuzzTarget target("smc", tryInput);

}  // namespace
}  // namespace brisko::smc_fuzz
