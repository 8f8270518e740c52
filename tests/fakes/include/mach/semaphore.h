// A fake for the semaphores of Mach.
#pragma once

#include <mach/mach_types.h>

struct mach_timespec_t {
  unsigned int tv_sec;
  int tv_nsec;
};

extern "C" {
kern_return_t semaphore_signal(semaphore_t semaphore);
kern_return_t semaphore_wait(semaphore_t semaphore);
kern_return_t semaphore_timedwait(semaphore_t semaphore, mach_timespec_t wait_time);
}
