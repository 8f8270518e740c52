#include "platform/file_watch.h"

#include <algorithm>
#include <utility>
#include <vector>

#include <unistd.h>

#include "platform/run_loop.h"
#include "sim/seam/call_watch.h"
#include "sim/seam/file_events.h"
#include "sim/seam/kernel_notices.h"
#include "sim/seam/news.h"

// File watches, built on the kernel's notices about real files.

namespace brisko {

namespace {

using platform::FileEvents;
using platform::WatchToken;
using virtual_mac::FileState;
using virtual_mac::Notice;

struct Watch {
  WatchToken token = 0;
  int descriptor = -1;
  FileEvents wanted = 0;
  std::function<void(FileEvents)> fired;
  std::function<void()> cancelled;

  virtual_mac::WatchNumbers asked;
  std::uint32_t notices = 0;
  FileState seen{};  // at the last check

  FileEvents happened = 0;  // and not yet delivered
};

// Exit hooks may still use the watches, so they are never destroyed.
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

void stopAskingFor(int number) {
  const auto& all = watches().all;
  const bool needed = std::any_of(all.begin(), all.end(), [number](const Watch& watch) {
    return watch.asked.file == number || watch.asked.folderAround == number;
  });
  if (!needed) virtual_mac::removeWatch(watches().queue, number);
}

void followToItsNewPlace(Watch& watch) {
  if (!watch.seen.isFolder()) return;
  const int left = std::exchange(watch.asked.folderAround, -1);
  stopAskingFor(left);
  watch.asked.folderAround = virtual_mac::addFolderWatch(watches().queue, watch.descriptor);
}

// The events that the notices since the last check represent.
FileEvents eventsOf(Watch& watch) {
  const std::uint32_t notices = std::exchange(watch.notices, 0);
  const FileState before = std::exchange(watch.seen, virtual_mac::fileState(watch.descriptor));
  const FileEvents events = virtual_mac::fileEventsOf(notices, before, watch.seen);
  if ((events & platform::fileRenamed) != 0) followToItsNewPlace(watch);
  return events;
}

bool concerns(const Notice& notice, const Watch& watch) {
  if (notice.ofAll) return true;
  return notice.number == (notice.ofContent ? watch.asked.folderAround : watch.asked.file);
}

// Reads the kernel's notices. Returns false if there were none.
bool readNotices() {
  const std::vector<Notice> notices = virtual_mac::readNotices(watches().queue);
  for (const Notice& notice : notices) {
    for (Watch& watch : watches().all) {
      if (concerns(notice, watch)) watch.notices |= notice.what;
    }
  }
  return !notices.empty();
}

// Delivers one set of events for everything that happened until now. The watch may have been cancelled
// meanwhile.
void deliver(WatchToken token) {
  Watch* watch = watchOf(token);
  if (watch == nullptr) return;
  const FileEvents events = std::exchange(watch->happened, 0);
  // Copied because it may cancel its own watch while it runs.
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

bool isWatched(const struct stat& file) {
  const auto& all = watches().all;
  return std::any_of(all.begin(), all.end(), [&file](const Watch& watch) {
    return watch.seen.status.st_dev == file.st_dev && watch.seen.status.st_ino == file.st_ino;
  });
}

std::uint64_t watchesSoFar() { return watches().latest; }

void collectFileEvents() {
  static NewsReader reader;
  const bool nobodyEverWatched = watches().latest == 0;
  if (nobodyEverWatched || !reader.mayHaveNews() || !::brisko::readNotices()) return;
  for (Watch& watch : watches().all) {
    if (watch.notices != 0) postDelivery(watch, eventsOf(watch));
  }
}

}  // namespace virtual_mac

namespace platform {

std::optional<int> openForEvents(const std::string& path) {
  if (virtual_mac::callFails({.name = "openForEvents", .subject = path})) return std::nullopt;
  const virtual_mac::UnwatchedCalls itsOwn;
  // The file may lose its name just after it was opened. Then the file that has taken the name is opened,
  // however often that happens. A file that stays and has no name is not watched.
  ino_t before = 0;
  for (int unchanged = 0, attempt = 0; unchanged < 3 && attempt < 1000; ++attempt) {
    const auto descriptor = virtual_mac::openForNotices(path);
    if (!descriptor) return std::nullopt;
    const FileState state = virtual_mac::fileState(*descriptor);
    if (state.named) return descriptor;
    ::close(*descriptor);
    unchanged = state.status.st_ino == before ? unchanged + 1 : 1;
    before = state.status.st_ino;
  }
  return std::nullopt;
}

WatchToken watchFile(int descriptor, FileEvents wanted, std::function<void(FileEvents)> fired,
                     std::function<void()> cancelled) {
  Watches& kept = watches();
  if (kept.queue < 0) kept.queue = virtual_mac::openNoticeQueue();
  const WatchToken token = ++kept.latest;
  // Earlier events do not belong to the new watch; those of the watch itself are news.
  virtual_mac::expectNews();
  virtual_mac::collectFileEvents();

  Watch& watch = kept.all.emplace_back();
  watch.token = token;
  watch.descriptor = descriptor;
  watch.wanted = wanted;
  watch.fired = std::move(fired);
  watch.cancelled = std::move(cancelled);
  const bool isFolder = virtual_mac::fileState(descriptor).isFolder();
  watch.asked = virtual_mac::addWatch(kept.queue, descriptor, isFolder);
  watch.seen = virtual_mac::fileState(descriptor);
  // The kernel will send no more notices about this file.
  if (!watch.seen.named) postDelivery(watch, fileDeleted);
  return token;
}

void cancelWatch(WatchToken token) {
  const Watch* found = watchOf(token);
  if (found == nullptr) return;
  Watches& kept = watches();
  const Watch watch = *found;
  kept.all.erase(kept.all.begin() + (found - kept.all.data()));
  stopAskingFor(watch.asked.file);
  stopAskingFor(watch.asked.folderAround);
  if (watch.cancelled) postMain(watch.cancelled);
}

void closeWatched(int descriptor) { ::close(descriptor); }

}  // namespace platform
}  // namespace brisko
