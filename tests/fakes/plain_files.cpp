// A process on these fakes works on the files of its volume at once, as one on a Mac does. So the comparison
// of both platforms also compares this with the files that a process in virtual time keeps in memory.

#include "sim/process/kept_files.h"

namespace brisko::sim {

void keepFilesIn(KeptFiles&) {}

void resumeWithFiles(bool) {}

KeptWrites takeKeptWrites() { return {}; }

void writeKeptFiles(KeptFiles&) {}

}  // namespace brisko::sim
