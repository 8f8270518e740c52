#include "base/file_calls.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace brisko::file_calls {

// Weak, so that a program can bring its own when it is linked. The compiler inlines none of them.

[[gnu::weak]] int open(const char* path, int flags, mode_t mode) { return ::open(path, flags, mode); }

[[gnu::weak]] int openAt(int folder, const char* path, int flags) { return ::openat(folder, path, flags); }

[[gnu::weak]] int close(int file) { return ::close(file); }

[[gnu::weak]] ssize_t read(int file, void* bytes, std::size_t size) { return ::read(file, bytes, size); }

[[gnu::weak]] ssize_t write(int file, const void* bytes, std::size_t size) {
  return ::write(file, bytes, size);
}

[[gnu::weak]] int status(int file, struct stat& status) { return ::fstat(file, &status); }

[[gnu::weak]] off_t seek(int file, off_t offset, int from) { return ::lseek(file, offset, from); }

[[gnu::weak]] int changeMode(int file, mode_t mode) { return ::fchmod(file, mode); }

[[gnu::weak]] int makeFolder(const char* path, mode_t mode) { return ::mkdir(path, mode); }

[[gnu::weak]] void rename(const std::filesystem::path& from, const std::filesystem::path& to,
                          std::error_code& error) {
  std::filesystem::rename(from, to, error);
}

[[gnu::weak]] void remove(const std::filesystem::path& path, std::error_code& error) {
  std::filesystem::remove(path, error);
}

[[gnu::weak]] void removeAll(const std::filesystem::path& path, std::error_code& error) {
  std::filesystem::remove_all(path, error);
}

}  // namespace brisko::file_calls
