#include "base/files.h"

#include <fcntl.h>

#include "base/file_calls.h"
#include "base/plain_files.h"

namespace brisko {

void Descriptor::close() {
  if (number_ >= 0) file_calls::close(number_);
  number_ = none;
}

Descriptor openForAppending(const std::string& path) {
  constexpr mode_t mode = 0644;
  Descriptor made = openRegularFile(path, O_WRONLY | O_APPEND | O_CREAT | O_EXCL, mode);
  if (!made) return openRegularFile(path, O_WRONLY | O_APPEND);
  // The umask may have removed permissions. If this fails, the file keeps the reduced mode.
  static_cast<void>(changeMode(made.number(), mode));
  return made;
}

// Weak, so that a program can bring its own when it is linked. The compiler inlines none of them.

[[gnu::weak]] Descriptor openRegularFile(const std::string& path, int flags, mode_t mode) {
  return plain::openRegularFile(path, flags, mode);
}

[[gnu::weak]] bool writeAll(int descriptor, std::string_view bytes) {
  return plain::writeAll(descriptor, bytes);
}

[[gnu::weak]] bool changeMode(int descriptor, mode_t mode) { return plain::changeMode(descriptor, mode); }

[[gnu::weak]] std::optional<std::string> readWholeFile(const std::string& path) {
  return plain::readWholeFile(path);
}

[[gnu::weak]] bool overwriteFile(const std::string& path, std::string_view text) {
  return plain::overwriteFile(path, text);
}

[[gnu::weak]] void removeTree(const std::string& path, std::error_code& failure) {
  plain::removeTree(path, failure);
}

[[gnu::weak]] void removeFile(const std::string& path, std::error_code& failure) {
  plain::removeFile(path, failure);
}

[[gnu::weak]] void renameFile(const std::string& from, const std::string& to, std::error_code& failure) {
  plain::renameFile(from, to, failure);
}

}  // namespace brisko
