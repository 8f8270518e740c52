#include "sim/machine/machine_text.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <ctime>

#include "platform/system_power.h"
#include "sim/machine/charge_limit.h"

namespace brisko::vmac {
namespace {

using virtual_mac::KeySource;
using virtual_mac::Machine;
using virtual_mac::OnWrite;
using virtual_mac::SmcKey;

template <typename... Values>
std::string formatted(const char* format, Values... values) {
  std::array<char, 160> text{};
  static_cast<void>(std::snprintf(text.data(), text.size(), format, values...));
  return text.data();
}

std::string hex(const std::uint8_t* bytes, std::size_t count) {
  std::string text;
  for (std::size_t index = 0; index < count; ++index) text += formatted("%02x", bytes[index]);
  return text;
}

const char* writeText(OnWrite behaviour) {
  switch (behaviour) {
    case OnWrite::ignore:
      return ", ignores writes";
    case OnWrite::storeWithoutEffect:
      return ", stores writes without effect";
    case OnWrite::refuse:
      return ", refuses writes";
    case OnWrite::kernelError:
      return ", writes fail in the kernel";
    case OnWrite::obey:
      break;
  }
  return "";
}

std::string keysText(const Machine& machine) {
  std::string text;
  for (const SmcKey& key : machine.smc.keys) {
    if (key.code != 0 && key.present && key.source == KeySource::stored) text += "  " + keyText(key) + "\n";
  }
  return text;
}

std::string adapterText(const Machine& machine) {
  if (!machine.adapter.present) return "unplugged";
  const bool reaches = virtual_mac::adapterReachesBattery(machine);
  return formatted("%.0f W, %s", machine.adapter.watts, reaches ? "connected" : "cut");
}

const char* wakefulnessText(const Machine& machine) {
  if (!machine.system.poweredOn) return ", off";
  if (machine.system.asleep) return ", asleep";
  if (machine.sleep.dark) return ", dark wake";
  return machine.sleep.stage == virtual_mac::SleepStage::none ? "" : ", going to sleep";
}

std::string percentText(std::int64_t limit) {
  if (limit <= 0 || limit >= 100) return "none";
  return formatted("%lld %%", static_cast<long long>(limit));
}

// What the settings request, and what the hardware does. An order has an effect only when it is applied.
std::string limitText(const Machine& machine) {
  const virtual_mac::ChargeLimit& limit = machine.limit;
  if (!virtual_mac::hasLimit(machine)) return "this macOS has none";
  const virtual_mac::LimitOrder asked = virtual_mac::orderOnDisk(machine);
  std::string text =
      percentText(virtual_mac::enforcedLimit(machine)) + ", asked for " + percentText(asked.percent);
  if (asked.fullUntil > virtual_mac::wallClock(machine))
    text += ", to full until " + timeText(asked.fullUntil);
  if (limit.comingAt >= 0) text += formatted(", taken in %.0f s", limit.comingAt - machine.now);
  return text;
}

std::string scheduledText(const Machine& machine) {
  std::string text;
  for (const virtual_mac::ScheduledEvent& event : machine.sleep.events) {
    if (!event.pending) continue;
    text += "scheduled    " + std::string(virtual_mac::textOf(event.type)) + " at " + timeText(event.date) +
            " by " + std::string(virtual_mac::textOf(event.identifier)) + "\n";
  }
  return text;
}

// How the text names a power event, by the journal's command.
const char* powerVerb(std::uint8_t command) {
  switch (command) {
    case virtual_mac::journalReceived:
      return "heard";
    case virtual_mac::journalAnswered:
      return "allowed";
    case virtual_mac::journalScheduled:
      return "scheduled a wake at";
    case virtual_mac::journalCancelled:
      return "cancelled the wake at";
    default:
      return nullptr;
  }
}

std::string powerMessageText(std::uint32_t type) {
  if (type == virtual_mac::willNotSleep) return "WillNotSleep";
  if (type == virtual_mac::willPowerOn) return "WillPowerOn";
  switch (static_cast<platform::PowerMessage>(type)) {
    case platform::PowerMessage::canSystemSleep:
      return "CanSystemSleep";
    case platform::PowerMessage::systemWillSleep:
      return "WillSleep";
    case platform::PowerMessage::systemHasPoweredOn:
      return "HasPoweredOn";
  }
  return formatted("message 0x%08X", type);
}

std::string powerObjectText(const virtual_mac::JournalEntry& entry) {
  double date = 0;
  if (entry.size != sizeof date) return powerMessageText(entry.key);
  std::memcpy(&date, entry.bytes.data(), sizeof date);
  return timeText(date);
}

std::string controllerText(const virtual_mac::JournalEntry& entry) {
  return std::string(entry.command == 6 ? "write " : "read  ") + keyName(entry.key) + " " +
         hex(entry.bytes.data(), std::min<std::size_t>(entry.size, 32));
}

std::string entryText(const virtual_mac::JournalEntry& entry) {
  const char* verb = powerVerb(entry.command);
  const std::string limit = virtual_mac::limitEntryText(entry);
  std::string text = timeText(entry.time) + formatted("  process %u  ", entry.process);
  if (!limit.empty()) {
    text += limit;
  } else {
    text += verb == nullptr ? controllerText(entry) : std::string(verb) + " " + powerObjectText(entry);
  }
  if (entry.status != 0 || entry.result != 0) {
    text += formatted("  refused (status 0x%08X, result 0x%02X)", entry.status, entry.result);
  }
  return text + "\n";
}

}  // namespace

std::string timeText(double secondsSince1970) {
  const auto seconds = static_cast<std::time_t>(secondsSince1970);
  std::tm parts{};
  static_cast<void>(::gmtime_r(&seconds, &parts));
  std::array<char, 32> text{};
  static_cast<void>(std::strftime(text.data(), text.size(), "%Y-%m-%d %H:%M:%S UTC", &parts));
  return text.data();
}

std::string keyName(std::uint32_t code) {
  std::string name;
  for (int shift = 24; shift >= 0; shift -= 8)
    name += static_cast<char>(static_cast<std::uint8_t>(code >> shift));
  return name;
}

std::string keyText(const SmcKey& key) {
  std::string text = keyName(key.code) + " ";
  text +=
      key.size == 0 ? "no bytes" : hex(key.bytes.data(), std::min<std::size_t>(key.size, key.bytes.size()));
  text += writeText(key.onWrite);
  if (key.readStatus != 0) text += formatted(", fails with 0x%08X", key.readStatus);
  if (key.releaseAfter >= 0) text += formatted(", taken back %.0f s after a write", key.releaseAfter);
  return text;
}

const char* gateText(const Machine& machine) {
  if (machine.adapter.present && !virtual_mac::adapterReachesBattery(machine)) return "discharge";
  return virtual_mac::chargingIsOpen(machine) ? "allow" : "hold";
}

std::string machineText(const Machine& machine) {
  std::string text = std::string(virtual_mac::textOf(machine.model)) +
                     formatted(", macOS %lld\n", static_cast<long long>(machine.system.macOS));
  text += "time         " + timeText(virtual_mac::wallClock(machine)) +
          formatted("  (speed %g, up %.0f s%s)\n", machine.speed, virtual_mac::uptimeOf(machine),
                    wakefulnessText(machine));
  text += formatted("charge       %.1f %%  (%.0f of %.0f mAh)\n", virtual_mac::level(machine),
                    machine.battery.chargeMAh, machine.battery.fullMAh);
  text += formatted("current      %+.0f mA\n", machine.battery.currentMA);
  text += formatted("temperature  %.1f °C\n", machine.battery.temperatureC);
  text += "adapter      " + adapterText(machine) + "\n";
  text += std::string("lid          ") + (machine.sleep.lidClosed ? "closed" : "open") + "\n";
  text += std::string("hardware     ") + gateText(machine) + "\n";
  text += "limit        " + limitText(machine) + "\n";
  text += scheduledText(machine);
  text += "keys\n" + keysText(machine);
  return text;
}

std::string journalText(const virtual_mac::Journal& journal, std::size_t count) {
  const std::uint64_t kept = std::min<std::uint64_t>(journal.written, virtual_mac::Journal::capacity);
  const std::uint64_t first = journal.written - std::min<std::uint64_t>(kept, count);
  std::string text;
  for (std::uint64_t number = first; number < journal.written; ++number) {
    text += entryText(journal.entries[number % virtual_mac::Journal::capacity]);
  }
  return text;
}

}  // namespace brisko::vmac
