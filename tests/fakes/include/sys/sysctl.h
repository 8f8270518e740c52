// A fake for the kernel's variables.
#pragma once

#include <cstddef>

extern "C" int sysctlbyname(const char* name, void* old, std::size_t* oldSize, void* fresh,
                            std::size_t freshSize);
