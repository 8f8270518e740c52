#include "sim/invariants/watched_folders.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <filesystem>
#include <map>
#include <system_error>
#include <utility>

#include <sys/inotify.h>
#include <unistd.h>

namespace brisko::lab {
namespace {

namespace fs = std::filesystem;

constexpr std::uint32_t creations = IN_CREATE | IN_MODIFY | IN_MOVED_TO;
constexpr std::uint32_t removals = IN_DELETE | IN_MOVED_FROM;

}  // namespace

struct WatchedFolders::Impl {
  explicit Impl(std::string root)
      : volume_(std::move(root)), queue_(::inotify_init1(IN_NONBLOCK | IN_CLOEXEC)) {
    if (queue_ < 0) throw std::system_error(errno, std::generic_category(), "inotify_init1");
  }
  ~Impl() { ::close(queue_); }
  Impl(const Impl&) = delete;
  Impl& operator=(const Impl&) = delete;

  void watch(const std::string& path, std::vector<FileChange>* found);
  void readEvents(std::vector<FileChange>& found);

  std::string volume_;
  int queue_;
  std::map<int, std::string> watched_;  // by watch descriptor: folders, unmapped
};

void WatchedFolders::Impl::watch(const std::string& path, std::vector<FileChange>* found) {
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

void WatchedFolders::Impl::readEvents(std::vector<FileChange>& found) {
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

WatchedFolders::WatchedFolders(std::string volume) : impl_(std::make_unique<Impl>(std::move(volume))) {}

WatchedFolders::~WatchedFolders() = default;

void WatchedFolders::begin() {
  impl_->watched_.clear();
  for (const char* folder : dataFolders) impl_->watch(folder, nullptr);
}

std::vector<FileChange> WatchedFolders::changes() {
  std::vector<FileChange> found;
  impl_->readEvents(found);
  // The two folders themselves may come and go too.
  for (const char* folder : dataFolders) impl_->watch(folder, &found);
  return found;
}

}  // namespace brisko::lab
