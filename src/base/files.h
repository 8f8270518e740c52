// base/files.h
// Everything that the daemon does with files, in the same way everywhere: no call here blocks, whatever is at
// the path, and no child inherits a descriptor. Paths are used as given; callers map them with onVolume().
//
// A program works on the files of the system (base/plain_files.h), unless it brings functions of its own
// under these names when it is linked, as the virtual Mac does (sim/process/kept_files.h).
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>

#include <sys/types.h>

namespace brisko {

// Owns an open descriptor, or none.
class Descriptor {
 public:
  Descriptor() = default;
  explicit Descriptor(int number) : number_(number) {}
  Descriptor(Descriptor&& other) noexcept : number_(std::exchange(other.number_, none)) {}
  Descriptor& operator=(Descriptor&& other) noexcept {
    std::swap(number_, other.number_);
    other.close();
    return *this;
  }
  ~Descriptor() { close(); }

  explicit operator bool() const { return number_ >= 0; }
  [[nodiscard]] int number() const { return number_; }  // below 0: none
  void close();                                         // errors are ignored

 private:
  static constexpr int none = -1;
  int number_ = none;
};

// Opens the file at `path` with the flags of open(2). Empty if that fails or it is not a regular file.
[[nodiscard]] Descriptor openRegularFile(const std::string& path, int flags, mode_t mode = 0);

// Opens the regular file at `path` for writing at its end. A file that is created here has exactly mode 0644,
// whatever the umask; an existing one keeps its mode. A dangling link is not followed.
[[nodiscard]] Descriptor openForAppending(const std::string& path);

// True when all bytes were written. Otherwise some may have been.
[[nodiscard]] bool writeAll(int descriptor, std::string_view bytes);

// Whether the open file or folder now has exactly this mode.
[[nodiscard]] bool changeMode(int descriptor, mode_t mode);

// The content of the regular file at `path`; none when it is missing, unreadable, not a regular file or
// larger than 16 MiB, which none of our files can be.
[[nodiscard]] std::optional<std::string> readWholeFile(const std::string& path);

// Overwrites the file at `path` in place (same inode and mode if it exists; otherwise created with 0666 less
// the umask). Creates no folders. False on failure, which may leave a truncated file.
[[nodiscard]] bool overwriteFile(const std::string& path, std::string_view text);

// Removes what is at `path`, with everything in it. A link is removed, not what it leads to.
void removeTree(const std::string& path, std::error_code& failure);

// The same, but a folder only if it is empty.
void removeFile(const std::string& path, std::error_code& failure);

// Gives the file at `from` the name `to`, in place of what had it.
void renameFile(const std::string& from, const std::string& to, std::error_code& failure);

}  // namespace brisko
