// A fake for Dispatch as declared for C++ without blocks: every object is a dispatch_object_s.
#pragma once

#include <cstdint>

struct dispatch_object_s {
 private:
  dispatch_object_s();
  ~dispatch_object_s();
};
struct dispatch_queue_s : dispatch_object_s {};
struct dispatch_source_s : dispatch_object_s {};
using dispatch_object_t = dispatch_object_s*;
using dispatch_queue_t = dispatch_queue_s*;
using dispatch_source_t = dispatch_source_s*;
using dispatch_source_type_t = const struct dispatch_source_type_s*;
using dispatch_function_t = void (*)(void*);
using dispatch_time_t = std::uint64_t;

#define DISPATCH_TIME_NOW (0ULL)

enum : unsigned long {
  DISPATCH_VNODE_DELETE = 0x1,
  DISPATCH_VNODE_WRITE = 0x2,
  DISPATCH_VNODE_EXTEND = 0x4,
  DISPATCH_VNODE_ATTRIB = 0x8,
  DISPATCH_VNODE_RENAME = 0x20
};

extern "C" {

extern const struct dispatch_source_type_s _dispatch_source_type_data_or;
extern const struct dispatch_source_type_s _dispatch_source_type_vnode;
extern const struct dispatch_source_type_s _dispatch_source_type_signal;
#define DISPATCH_SOURCE_TYPE_DATA_OR (&_dispatch_source_type_data_or)
#define DISPATCH_SOURCE_TYPE_VNODE (&_dispatch_source_type_vnode)
#define DISPATCH_SOURCE_TYPE_SIGNAL (&_dispatch_source_type_signal)

dispatch_queue_t dispatch_get_main_queue();
void dispatch_async_f(dispatch_queue_t queue, void* context, dispatch_function_t work);
void dispatch_after_f(dispatch_time_t when, dispatch_queue_t queue, void* context, dispatch_function_t work);
dispatch_time_t dispatch_time(dispatch_time_t when, std::int64_t nanoseconds);

void dispatch_release(dispatch_object_t object);
void dispatch_set_context(dispatch_object_t object, void* context);
void dispatch_resume(dispatch_object_t object);

dispatch_source_t dispatch_source_create(dispatch_source_type_t type, std::uintptr_t handle,
                                         std::uintptr_t mask, dispatch_queue_t queue);
void dispatch_source_set_event_handler_f(dispatch_source_t source, dispatch_function_t handler);
void dispatch_source_set_cancel_handler_f(dispatch_source_t source, dispatch_function_t handler);
std::uintptr_t dispatch_source_get_data(dispatch_source_t source);
void dispatch_source_merge_data(dispatch_source_t source, std::uintptr_t value);
void dispatch_source_cancel(dispatch_source_t source);
}
