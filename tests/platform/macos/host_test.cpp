// Where the program lies, when it was started through a link.

#include "platform/host.h"

#include <gtest/gtest.h>

#include "sim/seam/simulated/driver.h"
#include "support/files.h"
#include "support/scratch_folder.h"

namespace brisko::platform {
namespace {

TEST(MacHost, namesTheProgramAndNotALinkToIt) {
  const test::ScratchFolder scratch;
  test::put(scratch.path("program"), "");
  test::makeLink(scratch.path("link"), scratch.path("program"));
  virtual_mac::setExecutablePath(scratch.path("link"));
  EXPECT_EQ(executablePath(), scratch.path("program"));
}

}  // namespace
}  // namespace brisko::platform
