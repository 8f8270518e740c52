// A fake for Mach's own names.
#pragma once

#include <mach/mach_types.h>
