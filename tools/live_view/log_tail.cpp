#include "tools/live_view/log_tail.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace brisko::vmac {

std::vector<std::string> LogTail::newLines() {
  const int file = ::open(path_.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  if (file < 0) return {};
  struct stat found {};
  if (::fstat(file, &found) == 0 && found.st_ino != inode_) {
    inode_ = found.st_ino;
    offset_ = 0;
  }
  std::string text;
  char piece[4096];
  long long at = offset_;
  for (ssize_t count = 0; (count = ::pread(file, piece, sizeof piece, at)) > 0; at += count) {
    text.append(piece, static_cast<std::size_t>(count));
  }
  ::close(file);

  std::vector<std::string> lines;
  std::size_t begin = 0;
  for (std::size_t end = 0; (end = text.find('\n', begin)) != std::string::npos; begin = end + 1) {
    lines.push_back(text.substr(begin, end - begin));
  }
  offset_ += static_cast<long long>(begin);  // an incomplete line is read again
  return lines;
}

}  // namespace brisko::vmac
