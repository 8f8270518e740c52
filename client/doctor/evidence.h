// client/doctor/evidence.h
// What the checks of "brisko doctor" have to go by: what was read of the daemon's files, and what the system
// and its commands reported. A value that could not be gathered carries the reason.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "client/log_reader.h"
#include "client/recent_history.h"
#include "client/state_reader.h"

namespace brisko::client {

template <typename Value>
struct Gathered {
  std::optional<Value> value = {};
  std::string whyNot = "not available here";  // as a clause, without a value
};

template <typename Value>
[[nodiscard]] Gathered<Value> gathered(Value value) {
  return {.value = std::move(value), .whyNot = {}};
}
template <typename Value>
[[nodiscard]] Gathered<Value> notGathered(std::string whyNot) {
  return {.value = {}, .whyNot = std::move(whyNot)};
}

inline constexpr const char* needsRoot = "needs root";
inline constexpr const char* onAnotherVolume = "on another volume";
inline constexpr const char* launchdSilent = "launchd did not answer";
inline constexpr const char* noStatus = "there is no status";

// What the installer puts in place.
inline constexpr const char* installedFolder = "/Library/Brisko";
inline constexpr const char* installedProgram = "/Library/Brisko/brisko-daemon";
inline constexpr const char* installedJob = "/Library/LaunchDaemons/com.brisko.daemon.plist";
inline constexpr const char* dataFolder = "/Library/Application Support/Brisko";

struct InstalledFiles {
  bool program = false;
  bool job = false;
  std::vector<std::string> unfinished = {};  // "….new", which only an interrupted installation leaves behind
};

struct FileRights {
  std::string path = {};
  std::uint32_t owner = 0;
  std::uint32_t group = 0;
  std::uint32_t mode = 0;     // the low 12 bits
  bool fromInstaller = true;  // which gives it to root and wheel
};

struct SignatureVerdict {
  bool valid = true;
  std::string reason = {};  // as codesign reports it
};

struct DaemonProcess {
  std::int64_t id = 0;
  std::int64_t parent = 0;  // 1: launchd
};

struct VolumeSpace {
  double freeBytes = 0;
  bool readOnly = false;
};

struct BatteryFacts {
  std::optional<std::int64_t> notChargingReason = {};  // a mask; 0 while it charges
  std::optional<std::int64_t> adapterWatts = {};
};

struct Evidence {
  State state = {};                         // the daemon's files, its job, and the last minutes
  std::optional<DaemonStatus> later = {};   // the status once more, at the end
  std::optional<Job> laterJob = {};         // likewise the job, if it had no process
  Gathered<std::uint32_t> statusMode = {};  // of status.json, the low 12 bits
  bool statusIsEmpty = false;               // for longer than a write takes

  // --- The installation
  Gathered<InstalledFiles> installed = {};
  Gathered<std::vector<FileRights>> rights = {};  // of the program, the job's file and their folders
  Gathered<std::vector<std::string>> jobFileArguments = {};
  Gathered<bool> jobDisabled = {};
  Gathered<bool> backgroundAllowed = {};  // in System Settings
  Gathered<SignatureVerdict> signature = {};
  Gathered<bool> quarantined = {};
  Gathered<bool> appleSilicon = {};
  Gathered<std::string> installedVersion = {};  // of the program on the disk
  Gathered<double> programChangedAt = {};       // wall clock
  Gathered<std::int64_t> profiles = {};         // how many configuration profiles are installed

  // --- The process
  Gathered<std::vector<DaemonProcess>> daemons = {};
  Gathered<std::string> errorLog = {};  // the end of its standard error

  // --- Its files
  Gathered<std::string> statistics = {};   // the text of stats.json; empty when it is missing
  Gathered<std::string> calibration = {};  // likewise of calibration.json
  Gathered<double> configCreatedAt = {};   // wall clock
  Gathered<VolumeSpace> space = {};
  Gathered<std::vector<LogLine>> log = {};           // of the last day, oldest first
  Gathered<std::vector<RecentSample>> history = {};  // likewise

  // --- The hardware
  Gathered<BatteryFacts> battery = {};
  Gathered<bool> chargingIsStopped = {};                  // by the keys that the daemon uses
  Gathered<std::int64_t> systemLimit = {};                // percent that macOS enforces; 0 or 100: none
  Gathered<std::vector<std::string>> otherPrograms = {};  // that have opened the controller, not macOS's own
};

}  // namespace brisko::client
