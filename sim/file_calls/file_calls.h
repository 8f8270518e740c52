// sim/file_calls/file_calls.h
// The system's calls for files (base/file_calls.h) in a program that lets them fail. Each call for a file on
// the Mac's volume is reported like a call of the seam (sim/seam/call_watch.h).
#pragma once

namespace brisko::virtual_mac {

// From now on, whenever calls are watched. Before, the calls are the system's own.
void watchFileCalls();

}  // namespace brisko::virtual_mac
