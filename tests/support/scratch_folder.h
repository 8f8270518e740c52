// tests/support/scratch_folder.h
// A temporary folder for a test. At the end the daemon's files in it are validated against their schemas, and
// the folder is removed.
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
