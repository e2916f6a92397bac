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
    const std::size_t frames = user.handedCount();
    const long wakeUps = captureWakeUps();
    // Longer than the watchdog's patience: it rests, and so does everything else.
    EXPECT_FALSE(user.eventually([&] { return user.handedCount() > frames; }, milliseconds(2500)));
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
