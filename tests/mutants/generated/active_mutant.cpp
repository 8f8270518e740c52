// BRISKO_MUTANT is the number of the active mutant; BRISKO_MUTANT_REACHED names a file with a byte for each
// number, which becomes 1 when the mutant's place is reached. Both are read before any other initialisation.

#include "mutants/generated/active_mutant.h"

#include <cstdlib>

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

namespace {

// Until the map exists.
unsigned char gUnshared[briskoMutantLimit];

void* sharedMap() {
  const char* path = std::getenv("BRISKO_MUTANT_REACHED");
  if (path == nullptr) {
    return ::mmap(nullptr, briskoMutantLimit, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  }
  const int file = ::open(path, O_RDWR | O_CREAT | O_CLOEXEC, 0644);
  if (file < 0 || ::ftruncate(file, briskoMutantLimit) != 0) std::_Exit(66);
  void* map = ::mmap(nullptr, briskoMutantLimit, PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
  ::close(file);
  return map;
}

__attribute__((constructor(101))) void readEnvironment() {
  void* map = sharedMap();
  if (map == MAP_FAILED) std::_Exit(66);
  gBriskoReached = static_cast<unsigned char*>(map);
  const char* number = std::getenv("BRISKO_MUTANT");
  if (number != nullptr) gBriskoMutant = std::atoi(number);
}

}  // namespace

int gBriskoMutant = 0;
unsigned char* gBriskoReached = gUnshared;
