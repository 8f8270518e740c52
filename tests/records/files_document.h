// records/files_document.h
// docs/files.md as the tests read it.
#pragma once

#include <map>
#include <set>
#include <string>

namespace brisko::test {

struct FilesSection {
  std::map<std::string, std::string> examples;  // by the name after the kind of block
  std::set<std::string> keys;                   // explained in its tables
  std::map<std::string, std::string> types;     // the first word of each key's type: "integer"
  std::set<std::string> schemas;                // the kinds whose schemas it names: "status"
};

// By the section's heading.
[[nodiscard]] std::map<std::string, FilesSection> readFilesDocument();

}  // namespace brisko::test
