// sim/seam/kernel_notices.h
// The file notifications of the kernel, for file_watch.cpp. Each kernel has its own implementation in a
// folder beside this header, and the build selects one.
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
  bool named;  // it still has the name under which it was opened, or to which it was renamed

  [[nodiscard]] bool isFolder() const { return S_ISDIR(status.st_mode); }
};
[[nodiscard]] FileState fileState(int descriptor);

// Like openForEvents(), but also opens files without a name.
[[nodiscard]] std::optional<int> openForNotices(const std::string& path);

// A non-blocking descriptor that is readable when there are notices; -1 if none is available.
[[nodiscard]] int openNoticeQueue();

// The numbers of the notices about a file; -1 for a watch that was not set, or for which the kernel had no
// room.
struct WatchNumbers {
  int file = -1;
  int folderAround = -1;  // the folder that contains a watched folder, if the kernel needs that watch
};
[[nodiscard]] WatchNumbers addWatch(int queue, int descriptor, bool isFolder);
// Sets the watches again for a folder that was moved.
[[nodiscard]] int addFolderWatch(int queue, int descriptor);
// Removes a watch that is no longer needed. Ignores -1.
void removeWatch(int queue, int number);

struct Notice {
  bool ofAll;      // about every watched file: notices were lost
  bool ofContent;  // about the contents of a watched folder
  int number;
  std::uint32_t what;  // the kernel's event bits
};
// All pending notices, in order.
[[nodiscard]] std::vector<Notice> readNotices(int queue);

// The events of a file, from the bits of one or several notices and its state before and after. Files that
// are created or removed in a folder are not reported.
[[nodiscard]] platform::FileEvents fileEventsOf(std::uint32_t notices, const FileState& before,
                                                const FileState& after);

}  // namespace brisko::virtual_mac
