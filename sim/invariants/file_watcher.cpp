#include "sim/invariants/file_watcher.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <filesystem>
#include <system_error>

#include <sys/inotify.h>
#include <unistd.h>

#include "sim/process/kept_files.h"

namespace brisko::lab {
namespace {

namespace fs = std::filesystem;

constexpr std::array dataFolders{"/Library/Application Support/Brisko", "/Library/Logs/Brisko"};
constexpr std::uint32_t creations = IN_CREATE | IN_MODIFY | IN_MOVED_TO;
constexpr std::uint32_t removals = IN_DELETE | IN_MOVED_FROM;

}  // namespace

FileWatcher::FileWatcher(std::string volume)
    : volume_(std::move(volume)), queue_(::inotify_init1(IN_NONBLOCK | IN_CLOEXEC)) {
  if (queue_ < 0) throw std::system_error(errno, std::generic_category(), "inotify_init1");
}

FileWatcher::~FileWatcher() { ::close(queue_); }

void FileWatcher::open() {
  watched_.clear();
  for (const char* folder : dataFolders) watch(folder, nullptr);
  static_cast<void>(takeChanges());
}

void FileWatcher::watch(const std::string& path, std::vector<FileChange>* found) {
  const bool known = std::any_of(watched_.begin(), watched_.end(),
                                 [&](const auto& watched) { return watched.second == path; });
  if (known) return;
  const int number = ::inotify_add_watch(queue_, (volume_ + path).c_str(),
                                         creations | removals | IN_ATTRIB | IN_ONLYDIR | IN_DONT_FOLLOW);
  if (number < 0) return;
  watched_[number] = path;
  if (found != nullptr) found->push_back({.path = path});
  std::error_code ignored;
  for (const auto& entry : fs::directory_iterator(volume_ + path, ignored)) {
    const std::string inside = path + "/" + entry.path().filename().string();
    if (entry.is_directory(ignored) && !entry.is_symlink(ignored)) {
      watch(inside, found);
    } else if (found != nullptr) {
      found->push_back({.path = inside});
    }
  }
}

std::vector<FileChange> FileWatcher::takeChanges() {
  std::vector<FileChange> found;
  const sim::KeptWrites writes = sim::takeKeptWrites();
  for (const std::string& path : writes.kept) found.push_back({.path = path});
  if (!news_.mayHaveNews()) return found;
  std::vector<FileChange> events;
  readEvents(events);
  for (FileChange& change : events) {
    const bool delayed = change.overwritten && std::find(writes.delayed.begin(), writes.delayed.end(),
                                                         change.path) != writes.delayed.end();
    if (!delayed) found.push_back(std::move(change));
  }
  // The two folders themselves may come and go too.
  for (const char* folder : dataFolders) watch(folder, &found);
  return found;
}

void FileWatcher::readEvents(std::vector<FileChange>& found) {
  alignas(inotify_event) std::array<char, 8192> events{};
  for (;;) {
    const ssize_t count = ::read(queue_, events.data(), events.size());
    if (count <= 0) return;
    for (const char* at = events.data(); at < events.data() + count;) {
      const auto* event = reinterpret_cast<const inotify_event*>(at);
      at += sizeof(inotify_event) + event->len;
      const auto folder = watched_.find(event->wd);
      if (folder == watched_.end()) continue;
      if ((event->mask & IN_IGNORED) != 0) {
        watched_.erase(folder);
        continue;
      }
      const std::string path =
          event->len == 0 ? folder->second : folder->second + "/" + static_cast<const char*>(event->name);
      const bool isFolder = (event->mask & IN_ISDIR) != 0;
      if (isFolder && (event->mask & (IN_CREATE | IN_MOVED_TO)) != 0) {
        watch(path, &found);
      } else {
        found.push_back({.path = path,
                         .removed = (event->mask & removals) != 0,
                         .attributes = (event->mask & (creations | removals)) == 0,
                         .overwritten = (event->mask & IN_MODIFY) != 0});
      }
    }
  }
}

}  // namespace brisko::lab
