// sim/invariants/file_watcher.h
// Reports everything created, written, moved or removed below the daemon's two folders, as the kernel sees it
// and as the process keeps it (sim/process/kept_files.h).
//
// On a Mac no kernel reports what happens in a folder's files, so the folders are searched after each work on
// files, and compared with the search before. There a file that was made and removed between two searches is
// not seen, and the changes of one search come in this order: what was written, what was removed.
#pragma once

#include <string>
#include <vector>

#include "sim/invariants/rule.h"
#include "sim/invariants/watched_folders.h"
#include "sim/seam/news.h"

namespace brisko::lab {

class FileWatcher {
 public:
  // Opened in the lab and inherited by the processes, because the kernel takes long to close the descriptors.
  explicit FileWatcher(std::string volume);

  // Called in a process: takes what exists now as known and drops all earlier events.
  void open();
  // Returns the changes since the last call. A new folder is searched, and what it contains counts as changed
  // too.
  [[nodiscard]] std::vector<FileChange> takeChanges();

 private:
  WatchedFolders folders_;
  virtual_mac::NewsReader news_;
};

}  // namespace brisko::lab
