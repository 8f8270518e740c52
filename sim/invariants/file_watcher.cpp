#include "sim/invariants/file_watcher.h"

#include <algorithm>
#include <utility>

#include "sim/process/kept_files.h"

namespace brisko::lab {

FileWatcher::FileWatcher(std::string volume) : folders_(std::move(volume)) {}

void FileWatcher::open() {
  folders_.begin();
  static_cast<void>(takeChanges());
}

std::vector<FileChange> FileWatcher::takeChanges() {
  std::vector<FileChange> found;
  const sim::KeptWrites writes = sim::takeKeptWrites();
  for (const std::string& path : writes.kept) found.push_back({.path = path});
  if (!news_.mayHaveNews()) return found;
  for (FileChange& change : folders_.changes()) {
    const bool delayed = change.overwritten && std::find(writes.delayed.begin(), writes.delayed.end(),
                                                         change.path) != writes.delayed.end();
    if (!delayed) found.push_back(std::move(change));
  }
  return found;
}

}  // namespace brisko::lab
