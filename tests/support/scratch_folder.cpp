#include "support/scratch_folder.h"

#include <filesystem>
#include <system_error>

#include "sim/process/scratch.h"
#include "support/record_schemas.h"

namespace brisko::test {

ScratchFolder::ScratchFolder() : path_(sim::makeScratchFolder("brisko-test")) {}

ScratchFolder::~ScratchFolder() {
  checkRecords(path_);
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

}  // namespace brisko::test
