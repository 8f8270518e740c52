// sim/seam/file_events.h
// Connects the run loops with file_watch.cpp: reports what happened to the watched files. Both loops watch
// real files below the volume of the machine, even in virtual time. Events are collected at one fixed point
// of every iteration, so that the same actions cause the same events in the same iterations.
#pragma once

#include <cstdint>

#include <sys/stat.h>

namespace brisko::virtual_mac {

// The descriptor that becomes readable once something happened to a watched file; -1 until the first watch.
[[nodiscard]] int fileEventQueue();

// Opens a queue that child processes will use; the caller closes it. Closing a queue takes about 20 ms on
// Linux, ten times as long as a short process in virtual time runs, so many processes share one queue that
// outlives them. Returns -1 when children inherit no queue or none is available; each process then has its
// own.
[[nodiscard]] int openFileEventQueueForProcesses();

// Makes this process use such a queue. Must be called before anything is watched, and only one process may
// use the queue at a time. Notices that an earlier process left in it are harmless.
void useFileEventQueue(int queue);

// Posts the delivery of everything that happened since the last call. The run loop calls it in every
// iteration.
void collectFileEvents();

// Whether this process watches the file, and how many watches it has set so far.
[[nodiscard]] bool isWatched(const struct stat& file);
[[nodiscard]] std::uint64_t watchesSoFar();

}  // namespace brisko::virtual_mac
