// tests/packaging/scratch_mac.h
// A folder that represents the volume of a Mac, with fakes for its tools, on which the scripts run. Each fake
// explains what it imitates and how a test controls it. Nothing outside the folder is changed.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "process/program.h"
#include "support/scratch_folder.h"

namespace brisko::test {

class ScratchMac {
 public:
  // A volume as it is before anything is installed.
  ScratchMac();

  // From now on scripts are run by bash, which is the sh of a Mac, and not by this system's sh.
  void useBash() { shell_ = "/bin/bash"; }

  // Runs a script of packaging/ until it ends. The installer gets the fake of the program.
  [[nodiscard]] Finished install(const Words& arguments = {}, const Environment& environment = {}) const;
  [[nodiscard]] Finished uninstall(const Words& arguments = {}, const Environment& environment = {}) const;
  [[nodiscard]] Finished runScript(const std::string& path, const Words& arguments,
                                   const Environment& environment = {}) const;

  // The path of the Mac's file on this computer.
  [[nodiscard]] std::string at(const std::string& path) const { return root_ + path; }
  void put(const std::string& path, const std::string& text) const;  // with the folders on the way
  void putApp(const std::string& path) const;

  // Everything that was added to the volume, each path with its mode, sorted: "/Library/Brisko 755". A link
  // is shown as "path -> target".
  [[nodiscard]] Words added() const;

  // The calls of tools and of the program, with the paths that they would have on a real volume.
  [[nodiscard]] Words journal() const;
  [[nodiscard]] Words journal(const std::string& tool) const;
  void forgetJournal() const;

  // The job as launchd has loaded it; missing if none is loaded.
  [[nodiscard]] std::optional<std::string> job() const;
  // From now on the daemon of the job crashes again and again, so none runs when the job is stopped.
  void crash() const;

 private:
  [[nodiscard]] Words everything() const;

  ScratchFolder folder_;
  std::string root_;
  std::string mac_;  // the state of the fakes
  std::string shell_ = "/bin/sh";
  Words before_;
};

// The program, the job and everything else that an installation adds, sorted, before the daemon has written
// anything.
[[nodiscard]] Words installedFiles();

inline const std::string jobPath = "/Library/LaunchDaemons/com.brisko.daemon.plist";
inline const std::string programFile = "/Library/Brisko/brisko-daemon";
inline const std::string dataFolder = "/Library/Application Support/Brisko";

}  // namespace brisko::test
