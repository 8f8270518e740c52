// This system's own header, with the additional declarations of a Mac's. An asm label redirects each call to
// the fake.
#pragma once

#include_next <unistd.h>

#define _CS_DARWIN_USER_TEMP_DIR 65537

extern "C" {
size_t confstr(int name, char* buffer, size_t size) noexcept __asm__("brisko_fake_confstr");
uid_t geteuid() noexcept __asm__("brisko_fake_geteuid");
pid_t getpid() noexcept __asm__("brisko_fake_getpid");
}
