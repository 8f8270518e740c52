// sim/seam/kernel_notices.h
// What file_watch.cpp needs from the kernel. Each kernel has its own source in a folder beside this header,
// and the build chooses the one that fits.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include <sys/stat.h>

#include "platform/file_watch.h"

namespace brisko::virtual_mac {

// The state of a watched file.
struct FileState {
  struct stat status;
  bool named;  // it still has the name under which it was opened, or the one it was renamed to

  [[nodiscard]] bool isFolder() const { return S_ISDIR(status.st_mode); }
};
[[nodiscard]] FileState fileState(int descriptor);

// As openForEvents(), but also what has no name.
[[nodiscard]] std::optional<int> openForNotices(const std::string& path);

// Returns a non-blocking descriptor that is readable when there are notices; -1 when none is available.
[[nodiscard]] int openNoticeQueue();

// The numbers under which notices about a file arrive. -1 if the kernel was not asked about it or had no
// room; then no notices arrive.
struct AskedNumbers {
  int file = -1;
  int folderAround = -1;  // the parent of a watched folder, if the kernel must be asked about it
};
[[nodiscard]] AskedNumbers askForNotices(int queue, int descriptor, bool isFolder);
// Asks again for a folder that has moved.
[[nodiscard]] int askForFolderAround(int queue, int descriptor);
// To be called only when no watch needs the number any more. Does nothing for -1.
void stopNotices(int queue, int number);

struct Notice {
  bool ofAll;      // about every watched file: notices were lost
  bool ofContent;  // about the contents of a folder
  int number;
  std::uint32_t what;  // in the kernel's encoding
};
// Takes all notices, in the order in which they happened.
[[nodiscard]] std::vector<Notice> takeNotices(int queue);

// What happened to a file, given the notices about it and its state before and after. Changes of a folder's
// contents are not reported.
[[nodiscard]] platform::FileEvents meaningOf(std::uint32_t notices, const FileState& before,
                                             const FileState& after);

}  // namespace brisko::virtual_mac
