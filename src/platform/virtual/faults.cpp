#include "platform/virtual/faults.h"

#include <algorithm>
#include <array>
#include <csignal>

namespace brisko::virtual_mac {
namespace {

template <typename Enum>
constexpr Change change(ChangeKind kind, Enum value) {
  return {.kind = kind, .number = static_cast<double>(value)};
}
constexpr Change change(ChangeKind kind, double number = 0, std::uint32_t status = 0) {
  return {.kind = kind, .number = number, .status = status};
}

constexpr Asks nothing{};
constexpr Asks key{.key = true};
constexpr Asks number{.number = true};
constexpr Asks keyAndNumber{.key = true, .number = true};
constexpr Asks keyAndBytes{.key = true, .bytes = true};
constexpr Asks text{.text = true};

constexpr std::array allFaults{
    // The adapter and the battery
    Fault{"plug", change(ChangeKind::plug), number, "W", "People plug the adapter in."},
    Fault{"unplug", change(ChangeKind::unplug), nothing, "", "People pull the adapter out."},
    Fault{"weak-adapter", change(ChangeKind::plug, 5), nothing, "",
          "A telephone's charger or a monitor's port gives less than the Mac needs."},
    Fault{"charge", change(ChangeKind::charge), number, "%",
          "A gauge that learns anew jumps, and a Mac may come back from anywhere."},
    Fault{"load", change(ChangeKind::load), number, "W", "The Mac idles, works or plays."},
    Fault{"ambient", change(ChangeKind::ambient), number, "°C", "Rooms, cars and laps are warm or cold."},
    Fault{"temperature", change(ChangeKind::temperature), number, "°C",
          "A Mac is carried in from the sun or from the frost."},
    Fault{"health", change(ChangeKind::health), number, "mAh",
          "A battery ages, and a new one may hold more than its design says."},
    Fault{"cycles", change(ChangeKind::cycles), number, "cycles", "A battery is replaced by another."},
    Fault{"slow-current", change(ChangeKind::decay), number, "s",
          "Chargers ramp their current instead of switching it."},
    Fault{"trickle", change(ChangeKind::trickle), number, "mA",
          "Some chargers let a little through although they were told to stop."},
    Fault{"battery-out", change(ChangeKind::batteryInstalled, 0), nothing, "",
          "A worn connector or a dead gauge makes the battery vanish."},
    Fault{"battery-in", change(ChangeKind::batteryInstalled, 1), nothing, "",
          "The connector finds its contact again."},

    // The system management controller
    Fault{"key-missing", change(ChangeKind::keyPresent, 0), key, "",
          "Models and firmware versions differ in the keys they know."},
    Fault{"key-appears", change(ChangeKind::keyPresent, 1), key, "",
          "A firmware update brings a key, or a model has two families."},
    Fault{"key-size", change(ChangeKind::keySize), keyAndNumber, "bytes",
          "Firmware closes a key by emptying it, and changes its form between models."},
    Fault{"key-obeys", change(ChangeKind::keyOnWrite, OnWrite::obey), key, "",
          "A restart of the controller heals what was wrong with a key."},
    Fault{"key-ignores-write", change(ChangeKind::keyOnWrite, OnWrite::ignore), key, "",
          "The controller answers every write alike, also where it has no use for it."},
    Fault{"key-without-effect", change(ChangeKind::keyOnWrite, OnWrite::storeWithoutEffect), key, "",
          "A key may outlive the hardware that once followed it."},
    Fault{"key-refuses-write", change(ChangeKind::keyOnWrite, OnWrite::refuse), key, "",
          "Firmware makes a key read-only for the processor."},
    Fault{"key-write-fails",
          change(ChangeKind::keyOnWrite, static_cast<double>(OnWrite::kernelError), platform::kernelError),
          key, "", "The driver gives up on a controller that does not answer in time."},
    Fault{"key-refused", change(ChangeKind::keyReadStatus, 0, platform::kernelNotPrivileged), key, "",
          "macOS keeps keys to itself, also from root."},
    Fault{"key-granted", change(ChangeKind::keyReadStatus), key, "", "An update of macOS opens a key again."},
    Fault{"key-written", change(ChangeKind::keyBytes), keyAndBytes, "",
          "Another program writes the same key, or a sensor shows nonsense."},
    Fault{"key-truthful", change(ChangeKind::keyUnscript), key, "",
          "A sensor that showed nonsense recovers."},
    Fault{"key-taken-back", change(ChangeKind::keyRelease), key, "",
          "macOS restores its own value at sleep, at wake and when the adapter comes."},
    Fault{"key-taken-back-after", change(ChangeKind::keyReleaseAfter), keyAndNumber, "s",
          "macOS checks a key from time to time and restores its own value."},
    Fault{"key-stays", change(ChangeKind::keyReleaseAfter, -1), key, "",
          "macOS stops minding a key after an update."},
    Fault{"no-controller", change(ChangeKind::smcService, SmcService::absent), nothing, "",
          "Virtual machines have no system management controller."},
    Fault{"controller-refuses", change(ChangeKind::smcService, SmcService::refusesToOpen), nothing, "",
          "A security policy may deny the controller to a process."},
    Fault{"controller-present", change(ChangeKind::smcService, SmcService::present), nothing, "",
          "The policy is lifted."},

    // What macOS shows
    Fault{"property-missing", change(ChangeKind::property, PropertyFault::missing), text, "",
          "Releases of macOS move properties and drop them."},
    Fault{"property-text", change(ChangeKind::property, PropertyFault::text), text, "",
          "A driver may publish a number as text."},
    Fault{"property-real", change(ChangeKind::property, PropertyFault::real), text, "",
          "A driver may publish a whole number as a floating-point one."},
    Fault{"property-unsigned", change(ChangeKind::property, PropertyFault::unsignedInteger), text, "",
          "The registry keeps 64 bits, and a negative number can come out as unsigned."},
    Fault{"property-healed", change(ChangeKind::property, PropertyFault::none), text, "",
          "The next release of macOS mends it."},
    Fault{"no-power-snapshot", change(ChangeKind::powerSources, PowerSourceFault::noSnapshot), nothing, "",
          "powerd crashes or is not up yet."},
    Fault{"no-power-sources", change(ChangeKind::powerSources, PowerSourceFault::emptyList), nothing, "",
          "powerd is up before the battery's driver."},
    Fault{"no-internal-battery", change(ChangeKind::powerSources, PowerSourceFault::noInternalBattery),
          nothing, "", "The battery's driver restarts while a UPS stays listed."},
    Fault{"ups-first", change(ChangeKind::powerSources, PowerSourceFault::upsFirst), nothing, "",
          "A UPS on USB is a power source too and may come first."},
    Fault{"power-sources-healed", change(ChangeKind::powerSources, PowerSourceFault::none), nothing, "",
          "powerd is started anew by the system."},
    Fault{"late-power-source", change(ChangeKind::powerSourceLag), number, "s",
          "powerd waits for the driver before it believes that the adapter came or went."},
    Fault{"flat-layout", change(ChangeKind::layout, RegistryLayout::flat), nothing, "",
          "Up to macOS 26 the capacities stand at the top of the registry entry."},
    Fault{"nested-layout", change(ChangeKind::layout, RegistryLayout::nested), nothing, "",
          "From macOS 27 on the capacities stand in a nested dictionary."},
    Fault{"macos", change(ChangeKind::macOS), number, "major version", "People install the next macOS."},
    Fault{"capabilities", change(ChangeKind::capabilities), number, "bits",
          "Maintenance wakes come without the display."},
    Fault{"capabilities-unreadable", change(ChangeKind::capabilities, -1), nothing, "",
          "The property is not part of any published interface."},

    // Around the process
    Fault{"clock-step", change(ChangeKind::clockStep), number, "s",
          "The network sets the clock, and people set it by hand."},
    Fault{"user", change(ChangeKind::userId), number, "user id",
          "Somebody starts the program by hand, without root."},
    Fault{"interrupt", change(ChangeKind::signal, SIGINT), nothing, "", "Somebody types control-C."},
    Fault{"terminate", change(ChangeKind::signal, SIGTERM), nothing, "",
          "The system stops its services at shutdown and on update."},
    Fault{"kill", change(ChangeKind::signal, SIGKILL), nothing, "",
          "The system kills what uses too much memory or does not end in time."},
    Fault{"terminate-at-exchange", change(ChangeKind::signalAtExchange, SIGTERM, 1), nothing, "",
          "A service may be stopped between any two writes."},
    Fault{"kill-at-exchange", change(ChangeKind::signalAtExchange, SIGKILL, 1), nothing, "",
          "A process may be killed between any two writes."},
};

}  // namespace

std::span<const Fault> faults() { return allFaults; }

const Fault* findFault(std::string_view name) {
  const auto* found = std::find_if(allFaults.begin(), allFaults.end(),
                                   [name](const Fault& fault) { return fault.name == name; });
  return found == allFaults.end() ? nullptr : found;
}

}  // namespace brisko::virtual_mac
