// This system's own header. An asm label redirects the call to the fake.
#pragma once

#include_next <pthread.h>

extern "C" {
int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*start)(void*),
                   void* argument) noexcept __asm__("brisko_stand_in_pthread_create");
}
