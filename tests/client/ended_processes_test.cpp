// Processes that end while the client reads what the kernel says of them.
#include <cerrno>
#include <cstdlib>
#include <string>

#include <gtest/gtest.h>
#include <sys/types.h>
#include <unistd.h>

#include "base/file_calls.h"
#include "client/doctor/gathering.h"
#include "client/live_brisko.h"
#include "client/state_reader.h"

namespace brisko::ended_processes_test {
namespace {

// All processes end between the opening of their files and the reading.
bool gProcessesEnd = false;
int gEnded = 0;

bool isOfAProcess(int file) {
  std::string path(64, '\0');
  const ssize_t length =
      ::readlink(("/proc/self/fd/" + std::to_string(file)).c_str(), path.data(), path.size());
  return length > 0 && path.starts_with("/proc/");
}

}  // namespace
}  // namespace brisko::ended_processes_test

// In place of the weak function in base/file_calls.cpp.
namespace brisko::file_calls {

ssize_t read(int file, void* bytes, std::size_t size) {
  using namespace ended_processes_test;
  if (!gProcessesEnd || !isOfAProcess(file)) return ::read(file, bytes, size);
  ++gEnded;
  errno = ESRCH;
  return -1;
}

}  // namespace brisko::file_calls

namespace brisko::ended_processes_test {
namespace {

class EndedProcesses : public ::testing::Test {
 protected:
  EndedProcesses() {
    EXPECT_EQ(::setenv("BRISKO_VIRTUAL_MAC", mac.mac.folder().c_str(), 1), 0);
    mac.boot();
  }

  test::LiveBrisko mac;
};

TEST_F(EndedProcesses, haveNoArguments) {
  ASSERT_FALSE(client::readState(client::Volume()).system.job->arguments.empty());
  gProcessesEnd = true;
  EXPECT_TRUE(client::readState(client::Volume()).system.job->arguments.empty());
  EXPECT_EQ(gEnded, 1);
}

TEST_F(EndedProcesses, areNoDaemonsToTheDoctor) {
  ASSERT_EQ(client::gather(client::Volume()).daemons.value.value().size(), 1U);
  gProcessesEnd = true;
  EXPECT_TRUE(client::gather(client::Volume()).daemons.value.value().empty());
  EXPECT_GT(gEnded, 1);
}

}  // namespace
}  // namespace brisko::ended_processes_test
