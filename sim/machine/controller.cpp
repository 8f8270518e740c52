#include "sim/machine/controller.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <span>

#include "sim/machine/charge_limit.h"
#include "sim/machine/journal.h"
#include "sim/machine/physics.h"

namespace brisko::virtual_mac {
namespace {

using Bytes = std::array<std::uint8_t, 32>;
using platform::KernelStatus;
using platform::SmcRecord;

// Offsets and commands of the 80-byte record.
constexpr std::size_t keyAt = 0;
constexpr std::size_t sizeAt = 28;
constexpr std::size_t typeAt = 32;
constexpr std::size_t resultAt = 40;
constexpr std::size_t commandAt = 42;
constexpr std::size_t indexAt = 44;
constexpr std::size_t bytesAt = 48;

constexpr std::uint8_t commandRead = 5;
constexpr std::uint8_t commandWrite = 6;
constexpr std::uint8_t commandKeyAtIndex = 8;
constexpr std::uint8_t commandKeyInfo = 9;

constexpr std::uint8_t resultSuccess = 0;
constexpr std::uint8_t resultError = 1;
constexpr std::uint8_t resultUnknownKey = 0x84;

// How macOS 27 closes a key.
enum class Closing : std::uint8_t { stays, empty, refused };

struct KnownKey {
  std::uint32_t code;
  std::uint32_t size;
  std::string_view type;
  KeySource source;
  Closing closing;
};

// In the controller's own order: by code.
constexpr std::array<KnownKey, 15> knownKeys{{
    {keyCode("AC-W"), 1, "si8 ", KeySource::adapter, Closing::stays},
    {keyCode("ACLC"), 1, "ui8 ", KeySource::stored, Closing::stays},
    {keyCode("B0AC"), 2, "si16", KeySource::current, Closing::stays},
    {keyCode("CH0B"), 1, "ui8 ", KeySource::stored, Closing::empty},
    {keyCode("CH0C"), 1, "ui8 ", KeySource::stored, Closing::empty},
    {keyCode("CH0I"), 1, "ui8 ", KeySource::stored, Closing::stays},
    {keyCode("CH0J"), 1, "ui8 ", KeySource::stored, Closing::stays},
    {keyCode("CHIE"), 1, "ui8 ", KeySource::stored, Closing::stays},
    {keyCode("CHSC"), 1, "ui8 ", KeySource::charging, Closing::stays},
    {keyCode("CHTE"), 4, "ui32", KeySource::stored, Closing::empty},
    {keyCode("TB0T"), 4, "flt ", KeySource::temperature, Closing::stays},
    {keyCode("bfD0"), 4, "ui32", KeySource::stored, Closing::refused},
    {keyCode("bfE0"), 4, "ui32", KeySource::stored, Closing::refused},
    {keyCode("bfF0"), 1, "ui8 ", KeySource::stored, Closing::refused},
    {keyCode("bfG0"), 1, "ui8 ", KeySource::systemLimit, Closing::stays},
}};
static_assert(knownKeys.size() <= keyPlaces);

bool modelHas(std::uint32_t code, GateKind gate, CutKind cut, bool magSafeLight) {
  switch (code) {
    case keyCode("CHTE"):
      return gate == GateKind::chte;
    case keyCode("CH0B"):
    case keyCode("CH0C"):
      return gate == GateKind::ch0b0c;
    case keyCode("bfD0"):
    case keyCode("bfE0"):
    case keyCode("bfF0"):
      return gate == GateKind::firmwareBand;
    case keyCode("CHIE"):
      return cut == CutKind::chie;
    case keyCode("CH0I"):
      return cut == CutKind::ch0i;
    case keyCode("CH0J"):
      return cut == CutKind::ch0j;
    case keyCode("ACLC"):
      return magSafeLight;
    default:
      return true;
  }
}

SmcKey makeKey(const KnownKey& known) {
  SmcKey key{};
  key.code = known.code;
  key.size = known.size;
  key.type = keyCode(known.type);
  key.source = known.source;
  key.onWrite = known.source == KeySource::stored ? OnWrite::obey : OnWrite::refuse;
  key.writeStatus = platform::kernelError;
  key.releaseAfter = -1;
  key.releaseAt = -1;
  // A band that nobody has set lets the battery charge to 100 %.
  if (known.code == keyCode("bfD0") || known.code == keyCode("bfE0")) key.resting[0] = 100;
  key.bytes = key.resting;
  key.acted = key.resting;
  return key;
}

std::uint32_t load32(std::span<const std::uint8_t> bytes, std::size_t at) {
  return static_cast<std::uint32_t>(bytes[at]) | static_cast<std::uint32_t>(bytes[at + 1]) << 8U |
         static_cast<std::uint32_t>(bytes[at + 2]) << 16U | static_cast<std::uint32_t>(bytes[at + 3]) << 24U;
}

void store32(std::span<std::uint8_t> bytes, std::size_t at, std::uint32_t value) {
  for (std::size_t index = 0; index < 4; ++index) {
    bytes[at + index] = static_cast<std::uint8_t>(value >> (8 * index));
  }
}

Bytes bytesOf(const SmcRecord& record) {
  Bytes bytes{};
  std::copy_n(record.begin() + bytesAt, bytes.size(), bytes.begin());
  return bytes;
}

// What a read of the key returns.
Bytes shownBytes(const Machine& machine, const SmcKey& key) {
  if (key.scripted) return key.bytes;
  Bytes bytes{};
  switch (key.source) {
    case KeySource::stored:
      return key.bytes;
    case KeySource::adapter:
      bytes[0] = machine.adapter.present ? 0x00 : 0xFF;
      break;
    case KeySource::temperature:
      store32(bytes, 0, std::bit_cast<std::uint32_t>(static_cast<float>(machine.battery.temperatureC)));
      break;
    case KeySource::charging:
      bytes[0] = std::round(machine.battery.currentMA) > 0 ? 1 : 0;
      break;
    case KeySource::current: {
      const double current = std::clamp(std::round(machine.battery.currentMA), -32768.0, 32767.0);
      const auto word = static_cast<std::uint16_t>(static_cast<std::int16_t>(current));
      bytes[0] = static_cast<std::uint8_t>(word);
      bytes[1] = static_cast<std::uint8_t>(word >> 8U);
      break;
    }
    case KeySource::systemLimit:
      bytes[0] = shownLimit(machine);
      break;
  }
  return bytes;
}

void writeBytes(Machine& machine, SmcKey& key, const Bytes& bytes) {
  const bool reached = adapterReachesBattery(machine);
  key.bytes = bytes;
  if (key.onWrite == OnWrite::obey) key.acted = bytes;
  if (key.releaseAfter == 0) {
    releaseKey(key);
  } else if (key.releaseAfter > 0) {
    key.releaseAt = machine.now + key.releaseAfter;
  }
  settle(machine, reached);
}

// The answer to one command: the status of the call and, if that is 0, the controller's result.
struct Answer {
  KernelStatus status = platform::kernelSuccess;
  std::uint8_t result = resultSuccess;
};

Answer write(Machine& machine, SmcKey& key, const SmcRecord& input) {
  if (load32(input, sizeAt) != key.size || key.size > key.bytes.size()) return {.result = resultError};
  switch (key.onWrite) {
    case OnWrite::ignore:
      return {};
    case OnWrite::refuse:
      return {.result = resultError};
    case OnWrite::kernelError:
      return {.status = key.writeStatus};
    case OnWrite::obey:
    case OnWrite::storeWithoutEffect:
      break;
  }
  Bytes bytes = bytesOf(input);
  std::fill(bytes.begin() + key.size, bytes.end(), std::uint8_t{0});
  writeBytes(machine, key, bytes);
  return {};
}

Answer read(const Machine& machine, const SmcKey& key, const SmcRecord& input, SmcRecord& output) {
  if (load32(input, sizeAt) != key.size) return {.result = resultError};
  const Bytes bytes = shownBytes(machine, key);
  std::copy_n(bytes.begin(), std::min<std::size_t>(key.size, bytes.size()), output.begin() + bytesAt);
  return {};
}

Answer keyAtIndex(const Machine& machine, const SmcRecord& input, SmcRecord& output) {
  std::uint32_t left = load32(input, indexAt);
  for (const SmcKey& key : machine.smc.keys) {
    if (key.code == 0 || !key.present) continue;
    if (left-- == 0) {
      store32(output, keyAt, key.code);
      return {};
    }
  }
  return {.result = resultUnknownKey};
}

Answer obey(Machine& machine, const SmcRecord& input, SmcRecord& output) {
  const std::uint8_t command = input[commandAt];
  if (command == commandKeyAtIndex) return keyAtIndex(machine, input, output);
  if (command != commandRead && command != commandWrite && command != commandKeyInfo) {
    return {.status = platform::kernelBadArgument};
  }
  SmcKey* key = placeOf(machine, load32(input, keyAt));
  if (key == nullptr || !key->present) return {.result = resultUnknownKey};
  if (key->readStatus != 0) return {.status = key->readStatus};
  if (command == commandRead) return read(machine, *key, input, output);
  if (command == commandWrite) return write(machine, *key, input);
  store32(output, sizeAt, key->size);
  store32(output, typeAt, key->type);
  return {};
}

void enter(Journal& journal, const Machine& machine, const SmcRecord& input, const SmcRecord& output,
           const Answer& answer) {
  const std::uint8_t command = input[commandAt];
  if (command != commandWrite && !journal.reads) return;
  JournalEntry& entry = newEntry(machine, journal, command);
  entry.key = load32(command == commandKeyAtIndex ? output : input, keyAt);
  entry.status = answer.status;
  entry.result = answer.result;
  if (command == commandWrite || command == commandRead) {
    const auto most = static_cast<std::uint32_t>(entry.bytes.size());
    entry.size = static_cast<std::uint8_t>(std::min(load32(input, sizeAt), most));
    entry.bytes = bytesOf(command == commandWrite ? input : output);
    std::fill(entry.bytes.begin() + entry.size, entry.bytes.end(), std::uint8_t{0});
  }
}

void countExchange(Machine& machine) {
  Smc& smc = machine.smc;
  ++smc.exchanges;
  if (smc.signalAtExchange == 0 || smc.exchanges < smc.signalAtExchange) return;
  machine.pendingSignals |= 1U << static_cast<std::uint32_t>(smc.signalToRaise);
  smc.signalAtExchange = 0;
}

bool holds(const Machine& machine, std::uint32_t code, std::uint8_t value) {
  const SmcKey* key = findKey(machine, code);
  return key != nullptr && key->present && key->acted[0] == value;
}

// The whole value counts: a stop is 01 00 00 00 and nothing else.
bool holdsWord(const Machine& machine, std::uint32_t code, std::uint32_t value) {
  const SmcKey* key = findKey(machine, code);
  return key != nullptr && key->present && load32(key->acted, 0) == value;
}

double percentIn(const Machine& machine, std::uint32_t code) {
  const SmcKey* key = findKey(machine, code);
  return key != nullptr ? static_cast<double>(load32(key->acted, 0)) : 100.0;
}

}  // namespace

void makeKeys(Machine& machine, GateKind gate, CutKind cut, bool magSafeLight) {
  for (std::size_t index = 0; index < knownKeys.size(); ++index) {
    SmcKey& key = machine.smc.keys[index];
    key = makeKey(knownKeys[index]);
    key.present = modelHas(key.code, gate, cut, magSafeLight);
  }
  closeOrOpenKeys(machine);
}

SmcKey* placeOf(Machine& machine, std::uint32_t code) {
  return const_cast<SmcKey*>(findKey(machine, code));  // the machine is not const here
}

const SmcKey* findKey(const Machine& machine, std::uint32_t code) {
  if (code == 0) return nullptr;
  for (const SmcKey& key : machine.smc.keys) {
    if (key.code == code) return &key;
  }
  return nullptr;
}

SmcKey* addKey(Machine& machine, std::uint32_t code) {
  for (SmcKey& key : machine.smc.keys) {
    if (key.code != 0) continue;
    key = makeKey({code, 1, "ui8 ", KeySource::stored, Closing::stays});
    return &key;
  }
  return nullptr;
}

void releaseKey(SmcKey& key) {
  key.releaseAt = -1;
  if (key.source != KeySource::stored) return;
  key.bytes = key.resting;
  key.acted = key.resting;
}

void closeOrOpenKeys(Machine& machine) {
  const bool closed = machine.system.macOS >= 27;
  for (const KnownKey& known : knownKeys) {
    SmcKey* key = placeOf(machine, known.code);
    if (key == nullptr || known.closing == Closing::stays) continue;
    if (closed) releaseKey(*key);
    if (known.closing == Closing::empty) key->size = closed ? 0 : known.size;
    if (known.closing == Closing::refused) key->readStatus = closed ? platform::kernelNotPrivileged : 0;
  }
}

ChargeOrders chargeOrders(const Machine& machine) {
  ChargeOrders orders{};
  orders.adapterCut = holds(machine, keyCode("CHIE"), 0x08) || holds(machine, keyCode("CH0I"), 0x01) ||
                      holds(machine, keyCode("CH0J"), 0x01);
  orders.stopped = holdsWord(machine, keyCode("CHTE"), 1) || holds(machine, keyCode("CH0B"), 0x02) ||
                   holds(machine, keyCode("CH0C"), 0x02);
  orders.bandArmed = holds(machine, keyCode("bfF0"), 0x02);
  if (orders.bandArmed) {
    orders.bandUpper = percentIn(machine, keyCode("bfD0"));
    orders.bandLower = percentIn(machine, keyCode("bfE0"));
  }
  return orders;
}

bool letsCharge(const ChargeOrders& orders, double shownLevel, bool bandCharging) {
  if (orders.stopped) return false;
  if (!orders.bandArmed) return true;
  // The firmware uses the percentage that users see.
  const double percent = std::round(shownLevel);
  if (percent >= orders.bandUpper) return false;
  if (percent < orders.bandLower) return true;
  return bandCharging;
}

KernelStatus exchange(Machine& machine, Journal& journal, const SmcRecord& input, SmcRecord& output) {
  output.fill(0);
  const Answer answer = obey(machine, input, output);
  enter(journal, machine, input, output, answer);
  // A failed call leaves the output unfilled.
  if (answer.status == platform::kernelSuccess) output[resultAt] = answer.result;
  countExchange(machine);
  return answer.status;
}

}  // namespace brisko::virtual_mac
