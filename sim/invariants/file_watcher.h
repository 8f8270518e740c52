// sim/invariants/file_watcher.h
// Sees every creation, writing, moving and removal below the daemon's two folders, through the kernel.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "sim/invariants/rule.h"

namespace brisko::lab {

class FileWatcher {
 public:
  // Opened in the lab and inherited by the processes: the kernel takes its time to close them.
  explicit FileWatcher(std::string volume);
  ~FileWatcher();
  FileWatcher(const FileWatcher&) = delete;
  FileWatcher& operator=(const FileWatcher&) = delete;

  // In a process: what is there now is known, and what happened before is not looked at.
  void open();
  // What happened since the last look. A folder that is new is looked into: what stands there counts too.
  [[nodiscard]] std::vector<FileChange> takeChanges();

 private:
  void watch(const std::string& path, std::vector<FileChange>* found);

  std::string volume_;
  int queue_;
  std::map<int, std::string> watched_;  // by the kernel's number: folders, unmapped
};

}  // namespace brisko::lab
