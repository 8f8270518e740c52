// sim/seam/kernel_notices.h
// What file_watch.cpp asks of the kernel that it runs on. For each kernel there is a source of it beside this
// header, and the build takes the one that fits.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include <sys/stat.h>

#include "platform/file_watch.h"

namespace brisko::virtual_mac {

// Of a watched file.
struct FileState {
  struct stat status;
  bool named;  // by the name under which it was opened, or the one that it was renamed to since

  [[nodiscard]] bool isFolder() const { return S_ISDIR(status.st_mode); }
};
[[nodiscard]] FileState fileState(int descriptor);

// As openForEvents(), but also what has no name.
[[nodiscard]] std::optional<int> openForNotices(const std::string& path);

// A descriptor that does not wait and is readable when there are notices; -1 when none is available.
[[nodiscard]] int openNoticeQueue();

// Under which number the notices about a file come; -1 for what the kernel was not asked about, or had no
// room for, of which nothing is heard.
struct AskedNumbers {
  int file = -1;
  int folderAround = -1;  // the folder that a watched folder lies in, where the kernel must be asked about it
};
[[nodiscard]] AskedNumbers askForNotices(int queue, int descriptor, bool isFolder);
// The same once more for a folder that has moved.
[[nodiscard]] int askForFolderAround(int queue, int descriptor);
// Only when no watch needs the number any more. Nothing happens for -1.
void stopNotices(int queue, int number);

struct Notice {
  bool ofAll;      // about every watched file: notices were lost
  bool ofContent;  // of a folder: about what lies in it
  int number;
  std::uint32_t what;  // in words of the kernel
};
// All there is, in the order in which it happened.
[[nodiscard]] std::vector<Notice> takeNotices(int queue);

// What happened to a file of which this was told, in one or several notices, and which looked like this
// before and after. Of what comes and goes in a folder nothing is said.
[[nodiscard]] platform::FileEvents meaningOf(std::uint32_t notices, const FileState& before,
                                             const FileState& after);

}  // namespace brisko::virtual_mac
