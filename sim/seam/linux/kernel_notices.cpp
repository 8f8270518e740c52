#include "sim/seam/kernel_notices.h"

#include <algorithm>
#include <array>
#include <climits>
#include <cstddef>
#include <cstring>
#include <string_view>

#include <fcntl.h>
#include <sys/inotify.h>
#include <unistd.h>

#include "sim/seam/file_events.h"

// The watch is set through the descriptor, so that it follows the file when it is renamed. The descriptor
// (O_PATH) opens nothing, but it still keeps the file alive, so the kernel does not report the deletion of
// the file. Therefore this code checks whether the name still exists, whenever the kernel reports a possible
// reason: a file that loses a name gets a change of attributes; the removal of a folder is reported only to a
// watch on the folder around it.

namespace brisko::virtual_mac {

namespace {

constexpr std::uint32_t ofTheFile = IN_MODIFY | IN_ATTRIB | IN_MOVE_SELF;
constexpr std::uint32_t ofTheFolderAround = IN_DELETE;

std::string linkTo(int descriptor) { return "/proc/self/fd/" + std::to_string(descriptor); }

// Added to the existing watch on the same file.
int askFor(int queue, const std::string& path, std::uint32_t notices) {
  return ::inotify_add_watch(queue, path.c_str(), notices | IN_MASK_ADD);
}

bool leadsTo(const std::string& path, const struct stat& file) {
  struct stat found {};
  return ::stat(path.c_str(), &found) == 0 && found.st_dev == file.st_dev && found.st_ino == file.st_ino;
}

// The kernel marks the path of a file whose name was removed, even if another link keeps the file alive. But
// a file's name may end like the mark itself.
bool isNamed(int descriptor, const struct stat& status) {
  if (status.st_nlink == 0) return false;
  constexpr std::string_view mark = " (deleted)";
  std::array<char, PATH_MAX> text{};
  const ssize_t length = ::readlink(linkTo(descriptor).c_str(), text.data(), text.size());
  const std::string path(text.data(), static_cast<std::size_t>(std::max<ssize_t>(length, 0)));
  return !path.ends_with(mark) || leadsTo(path, status);
}

// If notices were lost, it is only known that something has changed.
Notice noticeOf(const inotify_event& event) {
  if ((event.mask & IN_Q_OVERFLOW) != 0) {
    return {.ofAll = true, .ofContent = false, .number = -1, .what = IN_MODIFY | IN_ATTRIB};
  }
  // A notice with a name is about something inside a watched folder.
  const bool ofContent = event.len != 0;
  const std::uint32_t what = event.mask & (ofContent ? ofTheFolderAround : ofTheFile);
  return {.ofAll = false, .ofContent = ofContent, .number = event.wd, .what = what};
}

}  // namespace

FileState fileState(int descriptor) {
  FileState look{};
  ::fstat(descriptor, &look.status);
  look.named = isNamed(descriptor, look.status);
  return look;
}

std::optional<int> openForNotices(const std::string& path) {
  const int descriptor = ::open(path.c_str(), O_PATH | O_CLOEXEC);
  if (descriptor < 0) return std::nullopt;
  // O_PATH needs no permission, but a Mac requires the permission to read.
  if (::faccessat(AT_FDCWD, linkTo(descriptor).c_str(), R_OK, AT_EACCESS) == 0) return descriptor;
  ::close(descriptor);
  return std::nullopt;
}

int openNoticeQueue() { return ::inotify_init1(IN_NONBLOCK | IN_CLOEXEC); }

int openFileEventQueueForProcesses() { return openNoticeQueue(); }

WatchNumbers addWatch(int queue, int descriptor, bool isFolder) {
  return {.file = askFor(queue, linkTo(descriptor), ofTheFile),
          .folderAround = isFolder ? addFolderWatch(queue, descriptor) : -1};
}

int addFolderWatch(int queue, int descriptor) {
  return askFor(queue, linkTo(descriptor) + "/..", ofTheFolderAround);
}

void removeWatch(int queue, int number) {
  if (number >= 0) ::inotify_rm_watch(queue, number);
}

std::vector<Notice> readNotices(int queue) {
  std::vector<Notice> notices;
  std::array<char, 4096> part;
  for (;;) {
    const ssize_t count = ::read(queue, part.data(), part.size());
    if (count <= 0) return notices;
    for (const char* at = part.data(); at < part.data() + count;) {
      inotify_event event{};
      std::memcpy(&event, at, sizeof event);
      notices.push_back(noticeOf(event));
      at += sizeof event + event.len;
    }
  }
}

platform::FileEvents fileEventsOf(std::uint32_t notices, const FileState& before, const FileState& after) {
  // The number of a folder's links depends on its subfolders.
  const bool lostALink = !after.isFolder() && after.status.st_nlink < before.status.st_nlink;
  const bool deleted = (before.named && !after.named) || lostALink;
  const bool written = (notices & IN_MODIFY) != 0;

  platform::FileEvents events = 0;
  if (written) events |= platform::fileWritten;
  if (written && after.status.st_size > before.status.st_size) events |= platform::fileExtended;
  if ((notices & IN_ATTRIB) != 0 && !deleted) events |= platform::fileAttributes;
  if (deleted) events |= platform::fileDeleted;
  if ((notices & IN_MOVE_SELF) != 0) events |= platform::fileRenamed;
  return events;
}

}  // namespace brisko::virtual_mac
