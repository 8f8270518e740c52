// sim/invariants/watched_folders.h
// The daemon's two folders on a volume, and what happens to the files in them. Each kernel's way is in the
// folder named after it.
#pragma once

#include <array>
#include <memory>
#include <string>
#include <vector>

#include "sim/invariants/rule.h"

namespace brisko::lab {

inline constexpr std::array dataFolders{"/Library/Application Support/Brisko", "/Library/Logs/Brisko"};

class WatchedFolders {
 public:
  explicit WatchedFolders(std::string volume);
  ~WatchedFolders();
  WatchedFolders(const WatchedFolders&) = delete;
  WatchedFolders& operator=(const WatchedFolders&) = delete;

  // Takes what exists now as known. Earlier events may still come with the next changes.
  void begin();
  // Since the last call.
  [[nodiscard]] std::vector<FileChange> changes();

 private:
  struct Impl;

  std::unique_ptr<Impl> impl_;
};

}  // namespace brisko::lab
