#include "base/plain_files.h"

#include <algorithm>
#include <cerrno>

#include <fcntl.h>
#include <sys/stat.h>

#include "base/file_calls.h"

namespace brisko::plain {
namespace {

constexpr std::size_t largestFile = 16U << 20U;  // bytes

}  // namespace

Descriptor openRegularFile(const std::string& path, int flags, mode_t mode) {
  // Non-blocking, because opening a pipe or a device could otherwise wait forever.
  Descriptor file(file_calls::open(path.c_str(), flags | O_NONBLOCK | O_NOCTTY | O_CLOEXEC, mode));
  struct stat status {};
  if (!file || file_calls::status(file.number(), status) != 0 || !S_ISREG(status.st_mode)) return {};
  return file;
}

bool writeAll(int descriptor, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t written = file_calls::write(descriptor, bytes.data(), bytes.size());
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) return false;
    bytes.remove_prefix(static_cast<std::size_t>(written));
  }
  return true;
}

bool changeMode(int descriptor, mode_t mode) { return file_calls::changeMode(descriptor, mode) == 0; }

std::optional<std::string> readWholeFile(const std::string& path) {
  const Descriptor file = openRegularFile(path, O_RDONLY, 0);
  struct stat status {};
  if (!file || file_calls::status(file.number(), status) != 0) return std::nullopt;
  if (status.st_size > static_cast<off_t>(largestFile)) return std::nullopt;

  // The size is only a first guess, because the file may be growing. Reading one byte more detects the end in
  // the first read; one byte more than the largest size detects a file that is too large.
  std::string bytes(static_cast<std::size_t>(status.st_size) + 1, '\0');
  std::size_t filled = 0;
  for (;;) {
    const ssize_t got = file_calls::read(file.number(), bytes.data() + filled, bytes.size() - filled);
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) return std::nullopt;
    if (got == 0) break;
    filled += static_cast<std::size_t>(got);
    if (filled > largestFile) return std::nullopt;
    if (filled == bytes.size()) bytes.resize(std::min(bytes.size() * 2, largestFile + 1));
  }
  bytes.resize(filled);
  return bytes;
}

bool overwriteFile(const std::string& path, std::string_view text) {
  const Descriptor file = openRegularFile(path, O_WRONLY | O_CREAT | O_TRUNC, 0666);
  return file && writeAll(file.number(), text);
}

void removeTree(const std::string& path, std::error_code& failure) { file_calls::removeAll(path, failure); }

void removeFile(const std::string& path, std::error_code& failure) { file_calls::remove(path, failure); }

void renameFile(const std::string& from, const std::string& to, std::error_code& failure) {
  file_calls::rename(from, to, failure);
}

}  // namespace brisko::plain
