// base/file_calls.h
// The system's calls for files, under the names by which the daemon makes them. They are the system's own,
// unless a program brings functions of its own under these names when it is linked, as the lab does to let
// each of them fail (sim/file_calls/file_calls.h).
#pragma once

#include <cstddef>
#include <filesystem>
#include <system_error>

#include <sys/types.h>

struct stat;

namespace brisko::file_calls {

// With their results, and errno, as in section 2 of the manual.
[[nodiscard]] int open(const char* path, int flags, mode_t mode = 0);
[[nodiscard]] int openAt(int folder, const char* path, int flags);
int close(int file);
[[nodiscard]] ssize_t read(int file, void* bytes, std::size_t size);
[[nodiscard]] ssize_t write(int file, const void* bytes, std::size_t size);
[[nodiscard]] int status(int file, struct stat& status);  // fstat(2)
[[nodiscard]] off_t seek(int file, off_t offset, int from);
[[nodiscard]] int changeMode(int file, mode_t mode);
[[nodiscard]] int makeFolder(const char* path, mode_t mode);

// As in std::filesystem.
void rename(const std::filesystem::path& from, const std::filesystem::path& to, std::error_code& error);
void remove(const std::filesystem::path& path, std::error_code& error);
void removeAll(const std::filesystem::path& path, std::error_code& error);

}  // namespace brisko::file_calls
