// This system's own header. An asm label redirects each call to the fake.
#pragma once

#include_next <dlfcn.h>

extern "C" void* dlopen(const char* path, int mode) noexcept __asm__("brisko_stand_in_dlopen");
