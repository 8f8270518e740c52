// A fake for the system's notifications.
#pragma once

#include <cstdint>

extern "C" std::uint32_t notify_post(const char* name);
