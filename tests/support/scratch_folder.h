// tests/support/scratch_folder.h
// A folder of a test's own, removed with everything in it at the end, after what the daemon wrote there was
// held to its schemas (support/record_schemas.h). It lies in memory where the system has such a place: whole
// lives write thousands of small files.
#pragma once

#include <string>
#include <string_view>

namespace brisko::test {

class ScratchFolder {
 public:
  ScratchFolder();
  ~ScratchFolder();
  ScratchFolder(const ScratchFolder&) = delete;
  ScratchFolder& operator=(const ScratchFolder&) = delete;

  [[nodiscard]] const std::string& path() const { return path_; }  // without a trailing slash
  [[nodiscard]] std::string path(std::string_view name) const { return path_ + "/" + std::string(name); }

 private:
  std::string path_;
};

}  // namespace brisko::test
