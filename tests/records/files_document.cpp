#include "records/files_document.h"

#include <sstream>

#include "support/files.h"

namespace brisko::test {
namespace {

// What stands in backticks in the first column of a row, with the first word of the second.
void addRow(const std::string& row, FilesSection& section) {
  const std::size_t column = row.find('|', 1);
  const std::string first = row.substr(0, column);
  const std::size_t end = row.find_first_of(" ,|", column + 2);
  const std::string type = row.substr(column + 2, end - column - 2);
  for (std::size_t open = first.find('`'); open != std::string::npos;) {
    const std::size_t close = first.find('`', open + 1);
    const std::string key = first.substr(open + 1, close - open - 1);
    section.keys.insert(key);
    section.types[key] = type;
    open = first.find('`', close + 1);
  }
}

void addSchemas(const std::string& line, FilesSection& section) {
  const std::string folder = "(schemas/";
  const std::string suffix = ".schema.json)";
  for (std::size_t at = line.find(folder); at != std::string::npos; at = line.find(folder, at)) {
    at += folder.size();
    section.schemas.insert(line.substr(at, line.find(suffix, at) - at));
  }
}

}  // namespace

std::map<std::string, FilesSection> readFilesDocument() {
  std::istringstream lines(contents(std::string(BRISKO_TEST_DATA) + "/../../docs/files.md"));
  std::map<std::string, FilesSection> sections;
  std::string heading;
  std::string example;
  bool inExample = false;
  for (std::string line; std::getline(lines, line);) {
    if (line.starts_with("```")) {
      inExample = !inExample;
      if (inExample) example = line.substr(line.find(' ') + 1);
    } else if (inExample) {
      sections[heading].examples[example] += line + "\n";
    } else if (line.starts_with("## ")) {
      heading = line.substr(3);
    } else if (line.starts_with("| `")) {
      addRow(line, sections[heading]);
    } else {
      addSchemas(line, sections[heading]);
    }
  }
  return sections;
}

}  // namespace brisko::test
