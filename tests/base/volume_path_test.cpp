#include "base/volume_path.h"

#include "platform/host.h"
#include "support/testing.h"
#include "support/virtual_mac.h"

namespace brisko::volume_path_test {
namespace {

TEST(VolumePath, movesAnAbsolutePathBelowTheVolumeRoot) {
  const test::VirtualMac mac;
  const std::string root = platform::volumeRoot();
  ASSERT_FALSE(root.empty());
  EXPECT_EQ(onVolume("/Library/Logs/Brisko"), root + "/Library/Logs/Brisko");
  EXPECT_EQ(onVolume("/"), root + "/");
}

TEST(VolumePath, leavesARelativePathUnchanged) {
  const test::VirtualMac mac;
  EXPECT_EQ(onVolume("config.json"), "config.json");
  EXPECT_EQ(onVolume("--probe"), "--probe");
  EXPECT_EQ(onVolume(""), "");
}

TEST(VolumePath, leavesTheTemporaryFolderUnchanged) {
  const test::VirtualMac mac;
  const std::string folder = platform::temporaryDirectory();
  EXPECT_EQ(onVolume(folder), folder);
  EXPECT_EQ(onVolume(folder + "/settings.json"), folder + "/settings.json");
  EXPECT_EQ(onVolume(folder + "x/settings.json"), platform::volumeRoot() + folder + "x/settings.json");
}

TEST(VolumePath, isThePathItselfWithoutAVolumeRoot) {
  ASSERT_TRUE(platform::volumeRoot().empty());
  EXPECT_EQ(onVolume("/Library/Logs/Brisko"), "/Library/Logs/Brisko");
  EXPECT_EQ(onVolume("config.json"), "config.json");
  EXPECT_EQ(onVolume(""), "");
}

}  // namespace
}  // namespace brisko::volume_path_test
