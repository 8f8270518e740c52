// A stand-in for what Mach itself declares.
#pragma once

using kern_return_t = int;
using mach_port_t = unsigned int;
using task_port_t = mach_port_t;

enum : kern_return_t { KERN_SUCCESS = 0, KERN_ABORTED = 14 };

extern "C" mach_port_t mach_task_self_;
#define mach_task_self() mach_task_self_
