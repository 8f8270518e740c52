// platform/file_watch.h
// Watches on files and folders, by descriptor: the watch follows the file, not its path.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

namespace brisko::platform {

// What happened to a watched file; a set of these is delivered at once.
enum FileEvent : std::uint32_t {
  fileWritten = 1U << 0U,     // may not be reported for changes of a folder's contents
  fileExtended = 1U << 1U,    // it is longer than before
  fileAttributes = 1U << 2U,  // mode, owner, times; also, depending on the system, length and links
  fileDeleted = 1U << 3U,     // one of its names is gone, or was taken by another file
  fileRenamed = 1U << 4U,
};
using FileEvents = std::uint32_t;

using WatchToken = std::uint64_t;  // never 0

// Opens the file or folder at `path` for events only: without read or write access, and without waiting for
// the other end of a pipe. Needs the permission to read; none if it cannot be opened. None also for a file
// without a name, such as a removed file that a process still has open and to which a path still leads: it
// would count as deleted in each new watch. A link is followed. The path is not mapped. The caller owns the
// descriptor and closes it with closeWatched().
[[nodiscard]] std::optional<int> openForEvents(const std::string& path);

// Delivers the events of `wanted` that happen to the file behind `descriptor` to `fired`, batched per
// iteration of the run loop, on the main thread. After cancelWatch() no more events are delivered and
// `cancelled` runs once, on the main thread, in a later iteration of the run loop. A file that has lost its
// name since openForEvents() counts as deleted now, because the system reports no events for it. It has lost
// its name if it has no link any more, or if the system reports that it has no path; any other failure to
// determine the path does not count.
[[nodiscard]] WatchToken watchFile(int descriptor, FileEvents wanted, std::function<void(FileEvents)> fired,
                                   std::function<void()> cancelled);
void cancelWatch(WatchToken token);

void closeWatched(int descriptor);

}  // namespace brisko::platform
