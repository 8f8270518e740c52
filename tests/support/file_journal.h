// tests/support/file_journal.h
#pragma once

#include <string>
#include <vector>

namespace brisko::test {

// Which files of a folder were written, in order. It looks at nothing below the folder's subfolders.
class FileJournal {
 public:
  // Whether this system's kernel tells. A test that needs one is skipped where it does not.
  [[nodiscard]] static bool canBeKept();

  explicit FileJournal(const std::string& folder);  // the folder has to be there
  ~FileJournal();
  FileJournal(const FileJournal&) = delete;
  FileJournal& operator=(const FileJournal&) = delete;

  // From now on also the files of this folder, whose writers keep them open: one for each run of writes.
  void watchOpenFiles(const std::string& folder);

  // The names of the files written since the last call, one for each time that one was closed.
  [[nodiscard]] std::vector<std::string> written();

 private:
  int watch_;
};

}  // namespace brisko::test
