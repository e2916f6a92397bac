// SPDX-License-Identifier: Apache-2.0
#include "linux/camera/video_device_access.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>

namespace sentrel::test {
namespace {

namespace fs = std::filesystem;

TEST(VideoDeviceAccess, IsDeniedOnlyWhereDevicesExistAndNoneOpens) {
  std::string pattern = (fs::temp_directory_path() / "sentrel-devices-XXXXXX").string();
  ASSERT_NE(mkdtemp(pattern.data()), nullptr);
  const fs::path folder = pattern;
  EXPECT_TRUE(mayReadVideoDevices(folder));
  EXPECT_TRUE(mayReadVideoDevices(folder / "absent"));
  fs::create_symlink("nowhere", folder / "video-card");
  EXPECT_TRUE(mayReadVideoDevices(folder)) << "not the name of a video device";
  // A link to nowhere can be opened by nobody, not even by a privileged user.
  fs::create_symlink("nowhere", folder / "video0");
  EXPECT_FALSE(mayReadVideoDevices(folder));
  std::ofstream(folder / "video1").flush();
  EXPECT_TRUE(mayReadVideoDevices(folder));
  fs::remove_all(folder);
}

}  // namespace
}  // namespace sentrel::test
