#include "platform/file_watch.h"

#include <algorithm>
#include <array>
#include <climits>
#include <cstddef>
#include <cstring>
#include <string_view>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/run_loop.h"
#include "platform/virtual/file_events.h"

// The kernel's notices, asked for through the descriptor, so that they follow the file wherever its name
// goes. The descriptor is one that opens nothing (O_PATH), but it keeps the file in being all the same: no
// notice of the end of a file comes while it is held. That the name is gone is therefore looked up. The
// kernel says when to look: a file that loses a name has its attributes changed; a folder hears nothing of
// its own removal, but the folder around it does.

namespace brisko {

namespace {

using platform::FileEvents;
using platform::WatchToken;

constexpr std::uint32_t ofTheFile = IN_MODIFY | IN_ATTRIB | IN_MOVE_SELF;
constexpr std::uint32_t ofTheFolderAround = IN_DELETE;

struct Watch {
  WatchToken token = 0;
  int descriptor = -1;
  FileEvents wanted = 0;
  std::function<void(FileEvents)> fired;
  std::function<void()> cancelled;

  int file = -1;          // what the kernel calls the file in its notices
  int folderAround = -1;  // the same of the folder that a watched folder lies in
  std::uint32_t notices = 0;
  // As last seen.
  bool isFolder = false;
  bool named = true;
  off_t size = 0;
  nlink_t links = 0;

