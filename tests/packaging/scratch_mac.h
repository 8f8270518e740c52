// tests/packaging/scratch_mac.h
// A folder that stands for the volume of a Mac, with fakes for its tools, for the scripts to work on. The
// fakes say for themselves what they play and what they can be told; nothing outside the folder is
// touched, and a script finds no tool but the fakes, which refuse what only GNU's tools know.
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

  // From here on scripts are run by bash in its POSIX mode, which is what a Mac has for sh, and no longer by
  // the sh of this system.
  void useBash() { shell_ = {"/bin/bash", "--posix"}; }

  // Runs a script of packaging/, to its end. The installer gets the fakes for the programs.
  [[nodiscard]] Finished install(const Words& arguments = {}, const Environment& environment = {}) const;
  [[nodiscard]] Finished uninstall(const Words& arguments = {}, const Environment& environment = {}) const;
  [[nodiscard]] Finished runScript(const std::string& path, const Words& arguments,
                                   const Environment& environment = {}) const;

  // What a script or a fake needs to find this Mac, beside the path to the tools.
  [[nodiscard]] Environment environment() const;

  // The path of a file of the Mac, as this computer knows it.
  [[nodiscard]] std::string at(const std::string& path) const { return root_ + path; }
  void put(const std::string& path, const std::string& text) const;  // with the folders on the way
  void putApp(const std::string& path) const;

  // Everything on the volume that was not there in the beginning, each with its mode: "/Library/Brisko 755",
  // sorted. A link is shown as "path -> target".
  [[nodiscard]] Words added() const;

  // The same without the manuals, documents and completions and the links to them.
  [[nodiscard]] Words addedToRun() const;

  // The calls of tools and of the program, as they would be on a real volume.
  [[nodiscard]] Words journal() const;
  [[nodiscard]] Words journal(const std::string& tool) const;
  void forgetJournal() const;

  // The job as the launch service has it; nothing while it has none.
  [[nodiscard]] std::optional<std::string> job() const;
  // Whether the daemon left the charge held.
  [[nodiscard]] bool isHeld() const;
  // From here on the daemon of the job crashes again and again, so that the end of the job finds none to
  // tell.
  void crash() const;

 private:
  [[nodiscard]] Words everything() const;

  ScratchFolder folder_;
  std::string root_;
  std::string mac_;  // what the fakes know
  Words shell_ = {"/bin/sh"};
  Words before_;
};

// The programs, the job and what else an installation leaves that is needed to run, sorted, before the daemon
// has written anything.
[[nodiscard]] Words installedFiles();

inline const std::string jobPath = "/Library/LaunchDaemons/com.brisko.daemon.plist";
inline const std::string programFile = "/Library/Brisko/brisko-daemon";
inline const std::string dataFolder = "/Library/Application Support/Brisko";

}  // namespace brisko::test
