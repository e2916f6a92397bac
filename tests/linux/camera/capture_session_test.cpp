// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <vector>

#include "linux/camera/capture_fixture.h"

namespace sentrel::test {
namespace {

using Report = CaptureUser::Report;
using std::chrono::milliseconds;

/// A picture of one colour.
class FlatPicture {
 public:
  FlatPicture(int width, int height, Colour colour) {
    for (int i = 0; i < width * height; ++i) {
      for (const int value : {colour.blue, colour.green, colour.red, 255}) {
        pixels_.push_back(static_cast<std::uint8_t>(value));
      }
    }
  }
  [[nodiscard]] VirtualCamera::Source source() const {
    return [this](std::int64_t) { return pixels_.data(); };
  }

 private:
  std::vector<std::uint8_t> pixels_;
};

double medianIntervalMs(const std::vector<CaptureUser::Handed>& frames) {
  std::vector<double> intervals;
  for (std::size_t i = 1; i < frames.size(); ++i) {
    intervals.push_back(std::chrono::duration<double, std::milli>(frames[i].at - frames[i - 1].at).count());
  }
  std::ranges::nth_element(intervals, intervals.begin() + static_cast<std::ptrdiff_t>(intervals.size() / 2));
  return intervals.at(intervals.size() / 2);
}

TEST_F(CaptureTest, EveryFormatShowsItsColours) {
  using Format = VirtualCamera::Format;
  struct Case {
    Format format;
    int width;
    int height;
  };
  // The wide ones are cut about their centre: a quarter of the width is lost, half a bar on each side and
  // more.
  const std::array cases{Case{Format::yuy2, 640, 480}, Case{Format::nv12, 640, 480},
                         Case{Format::i420, 640, 480}, Case{Format::mjpeg, 640, 480},
                         Case{Format::yuy2, 320, 240}, Case{Format::mjpeg, 1280, 960}};
  for (const Case& one : cases) {
    SCOPED_TRACE(testing::Message() << static_cast<int>(one.format) << " at " << one.width);
    const auto bars = colourBars(one.width, one.height);
    VirtualCamera camera({.width = one.width, .height = one.height, .format = one.format});
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

TEST_F(CaptureTest, FramesArePacedJustAboveTheInterval) {
  VirtualCamera camera({.jitterMs = 8});
  camera.appear();
  CaptureUser user;
  for (const int fps : {10, 15}) {
    SCOPED_TRACE(fps);
    const std::int64_t paceMs = 1000 / fps + 1;
    user.start({}, paceMs);
    ASSERT_TRUE(user.getsFrames(1));
    user.clear();
    ASSERT_TRUE(user.getsFrames(static_cast<std::size_t>(4 * fps)));
    user.stop();
    const auto frames = user.handed();
    for (std::size_t i = 1; i < frames.size(); ++i) {
      // A consumer that reads its own clock a moment later must not find it too early.
      EXPECT_GE(frames[i].at - frames[i - 1].at, milliseconds(paceMs - 1));
    }
    EXPECT_LE(medianIntervalMs(frames), 1000.0 / fps * 1.05);
  }
  const CaptureCounters& counters = user.session->counters();
  EXPECT_EQ(counters.broken, 0);
  EXPECT_EQ(counters.noRoom, 0);
  EXPECT_GT(counters.superseded, counters.handedOn);  // unwanted frames were not even converted
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
    const std::size_t before = user.handedCount();
    // Longer than the watchdog's patience: it rests.
    EXPECT_FALSE(user.eventually([&] { return user.handedCount() > before; }, milliseconds(2500)));
    EXPECT_TRUE(user.reports().empty());
  };
  closesAfter([&] { user.demand(false); });
  user.demand(true);
  ASSERT_TRUE(user.getsFrames());
  closesAfter([&] { user.stop(); });
  desktop.waitForNoNode("sentrel");
  user.start();
  EXPECT_TRUE(user.getsFrames());
}

TEST_F(CaptureTest, InputsAreSwitchedWhileItRuns) {
  const FlatPicture blue(640, 480, {200, 60, 60});
  const FlatPicture red(320, 240, {60, 60, 200});
  VirtualCamera first({.name = "first"});
  first.setSource(blue.source());
  first.appear();
  VirtualCamera second(
      {.name = "second", .width = 320, .height = 240, .format = VirtualCamera::Format::mjpeg});
  second.setSource(red.source());
  second.appear();

  CaptureUser user;
  user.start({"first"});
  ASSERT_TRUE(user.getsFrames());
  EXPECT_GT(user.handed().back().bars[4].blue, 150);

  const auto switchTo = [&](const DeviceInput& input) {
    user.onQueue([&] {
      user.session->beginConfiguration();
      user.session->removeInputs();
      if (user.session->canAddInput(input)) user.session->addInput(input);
      user.session->commitConfiguration();
    });
  };
  switchTo({"second"});
  ASSERT_TRUE(user.eventually([&] { return user.handed().back().bars[4].red > 150; }));
  EXPECT_TRUE(user.eventually([&] { return !first.isOpen(); }));

  switchTo({"there is no such camera"});
  EXPECT_TRUE(user.eventually([&] { return !first.isOpen() && !second.isOpen(); }));
  EXPECT_FALSE(user.eventually([&] { return !user.reports().empty(); }, milliseconds(2500)));

  switchTo({"first"});
  ASSERT_TRUE(user.getsFrames());
  EXPECT_GT(user.handed().back().bars[4].blue, 150);
  EXPECT_TRUE(user.reports().empty());
}

TEST_F(CaptureTest, CamerasAreListedAndChosen) {
  VirtualCamera plain({.name = "plain", .description = "Plain camera"});
  plain.appear();
  VirtualCamera other({.name = "other", .description = "Other camera"});
  other.appear();
  CaptureUser user;
  user.onQueue([&] { user.session->awaitDevices(std::chrono::seconds(10)); });
  ASSERT_TRUE(user.eventually([&] { return user.session->devices().size() == 2; }));
  EXPECT_EQ(user.session->devices()[0], (CameraDevice{"plain", "Plain camera", CameraPosition::unspecified}));
  EXPECT_FALSE(user.session->defaultDevice(CameraPosition::front));

  const auto defaultIs = [&](const std::string& id) {
    return user.eventually([&] {
      const auto device = user.session->defaultDevice(CameraPosition::unspecified);
      return device && device->uniqueID == id;
    });
  };
  desktop.run("pw-metadata",
              {"0", "default.configured.video.source", R"({ "name": "other" })", "Spa:String:JSON"});
  EXPECT_TRUE(defaultIs("other"));
  desktop.run("pw-metadata",
              {"0", "default.configured.video.source", R"({ "name": "plain" })", "Spa:String:JSON"});
  EXPECT_TRUE(defaultIs("plain"));

  user.deviceChanges = 0;
  VirtualCamera front({.name = "front", .location = "front"});
  front.appear();
  ASSERT_TRUE(user.eventually([&] { return user.deviceChanges > 0 && user.session->devices().size() == 3; }));
  const auto found = user.session->defaultDevice(CameraPosition::front);
  ASSERT_TRUE(found);
  EXPECT_EQ(found->uniqueID, "front");

  // What is no camera, such as a screen being shared, is not offered.
  const auto screen = desktop.spawn(
      "gst-launch-1.0", {"-q", "videotestsrc", "is-live=true", "!",
                         "video/x-raw,format=YUY2,width=64,height=64", "!", "pipewiresink", "mode=provide",
                         "stream-properties=p,media.class=Video/Source,media.role=Screen,node.name=screen0"});
  desktop.waitForNode("screen0");
  EXPECT_FALSE(user.eventually([&] { return user.session->devices().size() != 3; }, milliseconds(300)));
}

TEST_F(CaptureTest, ACameraIsSharedWithAnotherProgram) {
  auto camera =
      desktop.spawn("gst-launch-1.0", {"-q", "videotestsrc", "is-live=true", "pattern=red", "!",
                                       "video/x-raw,format=YUY2,width=640,height=480,framerate=30/1", "!",
                                       "pipewiresink", "mode=provide",
                                       "stream-properties=p,media.class=Video/"
                                       "Source,media.role=Camera,node.name=virtcam0,node.description=Cam"});
  desktop.waitForNode("virtcam0");
  CaptureUser user;
  CaptureUser other;
  user.start({"virtcam0"});
  other.start({"virtcam0"});
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
