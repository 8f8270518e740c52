// tests/sim/machine/machine_bench.h
// The record of a virtual Mac without a store, the seam or a daemon.
#pragma once

#include <algorithm>
#include <bit>
#include <cstdint>
#include <memory>
#include <string_view>
#include <utility>
#include <vector>

#include "sim/machine/machine.h"
#include "sim/machine/models.h"

namespace brisko::test {

using Bytes = std::vector<std::uint8_t>;

struct Outcome {
  platform::KernelStatus status;
  std::uint8_t result;
  bool operator==(const Outcome&) const = default;
};
inline constexpr Outcome accepted{platform::kernelSuccess, 0};
inline constexpr Outcome refused{platform::kernelSuccess, 1};
inline constexpr Outcome unknownKey{platform::kernelSuccess, 0x84};

class Bench {
 public:
  explicit Bench(const virtual_mac::MachineOptions& options = {}, std::string_view model = "air13")
      : machine(virtual_mac::makeMachine(*virtual_mac::findModel(model), options)) {}

  // Changes.
  Bench& change(virtual_mac::ChangeKind kind, double number = 0) {
    return change({.kind = kind, .number = number});
  }
  Bench& change(const virtual_mac::Change& change) {
    virtual_mac::apply(machine, change);
    return *this;
  }
  Bench& key(virtual_mac::ChangeKind kind, std::string_view name, double number = 0,
             std::uint32_t status = 0) {
    return change({.kind = kind, .key = virtual_mac::keyCode(name), .number = number, .status = status});
  }
  Bench& keyBytes(std::string_view name, const Bytes& bytes) {
    virtual_mac::Change change{.kind = virtual_mac::ChangeKind::keyBytes, .key = virtual_mac::keyCode(name)};
    change.byteCount = static_cast<std::uint32_t>(bytes.size());
    std::copy(bytes.begin(), bytes.end(), change.bytes.begin());
    return this->change(change);
  }
  Bench& property(std::string_view name, virtual_mac::PropertyFault fault) {
    return change({.kind = virtual_mac::ChangeKind::property,
                   .number = static_cast<double>(fault),
                   .text = virtual_mac::shortText(name)});
  }
  [[nodiscard]] bool later(double seconds, const virtual_mac::Change& change) {
    return virtual_mac::plan(machine, machine.now + seconds, change);
  }
  Bench& pass(double seconds) {
    virtual_mac::advance(machine, machine.now + seconds);
    return *this;
  }
  // True if the machine stopped for an event of which a process must be notified.
  bool passToNotice(double seconds) { return virtual_mac::advanceToNotice(machine, machine.now + seconds); }

  // The controller, by one exchange each.
  platform::SmcRecord output{};
  Outcome exchange(const platform::SmcRecord& input) {
    output.fill(0xEE);
    const auto status = virtual_mac::exchange(machine, *journal, input, output);
    return {status, output[40]};
  }
  Outcome command(std::uint8_t command, std::string_view name, std::uint32_t size = 0,
                  const Bytes& bytes = {}) {
    platform::SmcRecord input{};
    store(input, 0, virtual_mac::keyCode(name));
    store(input, 28, size);
    input[42] = command;
    std::copy(bytes.begin(), bytes.end(), input.begin() + 48);
    return exchange(input);
  }
  Outcome info(std::string_view name) { return command(9, name); }
  Outcome write(std::string_view name, const Bytes& bytes) {
    return command(6, name, static_cast<std::uint32_t>(bytes.size()), bytes);
  }
  // The value that a read of the key returns; empty if it cannot be read.
  Bytes read(std::string_view name) {
    if (info(name) != accepted) return {};
    const std::uint32_t size = load(output, 28);
    if (command(5, name, size) != accepted) return {};
    return {output.begin() + 48, output.begin() + 48 + std::min<std::uint32_t>(size, 32)};
  }

  static void store(platform::SmcRecord& record, std::size_t at, std::uint32_t value) {
    for (std::size_t index = 0; index < 4; ++index) {
      record[at + index] = static_cast<std::uint8_t>(value >> (8 * index));
    }
  }
  static std::uint32_t load(const platform::SmcRecord& record, std::size_t at) {
    std::uint32_t value = 0;
    for (std::size_t index = 4; index-- > 0;) value = value << 8U | record[at + index];
    return value;
  }

  virtual_mac::Machine machine;
  std::unique_ptr<virtual_mac::Journal> journal = std::make_unique<virtual_mac::Journal>();
};

// Every number of the machine that changes with time, bit by bit.
inline std::vector<std::uint64_t> movingBits(const virtual_mac::Machine& machine) {
  const virtual_mac::Battery& battery = machine.battery;
  const virtual_mac::Gauge& gauge = machine.gauge;
  const virtual_mac::PowerSource& source = machine.powerSource;
  std::vector<std::uint64_t> bits;
  for (const double number :
       {machine.now, battery.chargeMAh, battery.currentMA, battery.targetMA, battery.temperatureC,
        gauge.publishedAt, source.stateDueAt, machine.system.sleptSeconds, machine.system.wallOffset,
        machine.sleep.stageEndsAt, machine.sleep.darkUntil, machine.sleep.poweredOnAt}) {
    bits.push_back(std::bit_cast<std::uint64_t>(number));
  }
  for (const std::int64_t number : {gauge.percent, gauge.rawMAh, gauge.currentMA, gauge.voltageMV,
                                    gauge.temperatureCentiC, gauge.askedMA, source.percent, source.minutes}) {
    bits.push_back(static_cast<std::uint64_t>(number));
  }
  for (const bool flag :
       {battery.fullyCharged, battery.bandCharging, battery.limitCharging, gauge.charging, gauge.full,
        source.onAdapter, source.charging, source.full, machine.system.asleep, machine.sleep.dark}) {
    bits.push_back(flag ? 1 : 0);
  }
  for (const double number : {machine.limit.comingAt, machine.limit.revertAt, machine.limit.held.fullUntil}) {
    bits.push_back(std::bit_cast<std::uint64_t>(number));
  }
  bits.push_back(static_cast<std::uint64_t>(machine.limit.held.percent));
  bits.push_back(source.changes);
  bits.push_back(machine.sleep.noticesSent);
  bits.push_back(machine.sleep.lateAnswers);
  bits.push_back(static_cast<std::uint64_t>(machine.system.capabilities));
  for (const virtual_mac::SmcKey& key : machine.smc.keys) {
    bits.push_back(key.bytes[0] | static_cast<std::uint64_t>(key.acted[0]) << 8U);
  }
  return bits;
}

}  // namespace brisko::test
