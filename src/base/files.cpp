#include "base/files.h"

#include <cerrno>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace brisko {

void Descriptor::close() {
  if (number_ >= 0) ::close(number_);
  number_ = none;
}

Descriptor openRegularFile(const std::string& path, int flags, mode_t mode) {
  // Non-blocking, because opening a pipe or a device could otherwise wait forever.
  Descriptor file(::open(path.c_str(), flags | O_NONBLOCK | O_NOCTTY | O_CLOEXEC, mode));
  struct stat status {};
  if (!file || ::fstat(file.number(), &status) != 0 || !S_ISREG(status.st_mode)) return {};
  return file;
}

Descriptor openForAppending(const std::string& path) {
  constexpr mode_t mode = 0644;
  Descriptor made = openRegularFile(path, O_WRONLY | O_APPEND | O_CREAT | O_EXCL, mode);
  if (!made) return openRegularFile(path, O_WRONLY | O_APPEND);
  // The umask may have removed permissions. If this fails, the file keeps the reduced mode.
  static_cast<void>(::fchmod(made.number(), mode));
  return made;
}

bool writeAll(int descriptor, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t written = ::write(descriptor, bytes.data(), bytes.size());
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) return false;
    bytes.remove_prefix(static_cast<std::size_t>(written));
  }
  return true;
}

}  // namespace brisko
