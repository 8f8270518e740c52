// tests/support/file_journal.h
#pragma once

#include <string>
#include <vector>

namespace brisko::test {

// Records which files of a folder were written, in order, but not those in its subfolders.
class FileJournal {
 public:
  // Whether this system's kernel reports that. A test that needs a journal is skipped otherwise.
  [[nodiscard]] static bool canBeKept();

  explicit FileJournal(const std::string& folder);  // the folder must exist
  ~FileJournal();
  FileJournal(const FileJournal&) = delete;
  FileJournal& operator=(const FileJournal&) = delete;

  // From now on also records the files of this folder, whose writers keep them open: one entry for each run
  // of writes.
  void watchOpenFiles(const std::string& folder);

  // The names of the files written since the last call, one for each time that one was closed.
  [[nodiscard]] std::vector<std::string> written();

 private:
  int watch_;
};

}  // namespace brisko::test
