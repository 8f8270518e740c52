#include "sim/file_calls/file_calls.h"

#include <array>
#include <cerrno>
#include <string>
#include <string_view>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "base/file_calls.h"
#include "sim/seam/call_watch.h"

namespace brisko::virtual_mac {
namespace {

bool gFilesAreWatched = false;

bool isWatched() { return gFilesAreWatched && callsAreWatched(); }

// The paths of the files on the Mac's volume that were opened while calls are watched; empty for others.
constexpr std::size_t mostFiles = 256;
std::array<std::string, mostFiles>& openPaths() {
  static auto& kept = *new std::array<std::string, mostFiles>;
  return kept;
}

std::string* placeOf(int file) {
  if (file < 0 || static_cast<std::size_t>(file) >= mostFiles) return nullptr;
  return &openPaths()[static_cast<std::size_t>(file)];
}

void noteOpened(int file, std::string_view path) {
  if (std::string* place = placeOf(file)) *place = path;
}

bool isOnVolume(std::string_view path) {
  const MachineStore* store = attachedMachine();
  return store != nullptr && !store->volumeRoot().empty() && path.starts_with(store->volumeRoot());
}

bool pathCallFails(std::string_view name, const std::string& path) {
  if (!isWatched() || !isOnVolume(path) || !callFails({.name = name, .subject = path})) return false;
  errno = EIO;
  return true;
}

bool pathCallFails(std::string_view name, const std::string& path, std::error_code& error) {
  if (!pathCallFails(name, path)) return false;
  error = {errno, std::generic_category()};
  return true;
}

bool fileCallFails(std::string_view name, int file) {
  if (!isWatched()) return false;
  const std::string* path = placeOf(file);
  if (path == nullptr || path->empty() || !callFails({.name = name, .subject = *path})) return false;
  errno = EIO;
  return true;
}

const char* nameOfOpen(int flags) {
  return (flags & (O_WRONLY | O_RDWR)) != 0 ? "open for writing" : "open for reading";
}

}  // namespace

void watchFileCalls() { gFilesAreWatched = true; }

}  // namespace brisko::virtual_mac

// In place of the weak functions in base/file_calls.cpp.
namespace brisko::file_calls {

using namespace virtual_mac;

int open(const char* path, int flags, mode_t mode) {
  if (pathCallFails(nameOfOpen(flags), path)) return -1;
  const int file = ::open(path, flags, mode);
  if (isWatched()) noteOpened(file, isOnVolume(path) ? path : "");
  return file;
}

int openAt(int folder, const char* path, int flags) {
  const std::string* around = isWatched() ? placeOf(folder) : nullptr;
  const std::string whole = around == nullptr || around->empty() ? "" : *around + "/" + path;
  if (!whole.empty() && callFails({.name = nameOfOpen(flags), .subject = whole})) {
    errno = EIO;
    return -1;
  }
  const int file = ::openat(folder, path, flags);
  if (isWatched()) noteOpened(file, whole);
  return file;
}

int close(int file) {
  noteOpened(file, "");
  return ::close(file);
}

ssize_t read(int file, void* bytes, std::size_t size) {
  return fileCallFails("read", file) ? -1 : ::read(file, bytes, size);
}

ssize_t write(int file, const void* bytes, std::size_t size) {
  return fileCallFails("write", file) ? -1 : ::write(file, bytes, size);
}

int status(int file, struct stat& status) {
  return fileCallFails("fstat", file) ? -1 : ::fstat(file, &status);
}

off_t seek(int file, off_t offset, int from) {
  return fileCallFails("lseek", file) ? -1 : ::lseek(file, offset, from);
}

int changeMode(int file, mode_t mode) { return fileCallFails("fchmod", file) ? -1 : ::fchmod(file, mode); }

int makeFolder(const char* path, mode_t mode) {
  return pathCallFails("mkdir", path) ? -1 : ::mkdir(path, mode);
}

void rename(const std::filesystem::path& from, const std::filesystem::path& to, std::error_code& error) {
  if (!pathCallFails("rename", from, error)) std::filesystem::rename(from, to, error);
}

void remove(const std::filesystem::path& path, std::error_code& error) {
  if (!pathCallFails("remove", path, error)) std::filesystem::remove(path, error);
}

void removeAll(const std::filesystem::path& path, std::error_code& error) {
  if (!pathCallFails("remove", path, error)) std::filesystem::remove_all(path, error);
}

}  // namespace brisko::file_calls
