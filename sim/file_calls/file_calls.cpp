// The linker redirects every call for a file in the program to the wrappers here (--wrap). They report each
// call for a file on the Mac's volume (sim/seam/call_watch.h) and let it fail. Nothing else of the program
// knows of this.

#include <array>
#include <cerrno>
#include <cstdarg>
#include <filesystem>
#include <string>
#include <system_error>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "sim/seam/call_watch.h"

// NOLINTBEGIN(bugprone-reserved-identifier, cert-dcl50-cpp)
extern "C" {
int __real_open(const char* path, int flags, ...);
int __real_openat(int folder, const char* path, int flags, ...);
int __real_close(int file);
ssize_t __real_read(int file, void* bytes, size_t size);
ssize_t __real_write(int file, const void* bytes, size_t size);
int __real_fstat(int file, struct stat* status);
off_t __real_lseek(int file, off_t offset, int from);
int __real_fchmod(int file, mode_t mode);
int __real_mkdir(const char* path, mode_t mode);
void __real__ZNSt10filesystem6renameERKNS_7__cxx114pathES3_RSt10error_code(const std::filesystem::path& from,
                                                                           const std::filesystem::path& to,
                                                                           std::error_code& error);
std::uintmax_t __real__ZNSt10filesystem10remove_allERKNS_7__cxx114pathERSt10error_code(
    const std::filesystem::path& path, std::error_code& error);
bool __real__ZNSt10filesystem6removeERKNS_7__cxx114pathERSt10error_code(const std::filesystem::path& path,
                                                                        std::error_code& error);
}

namespace brisko::virtual_mac {
namespace {

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
  if (!callsAreWatched() || !isOnVolume(path) || !callFails({.name = name, .subject = path})) return false;
  errno = EIO;
  return true;
}

bool fileCallFails(std::string_view name, int file) {
  if (!callsAreWatched()) return false;
  const std::string* path = placeOf(file);
  if (path == nullptr || path->empty() || !callFails({.name = name, .subject = *path})) return false;
  errno = EIO;
  return true;
}

// The mode is passed only when a file may be created.
mode_t modeIn(int flags, std::va_list arguments) {
  return (flags & O_CREAT) != 0 ? static_cast<mode_t>(va_arg(arguments, int)) : 0;
}

const char* nameOfOpen(int flags) {
  return (flags & (O_WRONLY | O_RDWR)) != 0 ? "open for writing" : "open for reading";
}

}  // namespace
}  // namespace brisko::virtual_mac

extern "C" {

using namespace brisko::virtual_mac;

int __wrap_open(const char* path, int flags, ...) {
  std::va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = modeIn(flags, arguments);
  va_end(arguments);
  if (pathCallFails(nameOfOpen(flags), path)) return -1;
  const int file = __real_open(path, flags, mode);
  if (callsAreWatched()) noteOpened(file, isOnVolume(path) ? path : "");
  return file;
}

int __wrap_openat(int folder, const char* path, int flags, ...) {
  std::va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = modeIn(flags, arguments);
  va_end(arguments);
  const std::string* around = callsAreWatched() ? placeOf(folder) : nullptr;
  const std::string whole = around == nullptr || around->empty() ? "" : *around + "/" + path;
  if (!whole.empty() && callFails({.name = nameOfOpen(flags), .subject = whole})) {
    errno = EIO;
    return -1;
  }
  const int file = __real_openat(folder, path, flags, mode);
  if (callsAreWatched()) noteOpened(file, whole);
  return file;
}

int __wrap_close(int file) {
  noteOpened(file, "");
  return __real_close(file);
}

ssize_t __wrap_read(int file, void* bytes, size_t size) {
  return fileCallFails("read", file) ? -1 : __real_read(file, bytes, size);
}

// Weak: a program on the fakes of a Mac has a wrapper of its own, and there no write of a file fails.
__attribute__((weak)) ssize_t __wrap_write(int file, const void* bytes, size_t size) {
  return fileCallFails("write", file) ? -1 : __real_write(file, bytes, size);
}

int __wrap_fstat(int file, struct stat* status) {
  return fileCallFails("fstat", file) ? -1 : __real_fstat(file, status);
}

off_t __wrap_lseek(int file, off_t offset, int from) {
  return fileCallFails("lseek", file) ? -1 : __real_lseek(file, offset, from);
}

int __wrap_fchmod(int file, mode_t mode) {
  return fileCallFails("fchmod", file) ? -1 : __real_fchmod(file, mode);
}

int __wrap_mkdir(const char* path, mode_t mode) {
  return pathCallFails("mkdir", path) ? -1 : __real_mkdir(path, mode);
}

void __wrap__ZNSt10filesystem6renameERKNS_7__cxx114pathES3_RSt10error_code(const std::filesystem::path& from,
                                                                           const std::filesystem::path& to,
                                                                           std::error_code& error) {
  if (pathCallFails("rename", from)) {
    error = {errno, std::generic_category()};
    return;
  }
  __real__ZNSt10filesystem6renameERKNS_7__cxx114pathES3_RSt10error_code(from, to, error);
}

std::uintmax_t __wrap__ZNSt10filesystem10remove_allERKNS_7__cxx114pathERSt10error_code(
    const std::filesystem::path& path, std::error_code& error) {
  if (pathCallFails("remove", path)) {
    error = {errno, std::generic_category()};
    return static_cast<std::uintmax_t>(-1);
  }
  return __real__ZNSt10filesystem10remove_allERKNS_7__cxx114pathERSt10error_code(path, error);
}

bool __wrap__ZNSt10filesystem6removeERKNS_7__cxx114pathERSt10error_code(const std::filesystem::path& path,
                                                                        std::error_code& error) {
  if (pathCallFails("remove", path)) {
    error = {errno, std::generic_category()};
    return false;
  }
  return __real__ZNSt10filesystem6removeERKNS_7__cxx114pathERSt10error_code(path, error);
}
}
// NOLINTEND(bugprone-reserved-identifier, cert-dcl50-cpp)
