#include "platform/file_watch.h"

#include <array>
#include <cerrno>
#include <climits>
#include <map>
#include <memory>
#include <utility>

#include <dispatch/dispatch.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace brisko::platform {
namespace {

struct Watch {
  dispatch_source_t source;
  std::function<void(FileEvents)> fired;
  std::function<void()> cancelled;
};

// Everything here happens on the main thread.
std::map<WatchToken, Watch*>& watches() {
  static auto& all = *new std::map<WatchToken, Watch*>;
  return all;
}

constexpr std::array<std::pair<FileEvent, unsigned long>, 5> names{{
    {fileWritten, DISPATCH_VNODE_WRITE},
    {fileExtended, DISPATCH_VNODE_EXTEND},
    {fileAttributes, DISPATCH_VNODE_ATTRIB},
    {fileDeleted, DISPATCH_VNODE_DELETE},
    {fileRenamed, DISPATCH_VNODE_RENAME},
}};

unsigned long systemsEvents(FileEvents events) {
  unsigned long system = 0;
  for (const auto& [event, name] : names) system |= (events & event) != 0 ? name : 0;
  return system;
}

FileEvents ourEvents(unsigned long system) {
  FileEvents events = 0;
  for (const auto& [event, name] : names) events |= (system & name) != 0 ? event : 0U;
  return events;
}

void notify(void* context) {
  const auto* watch = static_cast<const Watch*>(context);
  watch->fired(ourEvents(dispatch_source_get_data(watch->source)));
}

void notifyCancelled(void* context) {
  const std::unique_ptr<Watch> watch(static_cast<Watch*>(context));
  watch->cancelled();
  dispatch_release(watch->source);
}

// Either is sufficient: no path, as for a removed file, or no link, as for a file that another one replaced,
// whose old path may still be reported. A path that is too long or not permitted says nothing about the file.
bool hasNoName(int descriptor) {
  struct stat status {};
  std::array<char, PATH_MAX> path{};
  return (::fstat(descriptor, &status) == 0 && status.st_nlink == 0) ||
         (::fcntl(descriptor, F_GETPATH, path.data()) == -1 && errno == ENOENT);
}

void notifyDeleted(void* context) {
  const auto token = reinterpret_cast<WatchToken>(context);
  const auto found = watches().find(token);
  if (found != watches().end()) found->second->fired(fileDeleted);
}

}  // namespace

std::optional<int> openForEvents(const std::string& path) {
  // The file may lose its name just after it was opened. Then the file that has taken the name is opened,
  // however often that happens. A file that stays and has no name is not watched.
  ino_t before = 0;
  for (int unchanged = 0, attempt = 0; unchanged < 3 && attempt < 1000; ++attempt) {
    // Non-blocking, because opening a pipe waits for its other end, even if it is opened only for events.
    const int descriptor = ::open(path.c_str(), O_EVTONLY | O_NONBLOCK | O_CLOEXEC);
    if (descriptor < 0) return std::nullopt;
    if (!hasNoName(descriptor)) return descriptor;
    struct stat status {};
    const bool known = ::fstat(descriptor, &status) == 0;
    ::close(descriptor);
    unchanged = !known || status.st_ino == before ? unchanged + 1 : 1;
    before = status.st_ino;
  }
  return std::nullopt;
}

WatchToken watchFile(int descriptor, FileEvents wanted, std::function<void(FileEvents)> fired,
                     std::function<void()> cancelled) {
  static WatchToken last = 0;
  const WatchToken token = ++last;
  auto* watch =
      new Watch{dispatch_source_create(DISPATCH_SOURCE_TYPE_VNODE, static_cast<uintptr_t>(descriptor),
                                       systemsEvents(wanted), dispatch_get_main_queue()),
                std::move(fired), std::move(cancelled)};
  watches().emplace(token, watch);
  dispatch_set_context(watch->source, watch);
  dispatch_source_set_event_handler_f(watch->source, notify);
  dispatch_source_set_cancel_handler_f(watch->source, notifyCancelled);
  dispatch_resume(watch->source);
  if ((wanted & fileDeleted) != 0 && hasNoName(descriptor)) {
    // The token itself is passed to notifyDeleted() and never dereferenced.
    void* context = reinterpret_cast<void*>(token);  // NOLINT(performance-no-int-to-ptr)
    dispatch_async_f(dispatch_get_main_queue(), context, notifyDeleted);
  }
  return token;
}

void cancelWatch(WatchToken token) {
  const auto found = watches().find(token);
  if (found == watches().end()) return;
  dispatch_source_cancel(found->second->source);
  watches().erase(found);
}

void closeWatched(int descriptor) { ::close(descriptor); }

}  // namespace brisko::platform
