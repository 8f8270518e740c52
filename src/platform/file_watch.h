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
  fileWritten = 1U << 0U,     // not guaranteed for changes of a folder's contents
  fileExtended = 1U << 1U,    // it is longer than before
  fileAttributes = 1U << 2U,  // mode, owner, times; also, depending on the system, length and links
  fileDeleted = 1U << 3U,     // one of its names is gone, or was taken by another file
  fileRenamed = 1U << 4U,
};
using FileEvents = std::uint32_t;

using WatchToken = std::uint64_t;  // never 0

// Opens the file or folder at `path` for events alone (no read or write access, and no waiting for the other
// end of a pipe); none when it cannot be opened, for which it takes the permission to read. None as well for
// what has no name although the path leads to it, such as a removed file that somebody holds open: it would
// count as deleted whenever it is watched, and each next watch would find it so again. A link leads to what
// it points at. The path is used as it stands. The caller owns the descriptor and closes it with
// closeWatched().
[[nodiscard]] std::optional<int> openForEvents(const std::string& path);

// Delivers the events of `wanted` that happen to the file behind `descriptor` to `fired`, batched per
// iteration of the run loop, on the main thread. After cancelWatch() no more events are delivered and
// `cancelled` runs once, on the main thread, in a later iteration of the run loop. A file that has lost its
// name since openForEvents() counts as deleted at this moment: a watch on it would never hear of anything. It
// has lost it when it has no link any more, or when the system knows no place for it; that the name cannot be
// told for another reason is no deletion.
[[nodiscard]] WatchToken watchFile(int descriptor, FileEvents wanted, std::function<void(FileEvents)> fired,
                                   std::function<void()> cancelled);
void cancelWatch(WatchToken token);

void closeWatched(int descriptor);

}  // namespace brisko::platform
