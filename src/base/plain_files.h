// base/plain_files.h
// The work of base/files.h, done at once on the files of the system.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <system_error>

#include <sys/types.h>

#include "base/files.h"

namespace brisko::plain {

[[nodiscard]] Descriptor openRegularFile(const std::string& path, int flags, mode_t mode);
[[nodiscard]] bool writeAll(int descriptor, std::string_view bytes);
[[nodiscard]] bool changeMode(int descriptor, mode_t mode);
[[nodiscard]] std::optional<std::string> readWholeFile(const std::string& path);
[[nodiscard]] bool overwriteFile(const std::string& path, std::string_view text);
void removeTree(const std::string& path, std::error_code& failure);
void removeFile(const std::string& path, std::error_code& failure);
void renameFile(const std::string& from, const std::string& to, std::error_code& failure);

}  // namespace brisko::plain
