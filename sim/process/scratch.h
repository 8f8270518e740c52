// sim/process/scratch.h
// Places for what is thrown away afterwards. They lie in memory where the system has such a place: a
// simulated year writes thousands of small files. What cannot be made ends in a std::system_error.
#pragma once

#include <string>
#include <string_view>

namespace brisko::sim {

// A new folder with a name that begins with `prefix`, removed with everything in it at the end.
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

// From now on they lie in this folder.
void setScratchRoot(const std::string& folder);

// An open file, for reading and appending, that has no name any more.
[[nodiscard]] int namelessFile();

}  // namespace brisko::sim
