// A fake for Mach's own types.
#pragma once

using kern_return_t = int;
using mach_port_t = unsigned int;
using task_port_t = mach_port_t;
using semaphore_t = mach_port_t;

#define SEMAPHORE_NULL (semaphore_t{0})

enum : kern_return_t {
  KERN_SUCCESS = 0,
  KERN_INVALID_ARGUMENT = 4,
  KERN_ABORTED = 14,
  KERN_OPERATION_TIMED_OUT = 49
};

extern "C" mach_port_t mach_task_self_;
#define mach_task_self() mach_task_self_
