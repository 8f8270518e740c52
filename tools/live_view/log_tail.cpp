#include "tools/live_view/log_tail.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "sim/process/log_lines.h"

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

  const std::size_t size = text.size();
  std::vector<std::string> lines = sim::takeWholeLines(text);
  offset_ += static_cast<long long>(size - text.size());  // an incomplete line is read again
  return lines;
}

}  // namespace brisko::vmac
