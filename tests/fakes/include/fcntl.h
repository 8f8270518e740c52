// This system's own header, with the additional declarations of a Mac's. An asm label redirects each call to
// the fake.
#pragma once

#include_next <fcntl.h>

#define O_EVTONLY 0x8000
#define F_GETPATH 50

extern "C" {
int open(const char* path, int flags, ...) __asm__("brisko_fake_open");
int fcntl(int descriptor, int command, ...) __asm__("brisko_fake_fcntl");
}
