// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <fstream>
#include <map>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "linux/camera/capture_fixture.h"

namespace sentrel::test {
namespace {

using Report = CaptureUser::Report;
using std::chrono::milliseconds;

/// How often the threads of the capture have gone to sleep so far.
long captureWakeUps() {
  long sum = 0;
  for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
    std::string name;
    std::getline(std::ifstream(task.path() / "comm"), name);
    if (name != "sentrel-camera") continue;
    std::ifstream status(task.path() / "status");
    for (std::string line; std::getline(status, line);) {
      if (line.starts_with("voluntary_ctxt_switches:")) sum += std::stol(line.substr(line.find(':') + 1));
    }
  }
  return sum;
}

TEST_F(CaptureTest, EveryFormatShowsItsColours) {
  using Format = VirtualCamera::Format;
  for (const auto& [format, width] : {std::pair{Format::yuy2, 640},
                                      {Format::nv12, 640},
                                      {Format::i420, 640},
                                      {Format::mjpeg, 640},
                                      {Format::yuy2, 320},
                                      {Format::mjpeg, 1280}}) {
    SCOPED_TRACE(testing::Message() << static_cast<int>(format) << " at " << width);
    const int height = width * 3 / 4;
    const auto picture = bars(width, height);
    VirtualCamera camera({.width = width, .height = height, .format = format});
    camera.setSource([&](std::int64_t) { return picture.data(); });
    camera.appear();
    CaptureUser user;
    user.start();
    ASSERT_TRUE(user.getsFrames());
    const auto frame = user.handed().back();
    EXPECT_EQ(frame.width, 640);
    EXPECT_EQ(frame.height, 480);
    for (std::size_t bar = 0; bar < barColours.size(); ++bar) {
      for (const auto channel : {&Colour::blue, &Colour::green, &Colour::red})
        EXPECT_NEAR(frame.bars.at(bar).*channel, barColours.at(bar).*channel, 12) << bar;
    }
  }
}

TEST_F(CaptureTest, TheBestModeIsAgreedOn) {
  using Format = VirtualCamera::Format;
  using Mode = VirtualCamera::Mode;
  // Each camera's own first choice is another one than the best.
  struct Case {
    std::vector<Mode> modes;
    Mode best;
  };
  const Mode usual{Format::yuy2, 640, 480, 30};
  const Mode usualMjpeg{Format::mjpeg, 640, 480, 30};
  const Mode slow{Format::yuy2, 640, 480, 5};
  const Mode large{Format::yuy2, 1280, 720, 10};
  const Mode largeMjpeg{Format::mjpeg, 1280, 720, 30};
  const Mode huge{Format::nv12, 1920, 1080, 30};
  const Mode odd{Format::i420, 720, 576, 25};
  const std::vector<Case> cases{
      {{large, usualMjpeg, usual}, usual},     // the right size, uncompressed
      {{huge, slow, usualMjpeg}, usualMjpeg},  // a fluent picture before an uncompressed one
      {{huge, largeMjpeg, slow}, slow},        // the right size before a fluent picture
      {{huge, large, largeMjpeg}, largeMjpeg}, {{odd}, odd},
  };
  for (const Case& one : cases) {
    SCOPED_TRACE(&one - cases.data());
    const Mode first = one.modes.front();
    VirtualCamera camera({.width = first.width,
                          .height = first.height,
                          .fps = first.fps,
                          .format = first.format,
                          .otherModes = {one.modes.begin() + 1, one.modes.end()}});
    camera.appear();
    CaptureUser user;
    user.start();
    ASSERT_TRUE(user.getsFrames(1));
    EXPECT_TRUE(camera.agreedMode() == one.best)
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
    const long wakeUps = captureWakeUps();
    // Longer than the watchdog's patience: it rests, and so does everything else.
    EXPECT_FALSE(user.eventually([&] { return user.handed().size() > frames; }, milliseconds(2500)));
    EXPECT_TRUE(user.reports().empty());
    EXPECT_LE(captureWakeUps() - wakeUps, 8);  // some for the graph that settles, none for a clock
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
  const auto blue = bars(640, 480, {{200, 60, 60}});
  const auto red = bars(320, 240, {{60, 60, 200}});
  VirtualCamera first({.name = "first"});
  first.setSource([&](std::int64_t) { return blue.data(); });
  first.appear();
  VirtualCamera second(
      {.name = "second", .width = 320, .height = 240, .format = VirtualCamera::Format::mjpeg});
  second.setSource([&](std::int64_t) { return red.data(); });
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

  for (const std::string id : {"other", "plain"}) {
    desktop.run("pw-metadata", {"0", "default.configured.video.source", R"({ "name": ")" + id + R"(" })",
                                "Spa:String:JSON"});
    EXPECT_TRUE(user.eventually([&] {
      const auto device = user.session->defaultDevice(CameraPosition::unspecified);
      return device && device->uniqueID == id;
    }));
  }

  user.deviceChanges = 0;
  VirtualCamera front({.name = "front", .location = "front"});
  front.appear();
  ASSERT_TRUE(user.eventually([&] { return user.deviceChanges > 0 && user.session->devices().size() == 3; }));
  const auto found = user.session->defaultDevice(CameraPosition::front);
  ASSERT_TRUE(found);
  EXPECT_EQ(found->uniqueID, "front");
}

/// How many descriptors of this process are open, by what stands behind them.
std::map<std::string, int> descriptors() {
  std::map<std::string, int> counts;
  for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
    std::error_code gone;
    const std::string target = std::filesystem::read_symlink(entry.path(), gone).string();
    if (!gone) ++counts[target.substr(0, target.find_first_of("[("))];
  }
  return counts;
}

TEST_F(CaptureTest, CamerasClosedWhileTheyOpenLeaveNoDescriptorBehind) {
  VirtualCamera camera({});
  camera.appear();
  CaptureUser user;
  user.start();
  ASSERT_TRUE(user.getsFrames());
  user.stop();
  ASSERT_TRUE(user.eventually([&] { return !camera.isOpen(); }));
  desktop.waitForNoNode("sentrel");
  const auto before = descriptors();
  std::mt19937 random(7);
  for (int i = 0; i < 200; ++i) {
    user.start();
    std::this_thread::sleep_for(std::chrono::microseconds(random() % 25000));
    user.stop();
    std::this_thread::sleep_for(std::chrono::microseconds(random() % 5000));
  }
  desktop.waitForNoNode("sentrel");
  EXPECT_TRUE(user.eventually([&] { return descriptors() == before; }, milliseconds(2000)));
}

/// A camera that shares no code with this program, shown in red.
ChildProcess foreignCamera(HeadlessDesktop& desktop) {
  auto camera =
      desktop.spawn("gst-launch-1.0", {"-q", "videotestsrc", "is-live=true", "pattern=red", "!",
                                       "video/x-raw,format=YUY2,width=640,height=480,framerate=30/1", "!",
                                       "pipewiresink", "mode=provide",
                                       "stream-properties=p,media.class=Video/"
                                       "Source,media.role=Camera,node.name=foreign,node.description=Cam"});
  desktop.waitForNode("foreign");
  return camera;
}

TEST_F(CaptureTest, ACameraIsSharedWithAnotherProgram) {
  auto camera = foreignCamera(desktop);
  CaptureUser user;
  CaptureUser other;
  user.start({"foreign"});
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

/// The mapped memory that may hold pictures, by what a core dump does with it.
struct PictureMemory {
  int dumped = 0;
  int leftOut = 0;
};
PictureMemory pictureMemory() {
  PictureMemory memory;
  std::ifstream maps("/proc/self/smaps");
  bool shared = false;
  for (std::string line; std::getline(maps, line);) {
    // A header line names the mapping; the flags come last.
    if (line.find("/memfd:pipewire") != std::string::npos) shared = true;
    if (!line.starts_with("VmFlags:")) continue;
    const bool leftOut = line.find(" dd") != std::string::npos;
    if (leftOut) ++memory.leftOut;
    if (shared && !leftOut) ++memory.dumped;
    shared = false;
  }
  return memory;
}

TEST_F(CaptureTest, PicturesAreLeftOutOfCoreDumpsAndGoWithTheEnd) {
  auto camera = foreignCamera(desktop);
  CaptureUser user;
  user.onQueue([&] { user.session->awaitDevices(std::chrono::seconds(10)); });
  const PictureMemory before = pictureMemory();
  user.start();
  ASSERT_TRUE(user.getsFrames(20));
  const PictureMemory running = pictureMemory();
  EXPECT_GE(running.leftOut, before.leftOut + 4);  // the shared buffers and at least one frame
  // What is left of the shared memory is a page of control data for each node.
  EXPECT_LE(running.dumped, before.dumped + 4);
  user.stop();
  EXPECT_TRUE(user.eventually([&] { return pictureMemory().leftOut == before.leftOut; }));
}

}  // namespace
}  // namespace sentrel::test
