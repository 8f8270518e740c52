// sim/invariants/file_watcher.h
// Reports everything created, written, moved or removed below the daemon's two folders, as the kernel sees it
// and as the process keeps it (sim/process/kept_files.h).
#pragma once

#include <map>
#include <string>
#include <vector>

#include "sim/invariants/rule.h"
#include "sim/seam/news.h"

namespace brisko::lab {

class FileWatcher {
 public:
  // Opened in the lab and inherited by the processes, because the kernel takes long to close the descriptors.
  explicit FileWatcher(std::string volume);
  ~FileWatcher();
  FileWatcher(const FileWatcher&) = delete;
  FileWatcher& operator=(const FileWatcher&) = delete;

  // Called in a process: takes what exists now as known and drops all earlier events.
  void open();
  // Returns the changes since the last call. A new folder is searched, and what it contains counts as changed
  // too.
  [[nodiscard]] std::vector<FileChange> takeChanges();

 private:
  void watch(const std::string& path, std::vector<FileChange>* found);
  void readEvents(std::vector<FileChange>& found);

  std::string volume_;
  int queue_;
  virtual_mac::NewsReader news_;
  std::map<int, std::string> watched_;  // by watch descriptor: folders, unmapped
};

}  // namespace brisko::lab
