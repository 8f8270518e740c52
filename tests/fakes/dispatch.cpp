#include <algorithm>
#include <atomic>
#include <csignal>
#include <cstdint>
#include <utility>
#include <vector>

#include <dispatch/dispatch.h>

#include "fakes/kernel_file_events.h"
#include "fakes/main_loop.h"
#include "fakes/system.h"
#include "fakes/threads.h"
#include "platform/file_watch.h"
#include "sim/seam/kernel_notices.h"
#include "sim/seam/signals.h"
#include "sim/seam/simulated/virtual_time.h"

struct dispatch_source_type_s {};

namespace brisko::fakes {

namespace {

// A source for a signal, for a file, or for data that the program merges itself; created suspended.
struct EventSource : Object {
  static constexpr TypeId kind = dispatchSourceType;
  EventSource(dispatch_source_type_t what, std::uintptr_t of, std::uintptr_t events)
      : Object(kind), type(what), handle(of), mask(events) {}
  ~EventSource() override {
    if (!resumed) misuse("a suspended source is released");
    if (!ended) misuse("a source is released before the end of its cancellation");
  }
  // It may exist without end unless it is cancelled.
  [[nodiscard]] long mayBeKept() const override { return ended ? 0 : 1; }

  dispatch_source_type_t type;
  std::uintptr_t handle;
  std::uintptr_t mask;
  std::atomic<std::uintptr_t> merged{0};
  std::uintptr_t data = 0;
  void* context = nullptr;
  dispatch_function_t happened = nullptr;
  dispatch_function_t cancelled = nullptr;
  platform::WatchToken watch = 0;
  bool resumed = false;
  bool ended = false;
};

// The sources into which data is merged. Never freed.
std::vector<EventSource*>& dataSources() {
  static auto& all = *new std::vector<EventSource*>;
  return all;
}

EventSource& sourceAt(dispatch_object_t reference) { return as<EventSource>(reference); }

constexpr std::pair<platform::FileEvent, unsigned long> names[] = {
    {platform::fileWritten, DISPATCH_VNODE_WRITE},     {platform::fileExtended, DISPATCH_VNODE_EXTEND},
    {platform::fileAttributes, DISPATCH_VNODE_ATTRIB}, {platform::fileDeleted, DISPATCH_VNODE_DELETE},
    {platform::fileRenamed, DISPATCH_VNODE_RENAME},
};

void tell(EventSource& source, std::uintptr_t data) {
  source.data = data;
  if (source.happened != nullptr) source.happened(source.context);
}

void finishCancellation(EventSource& source) {
  source.ended = true;
  if (source.cancelled != nullptr) source.cancelled(source.context);
}

// The kernel reports nothing to a new watch from before it, not even that the name was removed.
void watchFile(EventSource& source) {
  const auto descriptor = static_cast<int>(source.handle);
  platform::FileEvents wanted = 0;
  for (const auto& [event, name] : names) wanted |= (source.mask & name) != 0 ? event : 0U;
  bool deletionIsOld = !virtual_mac::fileState(descriptor).named;
  source.watch = platform::watchFileOfKernel(
      descriptor, wanted,
      [&source, deletionIsOld](platform::FileEvents events) mutable {
        if (std::exchange(deletionIsOld, false)) events &= ~platform::FileEvents{platform::fileDeleted};
        std::uintptr_t data = 0;
        for (const auto& [event, name] : names) data |= (events & event) != 0 ? name : 0UL;
        if (data != 0) tell(source, data);
      },
      [&source] { finishCancellation(source); });
}

// A source sees a signal that is ignored. A signal that is not ignored ends the process as usual.
void watchSignal(EventSource& source) {
  const auto number = static_cast<int>(source.handle);
  struct sigaction action {};
  ::sigaction(number, nullptr, &action);
  if (action.sa_handler == SIG_DFL) return;
  virtual_mac::noteSignal(number, [&source] { tell(source, 1); });
}

void checkQueue(dispatch_queue_t queue) {
  if (queue != dispatch_get_main_queue()) misuse("that is not the main queue");
}

}  // namespace

bool tellMergedData() {
  const auto& all = dataSources();
  return std::count_if(all.begin(), all.end(), [](EventSource* source) {
           const std::uintptr_t data = source->merged.exchange(0);
           if (data != 0) tell(*source, data);
           return data != 0;
         }) != 0;
}

}  // namespace brisko::fakes

using namespace brisko::fakes;

extern "C" {

const dispatch_source_type_s _dispatch_source_type_data_or{};
const dispatch_source_type_s _dispatch_source_type_vnode{};
const dispatch_source_type_s _dispatch_source_type_signal{};

dispatch_queue_t dispatch_get_main_queue() {
  static char queue = 0;
  return reinterpret_cast<dispatch_queue_t>(&queue);
}

void dispatch_async_f(dispatch_queue_t queue, void* context, dispatch_function_t work) {
  checkQueue(queue);
  enqueue([=] { work(context); });
}

void dispatch_after_f(dispatch_time_t when, dispatch_queue_t queue, void* context, dispatch_function_t work) {
  checkQueue(queue);
  enqueueAt(secondsOfTicks(when), [=] { work(context); });
}

// In ticks of the clock that pauses in sleep.
dispatch_time_t dispatch_time(dispatch_time_t when, std::int64_t nanoseconds) {
  if (when != DISPATCH_TIME_NOW) misuse("a moment that nobody declared");
  return ticksOfSeconds(brisko::virtual_mac::virtualUptime() + static_cast<double>(nanoseconds) / 1e9);
}

void dispatch_release(dispatch_object_t object) { sourceAt(object).release(); }

void dispatch_set_context(dispatch_object_t object, void* context) { sourceAt(object).context = context; }

void dispatch_resume(dispatch_object_t object) {
  EventSource& source = sourceAt(object);
  if (std::exchange(source.resumed, true)) misuse("a source is resumed twice");
  noteDispatchThreads();
  if (source.type == DISPATCH_SOURCE_TYPE_VNODE) return watchFile(source);
  if (source.type == DISPATCH_SOURCE_TYPE_SIGNAL) return watchSignal(source);
  dataSources().push_back(&source);
}

dispatch_source_t dispatch_source_create(dispatch_source_type_t type, std::uintptr_t handle,
                                         std::uintptr_t mask, dispatch_queue_t queue) {
  checkQueue(queue);
  return reinterpret_cast<dispatch_source_t>(static_cast<Object*>(new EventSource(type, handle, mask)));
}

void dispatch_source_set_event_handler_f(dispatch_source_t source, dispatch_function_t handler) {
  sourceAt(source).happened = handler;
}

void dispatch_source_set_cancel_handler_f(dispatch_source_t source, dispatch_function_t handler) {
  sourceAt(source).cancelled = handler;
}

std::uintptr_t dispatch_source_get_data(dispatch_source_t source) { return sourceAt(source).data; }

// Must be safe in a signal handler.
void dispatch_source_merge_data(dispatch_source_t source, std::uintptr_t value) {
  sourceAt(source).merged.fetch_or(value);
}

void dispatch_source_cancel(dispatch_source_t source) {
  EventSource& cancelled = sourceAt(source);
  if (cancelled.type != DISPATCH_SOURCE_TYPE_VNODE)
    misuse("a source of no file is cancelled, of which nothing is known here");
  brisko::platform::cancelWatchOfKernel(cancelled.watch);
}
}
