#include "sim/machine/faults.h"

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

// Apple's team identifiers have ten characters, so none is truncated.
constexpr Change signedBy(std::string_view team) {
  Change change{.kind = ChangeKind::daemonTeam};
  for (std::size_t index = 0; index < team.size(); ++index) change.text[index] = team[index];
  return change;
}

constexpr Fault simple(std::string_view name, const Change& change, std::string_view reason) {
  return {name, change, {}, reason};
}
constexpr Fault measured(std::string_view name, ChangeKind kind, std::string_view reason) {
  return {name, {.kind = kind}, {.number = true}, reason};
}
constexpr Fault ofKey(std::string_view name, const Change& change, std::string_view reason) {
  return {name, change, {.key = true}, reason};
}
constexpr Fault measuredOfKey(std::string_view name, ChangeKind kind, std::string_view reason) {
  return {name, {.kind = kind}, {.key = true, .number = true}, reason};
}
constexpr Fault writtenToKey(std::string_view name, std::string_view reason) {
  return {name, {.kind = ChangeKind::keyBytes}, {.key = true, .bytes = true}, reason};
}
constexpr Fault ofProperty(std::string_view name, PropertyFault fault, std::string_view reason) {
  return {name, change(ChangeKind::property, fault), {.text = true}, reason};
}

