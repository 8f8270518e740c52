// client/file_writing.h
// Files that are complete when they appear at their path, whatever happens meanwhile; but for one kind, which
// must be new there.
#pragma once

#include <string>
#include <string_view>

#include <sys/types.h>

#include "base/files.h"

namespace brisko::client {

// Writes a file of this mode beside `path`, to be renamed. Returns its path, or an empty text and errno.
[[nodiscard]] std::string writeBeside(const std::string& path, std::string_view bytes, mode_t mode);

// Writes a drawing to `path`. What is there already is replaced only when it is a regular file that is empty
// or has `mark` near its beginning, so that nothing else is lost by a mistyped name. False and a reason, as a
// clause, when it was not written; then everything is as before.
[[nodiscard]] bool writeDrawing(const std::string& path, std::string_view bytes, std::string_view mark,
                                std::string& reason);

// Writes a new file that only this user can read. What is at the path already stays, a link too, which is not
// followed; so root may write into a folder that others may change. False and a reason, as a clause, when it
// was not written; then no part of it is left.
[[nodiscard]] bool writeNewFile(const std::string& path, std::string_view bytes, std::string& reason);

// Opens a folder with mode 0700 that belongs to this user. None, and errno, for anything else: where another
// user owns the folder above, a link or a folder of theirs can be in the place of one that was just made.
[[nodiscard]] Descriptor openOwnFolder(const std::string& path);

// Writes it into a new folder that only this user can read, below the system's temporary folder. Returns its
// path, or an empty text and a reason.
[[nodiscard]] std::string writePrivateFile(const std::string& name, std::string_view bytes,
                                           std::string& reason);

}  // namespace brisko::client
