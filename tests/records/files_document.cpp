#include "records/files_document.h"

#include "sim/process/log_lines.h"
#include "support/files.h"

namespace brisko::test {

std::map<std::string, std::string> examplesOfFilesDocument() {
  const std::string document = contents(std::string(BRISKO_TEST_DATA) + "/../../docs/files.md");
  std::map<std::string, std::string> examples;
  std::string name;  // of the block that contains the line; "" outside
  for (const std::string& line : sim::linesOf(document)) {
    if (line.starts_with("```")) {
      name = name.empty() ? line.substr(line.find(' ') + 1) : "";
    } else if (!name.empty()) {
      examples[name] += line + "\n";
    }
  }
  return examples;
}

}  // namespace brisko::test