constexpr std::array allFaults{
    // The adapter and the battery
    measured("plug", ChangeKind::plug, "People plug the adapter in."),
    simple("unplug", change(ChangeKind::unplug), "People pull the adapter out."),
    simple("weak-adapter", change(ChangeKind::plug, 5),
           "A telephone's charger or a monitor's port gives less than the Mac needs."),
    measured("charge", ChangeKind::charge,
             "A gauge that recalibrates jumps, and a Mac may return with any charge."),
    measured("load", ChangeKind::load, "The Mac idles, works or plays."),
    measured("ambient", ChangeKind::ambient, "Rooms, cars and laps are warm or cold."),
    measured("temperature", ChangeKind::temperature, "A Mac is carried in from the sun or from the frost."),
    measured("health", ChangeKind::health,
             "A battery ages, and a new one may hold more than its design says."),
    measured("cycles", ChangeKind::cycles, "A battery is replaced by another."),
    measured("slow-current", ChangeKind::decay, "Chargers ramp their current instead of switching it."),
    measured("trickle", ChangeKind::trickle,
             "Some chargers let a little through although they were told to stop."),
    simple("battery-out", change(ChangeKind::batteryInstalled, 0),
           "A worn connector or a dead gauge makes the battery vanish."),
    simple("battery-in", change(ChangeKind::batteryInstalled, 1), "The connector finds its contact again."),

    // The system management controller
    ofKey("key-missing", change(ChangeKind::keyPresent, 0),
          "Models and firmware versions differ in the keys they know."),
    ofKey("key-appears", change(ChangeKind::keyPresent, 1),
          "A firmware update brings a key, or a model has two families."),
    measuredOfKey("key-size", ChangeKind::keySize,
                  "Firmware closes a key by emptying it, and changes its form between models."),
    ofKey("key-obeys", change(ChangeKind::keyOnWrite, OnWrite::obey),
          "A restart of the controller heals what was wrong with a key."),
    ofKey("key-ignores-write", change(ChangeKind::keyOnWrite, OnWrite::ignore),
          "The controller answers every write alike, also where it has no use for it."),
    ofKey("key-without-effect", change(ChangeKind::keyOnWrite, OnWrite::storeWithoutEffect),
          "A key may outlive the hardware that once followed it."),
    ofKey("key-refuses-write", change(ChangeKind::keyOnWrite, OnWrite::refuse),
          "Firmware makes a key read-only for the processor."),
    ofKey("key-write-fails",
          change(ChangeKind::keyOnWrite, static_cast<double>(OnWrite::kernelError), platform::kernelError),
          "The driver gives up on a controller that does not answer in time."),
    ofKey("key-refused", change(ChangeKind::keyReadStatus, 0, platform::kernelNotPrivileged),
          "macOS keeps keys to itself, also from root."),
    ofKey("key-granted", change(ChangeKind::keyReadStatus), "An update of macOS opens a key again."),
    writtenToKey("key-written", "Another program writes the same key, or a sensor shows nonsense."),
    ofKey("key-truthful", change(ChangeKind::keyUnscript), "A sensor that showed nonsense recovers."),
    ofKey("key-taken-back", change(ChangeKind::keyRelease),
          "macOS restores its own value at sleep, at wake and when the adapter comes."),
    measuredOfKey("key-taken-back-after", ChangeKind::keyReleaseAfter,
                  "macOS checks a key from time to time and restores its own value."),
    ofKey("key-stays", change(ChangeKind::keyReleaseAfter, -1), "macOS stops minding a key after an update."),
    simple("light-taken", change(ChangeKind::lightTaken, 1),
           "macOS drives the light itself as the adapter comes and goes and as charging begins and ends."),
    simple("light-left", change(ChangeKind::lightTaken, 0), "An update of macOS leaves the light alone."),
    simple("no-controller", change(ChangeKind::smcService, SmcService::absent),
           "Virtual machines have no system management controller."),
    simple("controller-refuses", change(ChangeKind::smcService, SmcService::refusesToOpen),
           "A security policy may deny the controller to a process."),
    simple("controller-present", change(ChangeKind::smcService, SmcService::present),
           "The policy is lifted."),

    // What macOS shows
    ofProperty("property-missing", PropertyFault::missing,
               "Releases of macOS move properties and drop them."),
    ofProperty("property-text", PropertyFault::text, "A driver may publish a number as text."),
    ofProperty("property-real", PropertyFault::real,
               "A driver may publish a whole number as a floating-point one."),
    ofProperty("property-unsigned", PropertyFault::unsignedInteger,
               "The registry keeps 64 bits, and a negative number can come out as unsigned."),
    ofProperty("property-healed", PropertyFault::none, "The next release of macOS mends it."),
    simple("no-power-snapshot", change(ChangeKind::powerSources, PowerSourceFault::noSnapshot),
           "powerd crashes or is not up yet."),
    simple("no-power-sources", change(ChangeKind::powerSources, PowerSourceFault::emptyList),
           "powerd is up before the battery's driver."),
    simple("no-internal-battery", change(ChangeKind::powerSources, PowerSourceFault::noInternalBattery),
           "The battery's driver restarts while a UPS stays listed."),
    simple("ups-first", change(ChangeKind::powerSources, PowerSourceFault::upsFirst),
           "A UPS on USB is a power source too and may come first."),
    simple("power-sources-healed", change(ChangeKind::powerSources, PowerSourceFault::none),
           "powerd is started anew by the system."),
    measured("late-power-source", ChangeKind::powerSourceLag,
             "powerd waits for the driver before it believes that the adapter came or went."),
    simple("flat-layout", change(ChangeKind::layout, RegistryLayout::flat),
           "Up to macOS 26 the capacities stand at the top of the registry entry."),
    simple("nested-layout", change(ChangeKind::layout, RegistryLayout::nested),
           "From macOS 27 on the capacities stand in a nested dictionary."),
    measured("macos", ChangeKind::macOS, "People install the next macOS."),
    measured("capabilities", ChangeKind::capabilities, "Maintenance wakes come without the display."),
    simple("capabilities-unreadable", change(ChangeKind::capabilities, -1),
           "The property is not part of any published interface."),

    // Sleep and wake
    simple("close-lid", change(ChangeKind::closeLid), "People close the lid."),
    simple("open-lid", change(ChangeKind::openLid), "People open the lid."),
    simple("sleep", change(ChangeKind::sleep), "People choose Sleep from the menu."),
    simple("idle-sleep", change(ChangeKind::idleSleep), "Nobody uses the Mac for a while."),
    simple("wake", change(ChangeKind::wake),
           "People press a key, also on the keyboard of a desk on which the Mac stands closed."),
    measured("dark-wake", ChangeKind::darkWake,
             "macOS wakes for maintenance, mail and updates, with the display off."),
    simple("idle-sleep-vetoed", change(ChangeKind::sleepRefused, SleepRefusal::vetoed),
           "A program that plays or burns something answers no when the Mac asks whether it may sleep."),
    simple("sleep-cancelled", change(ChangeKind::sleepRefused, SleepRefusal::cancelled),
           "Somebody touches the Mac after the sleep was announced."),
    simple("sleep-refused", change(ChangeKind::sleepRefused, SleepRefusal::inDarkness),
           "A driver keeps the Mac awake when its display is dark already."),
    simple("sleep-granted", change(ChangeKind::sleepRefused, SleepRefusal::none),
           "Whoever kept the Mac awake is done."),
    measured("scheduled-wakes", ChangeKind::scheduledWakes,
             "With the lid closed on the adapter powerd asks for a full wake, unless its timer is dropped "
             "first."),
    measured("battery-wakes", ChangeKind::batteryWakes,
             "On battery a dark wake lasts until the devices have settled."),
    measured(
        "adapter-wakes", ChangeKind::adapterWakes,
        "The controller wakes a sleeping Mac when the adapter comes or goes, as logs of real Macs show."),
    measured("cut-keeps-external", ChangeKind::cutKeepsExternal,
             "Whether the battery still counts as connected while the adapter is cut is up to the firmware."),
    measured("late-capabilities", ChangeKind::lateCapabilities,
             "The kernel writes the capabilities only after it has sent the message about the full wake."),
    simple("quiet-nights", change(ChangeKind::nights, Nights::quiet),
           "People switch the network off, or are out of its reach."),
    simple("upkeep-nights", change(ChangeKind::nights, Nights::upkeep),
           "The network name service keeps its names alive every two hours."),
    simple("busy-nights", change(ChangeKind::nights, Nights::busy),
           "Wi-Fi and Bluetooth wake the Mac every few minutes, as logs of real Macs show."),
    simple("schedule-refused", change(ChangeKind::scheduleStatus, 0, platform::kernelNotPrivileged),
           "The power service may deny scheduled wakes, and a profile may forbid them."),
    simple("schedule-granted", change(ChangeKind::scheduleStatus), "The policy is lifted."),
    simple("no-power-clients", change(ChangeKind::powerClients, 0),
           "The power service may not answer a process that comes too early."),
    simple("power-clients", change(ChangeKind::powerClients, 1), "The power service is up."),

    // The limit of macOS
    measured("limit", ChangeKind::limit, "People move the slider in the settings."),
    measured("charge-to-full", ChangeKind::chargeToFull,
             "People ask the battery's menu for a full charge before a journey."),
    measured("limit-put-back", ChangeKind::limitReverted,
             "A profile of a company, or another program, insists on its own limit."),
    measured("limit-delay", ChangeKind::limitDelay,
             "The service takes its time to follow, and at boot it has much to do."),
    simple("no-limit-framework", change(ChangeKind::limitClient, LimitClient::noFramework),
           "A private framework may be gone with the next macOS."),
    simple("no-limit-class", change(ChangeKind::limitClient, LimitClient::noClass),
           "Private classes are renamed without notice."),
    simple("no-limit-selector", change(ChangeKind::limitClient, LimitClient::noSelector),
           "Earlier releases have the class, and it can do less."),
    simple("limit-client", change(ChangeKind::limitClient, LimitClient::offered),
           "The next update brings it back."),
    measured("limit-supported-after", ChangeKind::limitSupportedAfter,
             "Right after boot the service does not know the battery yet, and some Macs have no limit."),
    measured("limit-readable-after", ChangeKind::limitReadableAfter,
             "Right after boot the service answers nobody."),
    simple("limit-state-unreadable", change(ChangeKind::limitEnabledFails, 1),
           "The connection to the service is lost and not restored."),
    simple("limit-state-readable", change(ChangeKind::limitEnabledFails, 0), "The service is started anew."),
    simple("limit-value-unreadable", change(ChangeKind::limitValueFails, 1),
           "The service has no value for a limit that was never set."),
    simple("limit-value-readable", change(ChangeKind::limitValueFails, 0), "The service is started anew."),
    simple("limit-refused", change(ChangeKind::limitSetAnswer, LimitAnswer::no),
           "A profile may forbid that the limit is changed."),
    simple("limit-set-fails", change(ChangeKind::limitSetAnswer, LimitAnswer::error),
           "The service requires an entitlement that the caller lacks."),
    simple("limit-granted", change(ChangeKind::limitSetAnswer, LimitAnswer::takes), "The policy is lifted."),
    simple("limit-below-80-ignored", change(ChangeKind::limitBelowFloor, OddLimit::ignored),
           "The service checks what it reads against what the slider offers, and leaves the rest alone."),
    simple("limit-below-80-lifted", change(ChangeKind::limitBelowFloor, OddLimit::adjusted),
           "The service brings what it reads into the range of the slider."),
    simple("limit-below-80-taken", change(ChangeKind::limitBelowFloor, OddLimit::taken),
           "The service believes what it reads."),
    simple("limit-off-step-ignored", change(ChangeKind::limitOffStep, OddLimit::ignored),
           "The service checks what it reads against what the slider offers, and leaves the rest alone."),
    simple("limit-off-step-rounded", change(ChangeKind::limitOffStep, OddLimit::adjusted),
           "The service brings what it reads to a step of the slider."),
    simple("limit-off-step-taken", change(ChangeKind::limitOffStep, OddLimit::taken),
           "The service believes what it reads."),
    simple("limit-drains", change(ChangeKind::limitDrains, 1),
           "Some Macs run from the battery until it is down at a lowered limit."),
    simple("limit-waits", change(ChangeKind::limitDrains, 0), "Others leave the charge where it is."),
    simple("no-limit-shown-as-100", change(ChangeKind::limitNoneAs100, 1),
           "Firmware versions differ in how they say that there is no limit."),
    simple("no-limit-shown-as-0", change(ChangeKind::limitNoneAs100, 0),
           "Firmware versions differ in how they say that there is no limit."),
    simple("preferences-fail", change(ChangeKind::preferencesFail, 1), "The disk is full or read-only."),
    simple("preferences-written", change(ChangeKind::preferencesFail, 0), "There is room on the disk again."),

    // Around the process
    measured("clock-step", ChangeKind::clockStep, "The network sets the clock, and people set it by hand."),
    measured("user", ChangeKind::userId, "Somebody starts the program by hand, without root."),
    simple("interrupt", change(ChangeKind::signal, SIGINT), "Somebody types control-C."),
    simple("terminate", change(ChangeKind::signal, SIGTERM),
           "The system stops its services at shutdown and on update."),
    simple("kill", change(ChangeKind::signal, SIGKILL),
           "The system kills what uses too much memory or does not end in time."),
    simple("terminate-at-exchange", change(ChangeKind::signalAtExchange, SIGTERM, 1),
           "A service may be stopped between any two writes."),
    simple("kill-at-exchange", change(ChangeKind::signalAtExchange, SIGKILL, 1),
           "A process may be killed between any two writes."),
    simple("daemon-unsigned", {.kind = ChangeKind::daemonTeam}, "Developers run builds that nobody signed."),
    simple("daemon-other-team", signedBy("3ZD8MW61RC"),
           "A company may build app and daemon itself, and an update may bring only one of them."),
    simple("daemon-signature-unreadable", change(ChangeKind::daemonSignature, 0),
           "An update may replace the executable below the running process."),
    simple("daemon-signature-readable", change(ChangeKind::daemonSignature, 1),
           "The executable is put back."),
};

}  // namespace

std::span<const Fault> faults() { return allFaults; }

const Fault* findFault(std::string_view name) {
  const auto* found = std::find_if(allFaults.begin(), allFaults.end(),
                                   [name](const Fault& fault) { return fault.name == name; });
  return found == allFaults.end() ? nullptr : found;
}

}  // namespace brisko::virtual_mac
