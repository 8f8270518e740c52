#include "client/file_writing.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "base/files.h"

namespace brisko::client {
namespace {

mode_t fileMask() {
  const mode_t mask = ::umask(0);
  static_cast<void>(::umask(mask));
  return mask;
}

// Removes the file that was opened at the path, unless another is there by now.
void removeOpened(const std::string& path, const Descriptor& file) {
  struct stat opened {};
  struct stat found {};
  if (::fstat(file.number(), &opened) != 0 || ::lstat(path.c_str(), &found) != 0) return;
  if (opened.st_dev == found.st_dev && opened.st_ino == found.st_ino)
    static_cast<void>(::unlink(path.c_str()));
}

bool beginsWithMark(const std::string& path, std::string_view mark) {
  const Descriptor file = openRegularFile(path, O_RDONLY | O_NOFOLLOW);
  std::array<char, 512> begin{};
  const ssize_t got = file ? ::pread(file.number(), begin.data(), begin.size(), 0) : -1;
  if (got < 0) return false;
  return std::string_view(begin.data(), static_cast<std::size_t>(got)).find(mark) != std::string_view::npos;
}

// Why what is at the path must stay; empty when it may be replaced, or nothing is there.
std::string whyKept(const std::string& path, std::string_view mark) {
  struct stat status {};
  if (::lstat(path.c_str(), &status) != 0) return errno == ENOENT ? "" : std::strerror(errno);
  if (S_ISDIR(status.st_mode)) return "it is a folder";
  if (S_ISLNK(status.st_mode)) return "it is a link";
  if (!S_ISREG(status.st_mode)) return "it is not a regular file";
  if (status.st_size == 0 || beginsWithMark(path, mark)) return "";
  return "another file is there; remove it or use another name";
}

}  // namespace

std::string writeBeside(const std::string& path, std::string_view bytes, mode_t mode) {
  std::string temporary = path + ".new." + std::to_string(::getpid());
  static_cast<void>(::unlink(temporary.c_str()));
  const Descriptor file(
      ::open(temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
  if (!file) return "";
  if (::fchmod(file.number(), mode) == 0 && writeAll(file.number(), bytes) && ::fsync(file.number()) == 0)
    return temporary;
  const int reason = errno;
  static_cast<void>(::unlink(temporary.c_str()));
  errno = reason;
  return "";
}

bool writeDrawing(const std::string& path, std::string_view bytes, std::string_view mark,
                  std::string& reason) {
  reason = path.empty() ? "it has no name" : whyKept(path, mark);
  if (!reason.empty()) return false;
  const std::string temporary = writeBeside(path, bytes, 0666 & ~fileMask());
  if (!temporary.empty() && std::rename(temporary.c_str(), path.c_str()) == 0) return true;
  reason = std::strerror(errno);
  if (!temporary.empty()) static_cast<void>(::unlink(temporary.c_str()));
  return false;
}

bool writeNewFile(const std::string& path, std::string_view bytes, std::string& reason) {
  const Descriptor file(::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
  if (!file) {
    reason = errno == EEXIST ? "a file is there already; choose another name" : std::strerror(errno);
    return false;
  }
  if (::fchmod(file.number(), 0600) == 0 && writeAll(file.number(), bytes) && ::fsync(file.number()) == 0)
    return true;
  reason = std::strerror(errno);
  removeOpened(path, file);
  return false;
}

Descriptor openOwnFolder(const std::string& path) {
  Descriptor folder(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  struct stat status {};
  if (!folder || ::fstat(folder.number(), &status) != 0) return {};
  if (status.st_uid == ::geteuid() && (status.st_mode & 0777U) == 0700) return folder;
  folder.close();
  errno = EPERM;
  return {};
}

std::string writePrivateFile(const std::string& name, std::string_view bytes, std::string& reason) {
  const char* chosen = std::getenv("TMPDIR");
  std::string folder = chosen == nullptr || *chosen == '\0' ? "/tmp" : chosen;
  folder += "/brisko.XXXXXX";
  if (::mkdtemp(folder.data()) == nullptr) {
    reason = folder + ": " + std::strerror(errno);
    return "";
  }
  std::string path = folder + "/" + name;
  const Descriptor made = openOwnFolder(folder);
  const Descriptor file(
      made ? ::openat(made.number(), name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600) : -1);
  if (file && writeAll(file.number(), bytes)) return path;
  reason = path + ": " + std::strerror(errno);
  if (file) static_cast<void>(::unlinkat(made.number(), name.c_str(), 0));
  static_cast<void>(::rmdir(folder.c_str()));
  return "";
}

}  // namespace brisko::client
