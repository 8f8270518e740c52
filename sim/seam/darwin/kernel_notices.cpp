#include "sim/seam/kernel_notices.h"

#include <array>
#include <cerrno>
#include <climits>
#include <cstddef>

#include <fcntl.h>
#include <sys/event.h>
#include <unistd.h>

#include "sim/seam/file_events.h"

// The kernel watches the descriptor itself, which opens its file for events only, and reports every removed
// name. So the number of a file is its descriptor, and the folder around it needs no watch.

namespace brisko::virtual_mac {

namespace {

constexpr std::uint32_t everything =
    NOTE_WRITE | NOTE_EXTEND | NOTE_ATTRIB | NOTE_LINK | NOTE_DELETE | NOTE_RENAME;

bool tell(int queue, int descriptor, std::uint16_t action, std::uint32_t notices) {
  struct kevent change {};
  EV_SET(&change, descriptor, EVFILT_VNODE, action, notices, 0, nullptr);
  return ::kevent(queue, &change, 1, nullptr, 0, nullptr) == 0;
}

// Either is sufficient: no path, as for a removed file, or no link, as for a file that another one replaced,
// whose old path may still be reported. A path that is too long or not permitted says nothing.
bool isNamed(int descriptor, const struct stat& status) {
  std::array<char, PATH_MAX> path{};
  return status.st_nlink != 0 && (::fcntl(descriptor, F_GETPATH, path.data()) != -1 || errno != ENOENT);
}

bool haveTheSameAttributes(const struct stat& one, const struct stat& other) {
  return one.st_mode == other.st_mode && one.st_uid == other.st_uid && one.st_gid == other.st_gid &&
         one.st_flags == other.st_flags;
}

}  // namespace

FileState fileState(int descriptor) {
  FileState look{};
  ::fstat(descriptor, &look.status);
  look.named = isNamed(descriptor, look.status);
  return look;
}

std::optional<int> openForNotices(const std::string& path) {
  // Non-blocking, because opening a pipe waits for its other end, even if it is opened only for events.
  const int descriptor = ::open(path.c_str(), O_EVTONLY | O_NONBLOCK | O_CLOEXEC);
  if (descriptor < 0) return std::nullopt;
  return descriptor;
}

int openNoticeQueue() {
  const int queue = ::kqueue();
  if (queue >= 0) ::fcntl(queue, F_SETFD, FD_CLOEXEC);
  return queue;
}

// Children inherit no queue here.
int openFileEventQueueForProcesses() { return -1; }

WatchNumbers addWatch(int queue, int descriptor, bool /*isFolder*/) {
  return {.file = tell(queue, descriptor, EV_ADD | EV_CLEAR, everything) ? descriptor : -1,
          .folderAround = -1};
}

int addFolderWatch(int /*queue*/, int /*descriptor*/) { return -1; }

void removeWatch(int queue, int number) {
  if (number >= 0) tell(queue, number, EV_DELETE, 0);
}

std::vector<Notice> readNotices(int queue) {
  std::vector<Notice> notices;
  std::array<struct kevent, 16> part{};
  const timespec noWait{};
  for (;;) {
    const int count = ::kevent(queue, nullptr, 0, part.data(), static_cast<int>(part.size()), &noWait);
    if (count <= 0) return notices;
    for (std::size_t index = 0; index < static_cast<std::size_t>(count); ++index) {
      notices.push_back({.ofAll = false,
                         .ofContent = false,
                         .number = static_cast<int>(part[index].ident),
                         .what = part[index].fflags});
    }
  }
}

// This kernel reports a new length as a change of attributes too, whether the file was written or truncated.
platform::FileEvents fileEventsOf(std::uint32_t notices, const FileState& before, const FileState& after) {
  const bool isFile = !after.isFolder();
  const bool resized = after.status.st_size != before.status.st_size;
  const bool written = isFile && ((notices & NOTE_WRITE) != 0 || resized);
  const bool newAttributes =
      (notices & NOTE_ATTRIB) != 0 && (!written || !haveTheSameAttributes(before.status, after.status));
  const bool deleted = (notices & NOTE_DELETE) != 0;
  const bool newLink = isFile && (notices & NOTE_LINK) != 0 && !deleted;

  platform::FileEvents events = 0;
  if (written) events |= platform::fileWritten;
  if (written && after.status.st_size > before.status.st_size) events |= platform::fileExtended;
  if (newAttributes || newLink) events |= platform::fileAttributes;
  if (deleted) events |= platform::fileDeleted;
  if ((notices & NOTE_RENAME) != 0) events |= platform::fileRenamed;
  return events;
}

}  // namespace brisko::virtual_mac
