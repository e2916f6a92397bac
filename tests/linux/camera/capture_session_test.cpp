// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "linux/camera/capture_fixture.h"

namespace sentrel::test {
namespace {

using Report = CaptureUser::Report;
using std::chrono::milliseconds;

TEST_F(CaptureTest, EveryFormatShowsItsColours) {
  using Format = VirtualCamera::Format;
  const struct {
    Format format;
    int width;
    int height;
  } cases[] = {{Format::yuy2, 640, 480},    {Format::nv12, 640, 480},   {Format::i420, 640, 480},
               {Format::mjpeg, 640, 480},   {Format::yuy2, 320, 240},   {Format::mjpeg, 1280, 960},
               {Format::yuy2, 1280, 720},   {Format::mjpeg, 1280, 720}, {Format::nv12, 640, 360},
               {Format::mjpeg, 1920, 1080}, {Format::yuy2, 480, 640}};
  for (const auto& [format, width, height] : cases) {
    SCOPED_TRACE(testing::Message() << static_cast<int>(format) << " at " << width << "x" << height);
    const auto picture = bars(width, height);
    VirtualCamera camera({.modes = {{format, width, height}}});
    camera.setSource([&](std::int64_t) { return picture.data(); });
    camera.appear();
    CaptureUser user;
    user.start();
    ASSERT_TRUE(user.getsFrames());
    const auto frame = user.handed().back();
    EXPECT_EQ(frame.width, 640);
    EXPECT_EQ(frame.height, 480);
    // Another shape is cut about its centre.
    const int shown = std::min(width, height * 4 / 3);
    for (int i = 0; i < 8; ++i) {
      const int x = (width - shown) / 2 + (2 * i + 1) * shown / 16;
      const Colour& expected = barColours.at(static_cast<std::size_t>(x * 8 / width));
      const Colour& seen = frame.bars.at(static_cast<std::size_t>(i));
      for (const auto channel : {&Colour::blue, &Colour::green, &Colour::red})
        EXPECT_NEAR(seen.*channel, expected.*channel, 12) << "bar " << i;
    }
  }
}

TEST_F(CaptureTest, TheBestModeIsAgreedOn) {
  using Format = VirtualCamera::Format;
  using Mode = VirtualCamera::Mode;
  // Each camera's own first choice is another one than the best.
  const Mode usual{Format::yuy2, 640, 480, 30};
  const Mode usualMjpeg{Format::mjpeg, 640, 480, 30};
  const Mode slow{Format::yuy2, 640, 480, 5};
  const Mode large{Format::yuy2, 1280, 720, 10};
  const Mode largeMjpeg{Format::mjpeg, 1280, 720, 30};
  const Mode huge{Format::nv12, 1920, 1080, 30};
  const Mode odd{Format::i420, 720, 576, 25};
  const std::vector<std::pair<std::vector<Mode>, Mode>> cases{
      {{large, usualMjpeg, usual}, usual},     // the right size, uncompressed
      {{huge, slow, usualMjpeg}, usualMjpeg},  // a fluent picture before an uncompressed one
      {{huge, largeMjpeg, slow}, slow},        // the right size before a fluent picture
      {{huge, large, largeMjpeg}, largeMjpeg}, {{odd}, odd},
  };
  for (const auto& [modes, best] : cases) {
    VirtualCamera camera({.modes = modes});
    camera.appear();
    CaptureUser user;
    user.start();
    ASSERT_TRUE(user.getsFrames(1));
    EXPECT_TRUE(camera.agreedMode() == best)
        << camera.agreedMode()->width << " at " << camera.agreedMode()->fps;
    EXPECT_EQ(user.handed().back().width, 640);
  }
}

TEST_F(CaptureTest, TheCameraIsOpenOnlyWhileFramesAreWanted) {
  VirtualCamera camera({});
  camera.appear();
  CaptureUser user;
  user.start();
  ASSERT_TRUE(user.getsFrames());
  EXPECT_TRUE(camera.isOpen());

  const auto closesAfter = [&](const std::function<void()>& action) {
    const auto begin = SteadyClock::now();
    action();
    ASSERT_TRUE(user.eventually([&] { return !camera.isOpen(); }));
    EXPECT_LT(SteadyClock::now() - begin, milliseconds(1500));
    const std::size_t frames = user.handed().size();
    // Longer than the timeout of the watch: it rests.
    EXPECT_FALSE(user.eventually([&] { return user.handed().size() > frames; }, milliseconds(2500)));
    EXPECT_TRUE(user.reports().empty());
  };
  closesAfter([&] { user.demand(false); });
  user.demand(true);
  ASSERT_TRUE(user.getsFrames());
  closesAfter([&] { user.stop(); });
  ASSERT_TRUE(waitUntil([&] { return !desktop.hasNode("sentrel"); }));
  user.start();
  EXPECT_TRUE(user.getsFrames());
}

// Pictures arrive all the time, so that some do in the midst of a closing or of a change of cameras. Here the
// session's own end is one of the closings.
TEST_F(CaptureTest, ItIsClosedAgainAndAgainWhilePicturesArrive) {
  VirtualCamera one({.name = "one", .modes = {{.width = 64, .height = 48, .fps = 500}}});
  VirtualCamera other({.name = "other", .modes = {{.width = 64, .height = 48, .fps = 500}}});
  one.appear();
  other.appear();
  for (int round = 0; round < 15; ++round) {
    SCOPED_TRACE(round);
    CaptureUser user;
    for (const char* name : {"one", "other", "one"}) {
      user.start(name);
      ASSERT_TRUE(user.getsFrames(10));
    }
    user.stop();
    ASSERT_TRUE(user.eventually([&] { return !one.isOpen() && !other.isOpen(); }));
    user.start("other");
    ASSERT_TRUE(user.getsFrames(10));
    EXPECT_TRUE(user.reports().empty());
  }
}

TEST_F(CaptureTest, InputsAreSwitchedWhileItRuns) {
  const auto blue = bars(640, 480, {{200, 60, 60}});
  const auto red = bars(320, 240, {{60, 60, 200}});
  VirtualCamera first({.name = "first"});
  first.setSource([&](std::int64_t) { return blue.data(); });
  first.appear();
  VirtualCamera second({.name = "second", .modes = {{VirtualCamera::Format::mjpeg, 320, 240}}});
  second.setSource([&](std::int64_t) { return red.data(); });
  second.appear();

  CaptureUser user;
  user.start("first");
  ASSERT_TRUE(user.getsFrames());
  EXPECT_GT(user.handed().back().bars[4].blue, 150);

  user.configure("second");
  ASSERT_TRUE(user.eventually([&] { return user.handed().back().bars[4].red > 150; }));
  EXPECT_TRUE(user.eventually([&] { return !first.isOpen(); }));

  user.configure("there is no such camera");
  EXPECT_TRUE(user.getsFrames()) << "of the default camera";
  user.configure("first");
  EXPECT_TRUE(user.eventually([&] { return user.handed().back().bars[4].blue > 150; }));
  EXPECT_TRUE(user.eventually([&] { return !second.isOpen(); }));
  EXPECT_TRUE(user.reports().empty());
}

TEST_F(CaptureTest, CamerasAreListedAndChosen) {
  VirtualCamera plain({.name = "plain", .description = "Plain camera"});
  plain.appear();
  VirtualCamera other({.name = "other", .description = "Other camera"});
  other.appear();
  CaptureUser user;
  user.onQueue([&] { EXPECT_FALSE(user.session->awaitDevices(std::chrono::seconds(10))); });
  ASSERT_TRUE(user.eventually([&] { return user.session->devices().size() == 2; }));
  EXPECT_EQ(user.session->devices()[0], (CameraDevice{"plain", "Plain camera", CameraPosition::unspecified}));

  user.start();
  const auto streams = [&](const std::string& id) {
    return user.eventually([&] {
      user.configure({});  // chooses anew
      return user.session->currentDevice() && user.session->currentDevice()->uniqueID == id;
    });
  };
  for (const std::string id : {"other", "plain"}) {
    desktop.run("pw-metadata", {"0", "default.configured.video.source", R"({ "name": ")" + id + R"(" })",
                                "Spa:String:JSON"});
    EXPECT_TRUE(streams(id));
  }
  user.deviceChanges = 0;
  VirtualCamera front({.name = "front", .location = "front"});
  front.appear();
  ASSERT_TRUE(user.eventually([&] { return user.deviceChanges > 0 && user.session->devices().size() == 3; }));
  EXPECT_TRUE(streams("front"));
}

TEST_F(CaptureTest, ACameraIsSharedWithAnotherProgram) {
  // The camera shares no code with this program, and shows red.
  auto camera = desktop.spawn(
      "gst-launch-1.0",
      {"-q", "videotestsrc", "is-live=true", "pattern=red", "!",
       "video/x-raw,format=YUY2,width=640,height=480,framerate=30/1", "!", "pipewiresink", "mode=provide",
       "stream-properties=p,media.class=Video/Source,media.role=Camera,node.name=foreign"});
  desktop.waitForNode("foreign");
  CaptureUser user;
  CaptureUser other;
  user.start("foreign");
  other.start({"foreign"});
  EXPECT_TRUE(user.getsFrames()) << camera.output();
  EXPECT_TRUE(other.getsFrames());
  EXPECT_GT(user.handed().back().bars[4].red, 200);
  EXPECT_LT(user.handed().back().bars[4].green, 60);
  other.stop();
  EXPECT_TRUE(user.getsFrames(10));

  camera.kill();
  EXPECT_TRUE(user.eventually([&] { return user.count(Report::interrupted) > 0; }));
}

}  // namespace
}  // namespace sentrel::test
