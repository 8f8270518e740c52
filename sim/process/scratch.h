// sim/process/scratch.h
// Temporary folders and files, in memory if the system offers that, because a simulated year writes thousands
// of small files. A failure throws std::system_error.
#pragma once

#include <string>
#include <string_view>

namespace brisko::sim {

// A new folder whose name begins with `prefix`, removed with its contents by the destructor.
class ScratchFolder {
 public:
  explicit ScratchFolder(const std::string& prefix);
  ~ScratchFolder();
  ScratchFolder(const ScratchFolder&) = delete;
  ScratchFolder& operator=(const ScratchFolder&) = delete;

  [[nodiscard]] const std::string& path() const { return path_; }  // without a trailing slash
  [[nodiscard]] std::string path(std::string_view name) const { return path_ + "/" + std::string(name); }

 private:
  std::string path_;
};

// From now on temporary folders and files are created in this folder.
void setScratchRoot(const std::string& folder);

// An open file without a name, for reading and appending.
[[nodiscard]] int namelessFile();

}  // namespace brisko::sim
