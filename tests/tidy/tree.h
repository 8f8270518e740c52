// tests/tidy/tree.h
// The files of the project, read for the checks.
#pragma once

#include <cstddef>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace brisko::test {

// Every text file, by its path relative to the tree's folder.
using Tree = std::map<std::string, std::string>;

// A text for each finding: "src/base/log.cpp:12: what is wrong; what to do".
using Findings = std::vector<std::string>;

// Reads the tree in `folder`, without build results, hidden files (except .ci, .github and the files at the
// top) and files that are not text.
[[nodiscard]] Tree readTree(const std::string& folder);

[[nodiscard]] bool isCpp(std::string_view path);
[[nodiscard]] bool isDaemonSource(std::string_view path);  // C++ below src/
[[nodiscard]] bool inPlatform(std::string_view path);      // below src/platform/

[[nodiscard]] std::string folderOf(std::string_view path);
[[nodiscard]] std::string withoutExtension(std::string_view path);

// "src/base/log.cpp:12: ", the beginning of a finding.
[[nodiscard]] std::string place(const std::string& path, std::size_t line);

}  // namespace brisko::test
