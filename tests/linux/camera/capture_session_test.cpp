// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include "linux/camera/capture_fixture.h"

namespace sentrel::test {
namespace {

TEST_F(CaptureTest, FormatsAreConverted) {
  using Format = VirtualCamera::Format;
  const auto bars = colourBars(640, 480);
  for (const Format format : {Format::yuy2, Format::nv12, Format::i420, Format::mjpeg}) {
    SCOPED_TRACE(static_cast<int>(format));
    VirtualCamera camera({.format = format});
    camera.setSource([&](std::int64_t) { return bars.data(); });
    camera.appear();
    CaptureUser user;
    user.start();
    ASSERT_TRUE(user.getsFrames());
    const auto frame = user.handed().back();
    EXPECT_EQ(frame.width, 640);
    EXPECT_EQ(frame.height, 480);
    for (std::size_t bar = 0; bar < barColours.size(); ++bar) {
      SCOPED_TRACE(bar);
      EXPECT_NEAR(frame.bars.at(bar).blue, barColours.at(bar).blue, 12);
      EXPECT_NEAR(frame.bars.at(bar).green, barColours.at(bar).green, 12);
      EXPECT_NEAR(frame.bars.at(bar).red, barColours.at(bar).red, 12);
    }
  }
}

}  // namespace
}  // namespace sentrel::test
