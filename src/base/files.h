// base/files.h
// Files by descriptor, opened the same way everywhere: no call here blocks, whatever is at the path, and no
// child inherits a descriptor. Paths are used as given; callers map them with onVolume().
#pragma once

#include <string>
#include <string_view>
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

}  // namespace brisko
