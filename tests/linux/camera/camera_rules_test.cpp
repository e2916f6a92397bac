// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

#include "linux/camera/camera_directory.h"
#include "linux/camera/pipewire_capture_session.h"

namespace sentrel::test {
namespace {

namespace fs = std::filesystem;

TEST(CameraChoice, FollowsTheRule) {
  const CameraDevice plain{"plain", "Plain", CameraPosition::unspecified};
  const CameraDevice usb{"usb", "USB", CameraPosition::unspecified};
  const CameraDevice back{"back", "Back", CameraPosition::back};
  const CameraDevice front{"front", "Front", CameraPosition::front};
  struct Case {
    std::vector<CameraDevice> devices;
    std::string sessionDefault;
    std::optional<std::string> wanted;
    std::string chosen;
  };
  const std::vector<Case> cases{
      {{plain, front, usb}, "usb", "plain", "plain"},   // the wish before all
      {{plain, front, usb}, "usb", {}, "front"},        // then the front
      {{plain, front, usb}, "usb", "absent", "front"},  // a wish that cannot be met is none
      {{plain, back, usb}, "usb", {}, "usb"},           // then the session manager's
      {{back, plain, usb}, "absent", {}, "back"},       // then the first
      {{}, "usb", "usb", ""},
  };
  for (const Case& one : cases) {
    const CameraDirectory::Listing listing{one.devices, one.sessionDefault};
    const auto chosen = listing.choose(one.wanted);
    EXPECT_EQ(chosen ? chosen->uniqueID : "", one.chosen);
  }
}

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