  FileEvents happened = 0;  // and not yet delivered
};

// Exit hooks may still reach the watches, hence never destroyed.
struct Watches {
  int queue = -1;
  WatchToken latest = 0;
  std::vector<Watch> all;
};
Watches& watches() {
  static Watches& kept = *new Watches;
  return kept;
}

Watch* watchOf(WatchToken token) {
  for (Watch& watch : watches().all) {
    if (watch.token == token) return &watch;
  }
  return nullptr;
}

std::string linkTo(int descriptor) { return "/proc/self/fd/" + std::to_string(descriptor); }

// Added to what is asked of the same file already. -1 where the kernel has no more to give: such a watch
// stays silent.
int askFor(const std::string& path, std::uint32_t notices) {
  return ::inotify_add_watch(watches().queue, path.c_str(), notices | IN_MASK_ADD);
}

void askForFolderAround(Watch& watch) {
  watch.folderAround = askFor(linkTo(watch.descriptor) + "/..", ofTheFolderAround);
}

void stopAskingFor(int number) {
  const auto& all = watches().all;
  const bool needed = std::any_of(all.begin(), all.end(), [number](const Watch& watch) {
    return watch.file == number || watch.folderAround == number;
  });
  if (number >= 0 && !needed) ::inotify_rm_watch(watches().queue, number);
}

// Whether the name by which the file was opened, or the one it was renamed to since, is still its own.
bool isNamed(int descriptor) {
  constexpr std::string_view mark = " (deleted)";
  std::array<char, PATH_MAX> path{};
  const ssize_t length = ::readlink(linkTo(descriptor).c_str(), path.data(), path.size());
  return length <= 0 || !std::string_view(path.data(), static_cast<std::size_t>(length)).ends_with(mark);
}

void lookAt(Watch& watch) {
  struct stat status {};
  ::fstat(watch.descriptor, &status);
  watch.isFolder = S_ISDIR(status.st_mode);
  watch.size = status.st_size;
  watch.links = status.st_nlink;
  watch.named = isNamed(watch.descriptor);
}

void followToItsNewPlace(Watch& watch) {
  if (!watch.isFolder) return;
  const int left = std::exchange(watch.folderAround, -1);
  stopAskingFor(left);
  askForFolderAround(watch);
}

// What the notices since the last look mean.
FileEvents eventsOf(Watch& watch) {
  const std::uint32_t notices = std::exchange(watch.notices, 0);
  const bool wasNamed = watch.named;
  const off_t sizeBefore = watch.size;
  const nlink_t linksBefore = watch.links;
  lookAt(watch);
  // The links of a folder count its subfolders.
  const bool lostALink = !watch.isFolder && watch.links < linksBefore;
  const bool deleted = (wasNamed && !watch.named) || lostALink;

  FileEvents events = 0;
  if ((notices & IN_MODIFY) != 0) events |= platform::fileWritten;
  if ((notices & IN_MODIFY) != 0 && watch.size > sizeBefore) events |= platform::fileExtended;
  if ((notices & IN_ATTRIB) != 0 && !deleted) events |= platform::fileAttributes;
  if (deleted) events |= platform::fileDeleted;
  if ((notices & IN_MOVE_SELF) != 0) {
    events |= platform::fileRenamed;
    followToItsNewPlace(watch);
  }
  return events;
}

void note(const inotify_event& notice) {
  for (Watch& watch : watches().all) {
    // With notices lost, all that can be told is that something happened.
    if ((notice.mask & IN_Q_OVERFLOW) != 0) watch.notices |= IN_MODIFY | IN_ATTRIB;
    // One with a name is about something inside a watched folder.
    if (notice.wd == watch.file && notice.len == 0) watch.notices |= notice.mask & ofTheFile;
    if (notice.wd == watch.folderAround) watch.notices |= notice.mask & ofTheFolderAround;
  }
}

// Takes what the kernel has to say. False when there was nothing.
bool takeNotices() {
  std::array<char, 4096> part;
  bool any = false;
  for (;;) {
    const ssize_t count = ::read(watches().queue, part.data(), part.size());
    if (count <= 0) return any;
    any = true;
    for (const char* at = part.data(); at < part.data() + count;) {
      inotify_event notice{};
      std::memcpy(&notice, at, sizeof notice);
      note(notice);
      at += sizeof notice + notice.len;
    }
  }
}

// One set for all that happened until the work is begun. By then the watch may be gone.
void deliver(WatchToken token) {
  Watch* watch = watchOf(token);
  if (watch == nullptr) return;
  const FileEvents events = std::exchange(watch->happened, 0);
  // Kept here while it runs: it may cancel its own watch.
  const auto fired = watch->fired;
  fired(events);
}

void postDelivery(Watch& watch, FileEvents events) {
  const FileEvents wanted = events & watch.wanted;
  if (wanted == 0) return;
  const FileEvents waiting = std::exchange(watch.happened, watch.happened | wanted);
  if (waiting == 0) platform::postMain([token = watch.token] { deliver(token); });
}

}  // namespace

namespace virtual_mac {

int fileEventQueue() { return watches().queue; }

void useFileEventQueue(int queue) { watches().queue = queue; }

void collectFileEvents() {
  const bool nobodyEverWatched = watches().latest == 0;
  if (nobodyEverWatched || !takeNotices()) return;
  for (Watch& watch : watches().all) {
    if (watch.notices != 0) postDelivery(watch, eventsOf(watch));
  }
}

}  // namespace virtual_mac

namespace platform {

std::optional<int> openForEvents(const std::string& path) {
  const int descriptor = ::open(path.c_str(), O_PATH | O_CLOEXEC);
  if (descriptor < 0) return std::nullopt;
  // To open a path alone takes no permission; on a Mac it takes that to read.
  if (::faccessat(AT_FDCWD, linkTo(descriptor).c_str(), R_OK, AT_EACCESS) == 0) return descriptor;
  ::close(descriptor);
  return std::nullopt;
}

WatchToken watchFile(int descriptor, FileEvents wanted, std::function<void(FileEvents)> fired,
                     std::function<void()> cancelled) {
  Watches& kept = watches();
  if (kept.queue < 0) kept.queue = ::inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
  const WatchToken token = ++kept.latest;
  // What happened before is no concern of the new watch.
  virtual_mac::collectFileEvents();

  Watch& watch = kept.all.emplace_back();
  watch.token = token;
  watch.descriptor = descriptor;
  watch.wanted = wanted;
  watch.fired = std::move(fired);
  watch.cancelled = std::move(cancelled);
  watch.file = askFor(linkTo(descriptor), ofTheFile);
  lookAt(watch);
  if (watch.isFolder) askForFolderAround(watch);
  // No notice of that comes any more.
  if (!watch.named) postDelivery(watch, fileDeleted);
  return token;
}

void cancelWatch(WatchToken token) {
  const Watch* found = watchOf(token);
  if (found == nullptr) return;
  Watches& kept = watches();
  const Watch watch = *found;
  kept.all.erase(kept.all.begin() + (found - kept.all.data()));
  stopAskingFor(watch.file);
  stopAskingFor(watch.folderAround);
  if (watch.cancelled) postMain(watch.cancelled);
}

void closeWatched(int descriptor) { ::close(descriptor); }

}  // namespace platform
}  // namespace brisko
