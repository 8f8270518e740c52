// sim/seam/file_events.h
// Between the run loops and file_watch.cpp: what happened to the watched files. Both loops watch real files
// below the volume of the machine, in virtual time as well: what happened is collected at fixed points, once
// in every iteration, so that the same actions give the same events in the same turns.
#pragma once

namespace brisko::virtual_mac {

// The descriptor that is readable once something happened to a watched file; -1 until the first watch.
[[nodiscard]] int fileEventQueue();

// A queue for a process whose children are the processes; its caller closes it. To close one takes Linux some
// 20 ms, ten times what a short life in virtual time takes: who starts many gives them one that outlives
// them. -1 where children inherit no queue, or when none is to be had: each process has its own then.
[[nodiscard]] int openFileEventQueueForProcesses();

// Makes such a queue the one of this process before anything is watched, for one process at a time. What an
// earlier process left in it does no harm.
void useFileEventQueue(int queue);

// Posts the delivery of what happened since the last call. To be called by the run loop in every iteration.
void collectFileEvents();

}  // namespace brisko::virtual_mac
