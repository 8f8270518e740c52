// tests/support/scratch_folder.h
// A folder of a test's own, removed with everything in it at the end, after what the daemon wrote there was
// held to its schemas.
#pragma once

#include "sim/process/scratch.h"
#include "support/record_schemas.h"

namespace brisko::test {

class ScratchFolder : public sim::ScratchFolder {
 public:
  ScratchFolder() : sim::ScratchFolder("brisko-test") {}
  ~ScratchFolder() { checkRecords(path()); }
};

}  // namespace brisko::test
