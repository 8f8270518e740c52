// A fake for Mach's tasks.
#pragma once

#include <mach/mach_types.h>

extern "C" kern_return_t semaphore_create(task_port_t task, semaphore_t* semaphore, int policy, int value);
