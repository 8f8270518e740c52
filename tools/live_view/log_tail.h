// tools/live_view/log_tail.h
#pragma once

#include <string>
#include <vector>

namespace brisko::vmac {

// Follows a log file as it grows, and continues with the next file after a rotation.
class LogTail {
 public:
  explicit LogTail(std::string path) : path_(std::move(path)) {}

  // The complete lines added since the last call, without line feeds. None while there is no file.
  [[nodiscard]] std::vector<std::string> newLines();

 private:
  std::string path_;
  unsigned long long inode_ = 0;
  long long offset_ = 0;
};

}  // namespace brisko::vmac
