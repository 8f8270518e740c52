// records/files_document.h
// The examples in docs/files.md.
#pragma once

#include <map>
#include <string>

namespace brisko::test {

// The text of each block, by the name after its language: ```json status.json
[[nodiscard]] std::map<std::string, std::string> examplesOfFilesDocument();

}  // namespace brisko::test
