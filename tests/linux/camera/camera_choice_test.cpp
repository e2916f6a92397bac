// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "linux/camera/camera_directory.h"

namespace sentrel::test {
namespace {

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
    const auto chosen = listing.choose({one.wanted});
    EXPECT_EQ(chosen ? chosen->uniqueID : "", one.chosen);
  }
}

}  // namespace
}  // namespace sentrel::test
