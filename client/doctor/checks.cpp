#include "client/doctor/checks.h"

#include <algorithm>
#include <array>

namespace brisko::client {
namespace {

constexpr const char* unlimited = "Nothing limits the charge";
constexpr const char* afterRestart = "The limit is gone after the Mac was restarted";
constexpr const char* noAnswer = "The status is old, missing or unreadable";
constexpr const char* noEffect = "A setting has no effect";
constexpr const char* pastLimit = "The charge goes past the limit, or stops elsewhere";
constexpr const char* tooLittle = "The Mac does not charge, or loses charge on its adapter";
constexpr const char* noDischarge = "The charge stays above the limit";
constexpr const char* unsteady = "The state changes all the time";
constexpr const char* records = "The records are odd";
constexpr const char* unsafe = "Others could take over the daemon";

constexpr const char* reinstall = "Run the installer again";
constexpr const char* restart = "brisko restart";

constexpr std::array<Check, 41> table{{
    {"D01", unlimited, "not installed", "nothing limits the charge",
     "neither the job nor the program is on the disk, and launchd does not know the job",
     "it was never installed, or it was removed", "Run the installer", Severity::error, Fix::none,
     checkInstalled},
    {"D02", unlimited, "half installed", "the limit is gone",
     "the job without the program, the program without the job, or a file ending in .new",
     "the installer was interrupted", reinstall, Severity::error, Fix::none, checkInstalledWhole},
    {"D03", unlimited, "job not loaded", "the limit is gone",
     "`launchctl print system/com.brisko.daemon` does not know the job; or it shows no process, and no other "
     "check says why",
     "somebody unloaded it, or the daemon ends again and again",
     "sudo launchctl bootstrap system /Library/LaunchDaemons/com.brisko.daemon.plist", Severity::error,
     Fix::none, checkJobLoaded},
    {"D04", afterRestart, "job disabled", "the limit is gone after a restart",
     "`launchctl print-disabled system`", "somebody disabled it",
     "sudo launchctl enable system/com.brisko.daemon, then sudo launchctl bootstrap system "
     "/Library/LaunchDaemons/com.brisko.daemon.plist",
     Severity::error, Fix::none, checkJobEnabled},
    {"D05", afterRestart, "switched off in Login Items",
     "the limit is gone after a restart, without an error",
     "no daemon runs, and `sfltool dumpbtm` shows the job as disallowed (root)",
     "\"Allow in the Background\" is off",
     "Switch it on in System Settings > General > Login Items & Extensions", Severity::error, Fix::none,
     checkLoginItems},
    {"D06", unlimited, "a number ends the daemon", "the limit is not kept",
     "a number that does not fit 64 bits in the settings, the statistics or the calibration; or an abort and "
     "its message on standard error",
     "somebody wrote that number", "sudo brisko doctor --fix D06 moves the file aside", Severity::error,
     Fix::moveAside, checkNumbers},
    {"D07", unlimited, "not a known Mac", "the limit is not kept", "the last exit status is 2",
     "the daemon knows no way to control charging on this Mac",
     "Remove the service: sudo /Library/Brisko/uninstall-service.sh", Severity::error, Fix::none,
     checkKnownMac},
    {"D08", unlimited, "no controller", "the limit is not kept",
     "the last exit status is 1, and \"Could not open AppleSMC\" on standard error",
     "the Mac's controller does not answer, or this is a virtual machine", "Restart the Mac", Severity::error,
     Fix::none, checkController},
    {"D09", unlimited, "broken signature", "the daemon never starts",
     "`codesign --verify --strict` fails, or macOS killed the program",
     "the program was overwritten or changed", reinstall, Severity::error, Fix::none, checkSignature},
    {"D10", unlimited, "in quarantine", "the daemon never starts",
     "the program has the attribute com.apple.quarantine", "it was copied from a download", reinstall,
     Severity::error, Fix::none, checkQuarantine},
    {"D11", unlimited, "no Apple silicon", "the daemon never starts", "`sysctl hw.optional.arm64` is 0",
     "this is a Mac with an Intel processor", "Such a Mac is not supported", Severity::error, Fix::none,
     checkProcessor},
    {"D12", unsafe, "wrong owner or mode",
     "none, but whoever can change the program can run anything as root",
     "the program, the job or a folder does not belong to root and wheel, or others can change it",
     "it was copied by hand", reinstall, Severity::error, Fix::none, checkRights},
    {"D13", noAnswer, "old status", "`brisko status` shows old values",
     "the daemon runs, but has not renewed its status for 70 s, not counting the first 15 s after a wake",
     "the daemon hangs, unless D14 to D16 or D38 are found", restart, Severity::error, Fix::restart,
     checkStatusAge},
    {"D14", noAnswer, "data erased", "there are no files, although the daemon runs",
     "the data folder is missing, and the daemon has a process", "the app had all data erased", restart,
     Severity::error, Fix::restart, checkPurged},
    {"D15", unlimited, "dormant", "the charge is not limited, although the daemon runs",
     "the log contains \"app gone\", and no later line about the app or a start", "the app was removed",
     "Put the app back and restart the Mac, or run the installer again without --app", Severity::error,
     Fix::none, checkDormant},
    {"D16", unlimited, "released", "the charge is not limited", "\"charge released by the app\" in the log",
     "the app is about to remove the service", "Wait 30 s: the service is removed, or takes over again",
     Severity::info, Fix::none, checkReleased},
    {"D17", unsteady, "two daemons", "the limit and the light change back and forth",
     "more than one process of the daemon, or two that take turns in writing the status",
     "one was started by hand beside the job",
     "End the one that launchd did not start: sudo kill and its number", Severity::warning, Fix::none,
     checkOneDaemon},
    {"D18", noAnswer, "status not readable", "the app and brisko show nothing",
     "not everyone may read status.json", "the system's umask is 027 or 077",
     "Run the installer again, which sets the job's umask; until then: sudo chmod 644 '/Library/Application "
     "Support/Brisko/status.json'",
     Severity::warning, Fix::none, checkStatusReadable},
    {"D19", noEffect, "settings not readable", "the limit is 80 % whatever you set",
     "config.json is not a JSON object", "it was changed by hand", "brisko doctor --fix D19 starts anew",
     Severity::warning, Fix::rewriteSettings, checkSettingsReadable},
    {"D20", noEffect, "unknown setting", "a setting has no effect",
     "a key that does not exist, or a value of another type", "a typing error",
     "brisko doctor --fix D20 writes what was probably meant", Severity::warning, Fix::rewriteSettings,
     checkSettingKeys},
    {"D21", noEffect, "setting out of range", "another value is in force",
     "a number outside its range in config.json", "it was changed by hand",
     "brisko doctor --fix D21 writes the nearest allowed value", Severity::warning, Fix::rewriteSettings,
     checkSettingRanges},
    {"D22", noEffect, "options in the job", "the band is not as in the settings",
     "--limit, --lower or --config among the job's arguments",
     "they were added to the job's property list by hand",
     "If they are not wanted, remove them from /Library/LaunchDaemons/com.brisko.daemon.plist and run the "
     "installer again",
     Severity::info, Fix::none, checkJobArguments},
    {"D23", noEffect, "settings not watched", "a change takes up to 12 s",
     "config.json is newer than the daemon's start", "the file was missing when the daemon started",
     "Harmless. To end it: brisko restart", Severity::info, Fix::restart, checkSettingsWatched},
    {"D24", pastLimit, "the Mac does not obey", "it charges past the limit",
     "the status contains gateVerified false", "this Mac's firmware, or another program (D25)",
     "Look for another program that controls charging, then restart the Mac. If that does not help, report "
     "it",
     Severity::error, Fix::none, checkGateObeys},
    {"D25", unsteady, "another limiter", "charging starts and stops again and again",
     "\"gate found open\" more than three times a day, or keys that are not as the daemon set them; the "
     "finding "
     "names the programs that have opened the controller",
     "a second program controls charging", "Remove the other program", Severity::warning, Fix::none,
     checkOtherLimiter},
    {"D26", pastLimit, "macOS's limit too", "the charge is held lower or elsewhere than set",
     "the controller's key bfG0 shows a limit, although the daemon uses keys of its own",
     "two limits are set", "Switch macOS's limit off in System Settings > Battery", Severity::warning,
     Fix::none, checkTwoLimits},
    {"D27", pastLimit, "limit below 80 % refused", "the charge is held at 80 %",
     "the status contains nativeFloor", "this Mac's macOS enforces no lower limit",
     "Set a limit of at least 80 %, or accept it", Severity::info, Fix::none, checkLimitRefused},
    {"D28", pastLimit, "slider moved", "the charge goes past the limit",
     "\"watching, no alarm\" in the log, and no verified limit since",
     "the slider in System Settings was moved, or macOS charges to full to keep its estimate accurate",
     "Set the limit again: brisko limit and another percentage, then the one you want", Severity::warning,
     Fix::none, checkLimitOverridden},
    {"D29", unlimited, "keys closed", "nothing is limited", "the status contains chargeMode none",
     "macOS 27 or later without a limit of its own", "Update macOS, or remove the service", Severity::error,
     Fix::none, checkKeysOpen},
    {"D30", pastLimit, "forbidden by a profile", "macOS does not take the limit",
     "\"refused\" in the log, and `profiles show`", "an administrator manages this Mac",
     "Ask the administrator of this Mac", Severity::warning, Fix::none, checkProfiles},
    {"D31", tooLittle, "weak adapter", "charging is allowed and the Mac plugged in, but the charge falls",
     "power flows out of the battery for minutes while charging is allowed",
     "the adapter supplies less than the Mac uses", "Use an adapter with more watts", Severity::info,
     Fix::none, checkAdapterStrong},
    {"D32", tooLittle, "no current", "the Mac does not charge",
     "no power for minutes while charging is allowed; macOS reports a NotChargingReason",
     "macOS's optimised charging, a cold battery or a full one",
     "Wait, or look at the battery in System Settings", Severity::info, Fix::none, checkCurrentFlows},
    {"D33", tooLittle, "hot for long", "the Mac does not charge",
     "charging is paused for heat for more than an hour", "heat",
     "Let the Mac cool down, or raise the threshold with brisko heat", Severity::info, Fix::none, checkHeat},
    {"D34", noDischarge, "discharge given up", "the charge stays above the limit",
     "the status contains dischargeFailed", "a second power source, or a key that was taken back",
     "Unplug the Mac once, and use another port", Severity::warning, Fix::none, checkDischargeWorks},
    {"D35", noDischarge, "no discharge here", "the setting has no effect",
     "discharge is on, but the status contains dischargeSupported false", "this Mac's hardware",
     "Switch it off: brisko discharge off", Severity::info, Fix::none, checkDischargeSupported},
    {"D36", noDischarge, "calibration stuck", "a calibration does not end", "a phase is older than 24 h",
     "a weak adapter, heat, an unplugged adapter, or no way to discharge",
     "brisko why says what the phase needs; it fails by itself after 72 h", Severity::warning, Fix::none,
     checkCalibration},
    {"D37", pastLimit, "past the limit asleep", "the charge is over the limit in the morning",
     "after a scheduled wake the history shows a charge more than one percent above the limit",
     "the charge rose faster than estimated, or the wake was refused",
     "Close the Mac with its charge inside the band; `pmset -g sched` shows the scheduled wakes",
     Severity::warning, Fix::none, checkNight},
    {"D38", records, "disk full or read-only", "the status and the history are not updated",
     "too little free space, an empty status, or no new line in the history although the status is current",
     "there is no room", "Free some space", Severity::warning, Fix::none, checkDisk},
    {"D39", records, "clock changed", "a full charge ended early, or the history is odd",
     "times in the future, or a status or a daemon older than the Mac's start", "the clock was set",
     "None needed; the days concerned are odd in the history", Severity::info, Fix::none, checkClock},
    {"D40", records, "other version", "odd behaviour after an update",
     "the version in the status is not that of the program, or the program is newer than the daemon's start",
     "the old program still runs", restart, Severity::warning, Fix::restart, checkVersion},
    {"D41", unsteady, "swinging", "the state changes every few seconds",
     "more than 20 changes of the state within an hour; with discharge on, AC-W may be missing from smcKeys",
     "a Mac that cannot tell a cut adapter from an unplugged one, or notices it late",
     "Switch discharging off: brisko discharge off", Severity::warning, Fix::none, checkSwing},
}};

}  // namespace

std::span<const Check> checks() { return table; }

const Check* findCheck(std::string_view id) {
  const auto known =
      std::find_if(table.begin(), table.end(), [id](const Check& check) { return id == check.id; });
  return known == table.end() ? nullptr : &*known;
}

}  // namespace brisko::client
