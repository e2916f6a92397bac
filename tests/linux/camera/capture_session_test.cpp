// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "linux/camera/pipewire_capture_session.h"
#include "stage/headless_desktop.h"
#include "stage/virtual_camera.h"
#include "support/manual_main_loop.h"
#include "support/serial_queue.h"

namespace sentrel::test {
namespace {

using Fault = VirtualCamera::Fault;
using Format = VirtualCamera::Format;
using Mode = VirtualCamera::Mode;
using SteadyClock = std::chrono::steady_clock;
using std::chrono::milliseconds;
using namespace std::string_view_literals;

/// How late a report may be seen: the limit of what a loaded machine does, not of the session.
constexpr milliseconds lateness{1500};

using Colour = std::array<int, 3>;  // blue, green, red
const std::vector<Colour> barColours{{235, 235, 235}, {20, 220, 220}, {220, 220, 20}, {30, 200, 30},
                                     {200, 30, 200},  {30, 30, 200},  {200, 30, 30},  {20, 20, 20}};

/// A picture of upright bars, as BGRA pixels.
std::vector<std::uint8_t> bars(int width, int height, const std::vector<Colour>& colours = barColours) {
  std::vector<std::uint8_t> pixels;
  for (int i = 0; i < width * height; ++i) {
    const auto bar = static_cast<std::size_t>(i % width) * colours.size() / static_cast<std::size_t>(width);
    for (const int value : colours.at(bar)) pixels.push_back(static_cast<std::uint8_t>(value));
    pixels.push_back(255);
  }
  return pixels;
}

/// A capture session with its queue and a log of everything that it gives.
class CaptureUser {
 public:
  struct Handed {
    SteadyClock::time_point at;
    int width = 0;
    int height = 0;
    std::array<Colour, 8> bars;  ///< the colour in the middle of each of eight upright bars
  };

  CaptureUser() {
    observers_.push_back(
        session->wasInterrupted.connect([this] { interruptions.push_back(SteadyClock::now()); }));
    observers_.push_back(session->interruptionEnded.connect([this] { ++ends; }));
    observers_.push_back(session->devicesChanged.connect([this] { ++deviceChanges; }));
  }
  ~CaptureUser() {
    session.reset();
    queue->sync([] {});  // nothing of this object is used any more
  }

  /// Configures and starts as the camera manager does, and asks for frames.
  void start(const std::optional<std::string>& deviceID = {}, std::int64_t paceMs = 0) {
    session->setFrameDemand({true, paceMs});
    queue->sync([this] { (void)session->awaitDevices(std::chrono::seconds(10)); });
    configure(deviceID);
    queue->sync([this] { session->startRunning(); });
  }
  void configure(const std::optional<std::string>& deviceID) {
    const auto log = [this](const FrameRef& frame) {
      Handed handed{SteadyClock::now(), frame->width(), frame->height(), {}};
      for (std::size_t bar = 0; bar < handed.bars.size(); ++bar) {
        const std::uint8_t* pixel = frame->row(frame->height() / 2) +
                                    static_cast<std::ptrdiff_t>(2 * bar + 1) * frame->width() / 16 * 4;
        handed.bars.at(bar) = {pixel[0], pixel[1], pixel[2]};
      }
      const std::lock_guard lock(mutex_);
      handed_.push_back(handed);
    };
    queue->sync([&] { EXPECT_FALSE(session->configure({640, 480, deviceID, log})); });
  }
  void stop() {
    queue->sync([this] { session->stopRunning(); });
  }

  [[nodiscard]] std::vector<Handed> handed() const {
    const std::lock_guard lock(mutex_);
    return handed_;
  }
  /// Runs what was posted to the main loop until `condition` holds.
  [[nodiscard]] bool eventually(const std::function<bool()>& condition,
                                milliseconds timeout = std::chrono::seconds(20)) {
    return waitUntil(
        [&] {
          mainLoop->runPosted();
          return condition();
        },
        timeout, milliseconds(2));
  }
  /// Waits for `more` further frames.
  [[nodiscard]] bool getsFrames(std::size_t more = 3) {
    const std::size_t wanted = handed().size() + more;
    return eventually([&] { return handed().size() >= wanted; });
  }
  [[nodiscard]] bool isUndisturbed() {
    mainLoop->runPosted();
    return interruptions.empty() && ends == 0;
  }

  std::shared_ptr<ManualMainLoop> mainLoop = std::make_shared<ManualMainLoop>();
  std::shared_ptr<SerialQueue> queue = std::make_shared<SerialQueue>("com.mardeck.sentrel.camera");
  std::shared_ptr<PipeWireCaptureSession> session = PipeWireCaptureSession::create(mainLoop, queue);
  std::vector<SteadyClock::time_point>
      interruptions;  ///< when they were seen, at most some milliseconds late
  int ends = 0;       ///< of interruptions
  int deviceChanges = 0;

 private:
  mutable std::mutex mutex_;
  std::vector<Handed> handed_;
  std::vector<Registration> observers_;
};

/// A private PipeWire with its session manager.
class CaptureTest : public ::testing::Test {
 protected:
  CaptureTest() { desktop.exportToProcess(); }

  HeadlessDesktop desktop{{.sessionBus = true, .pipeWire = true}};
};

TEST_F(CaptureTest, EveryFormatShowsItsColours) {
  const Mode modes[] = {{Format::yuy2, 640, 480},  {Format::nv12, 640, 480}, {Format::i420, 640, 480},
                        {Format::mjpeg, 640, 480}, {Format::yuy2, 320, 240}, {Format::mjpeg, 1280, 960},
                        {Format::yuy2, 1280, 720}, {Format::nv12, 640, 360}, {Format::mjpeg, 1920, 1080},
                        {Format::yuy2, 480, 640}};
  for (const auto& [format, width, height, fps] : modes) {
    SCOPED_TRACE(testing::Message() << static_cast<int>(format) << " at " << width << "x" << height);
    const auto picture = bars(width, height);
    VirtualCamera camera({.modes = {{format, width, height, fps}}});
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
      for (std::size_t channel = 0; channel < 3; ++channel)
        EXPECT_NEAR(frame.bars.at(static_cast<std::size_t>(i)).at(channel), expected.at(channel), 12)
            << "bar " << i;
    }
  }
}

TEST_F(CaptureTest, TheBestModeIsAgreedOn) {
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
    action();
    ASSERT_TRUE(user.eventually([&] { return !camera.isOpen(); }, lateness));
    const std::size_t frames = user.handed().size();
    // Longer than the timeout of the watch: it rests.
    EXPECT_FALSE(user.eventually([&] { return user.handed().size() > frames; }, milliseconds(2500)));
    EXPECT_TRUE(user.isUndisturbed());
  };
  closesAfter([&] { user.session->setFrameDemand({false, 0}); });
  user.session->setFrameDemand({true, 0});
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
      ASSERT_TRUE(user.eventually(
          [&] { return one.isOpen() == (name == "one"sv) && other.isOpen() != one.isOpen(); }));
      ASSERT_TRUE(user.getsFrames(10));
    }
    user.stop();
    ASSERT_TRUE(user.eventually([&] { return !one.isOpen() && !other.isOpen(); }));
    user.start("other");
    ASSERT_TRUE(user.getsFrames(10));
    EXPECT_TRUE(user.isUndisturbed());
  }
}

TEST_F(CaptureTest, CamerasAreListedAndChosen) {
  VirtualCamera plain({.name = "plain", .description = "Plain camera"});
  plain.appear();
  VirtualCamera other({.name = "other", .description = "Other camera"});
  other.appear();
  CaptureUser user;
  user.queue->sync([&] { EXPECT_FALSE(user.session->awaitDevices(std::chrono::seconds(10))); });
  ASSERT_TRUE(user.eventually([&] { return user.session->devices().size() == 2; }));
  EXPECT_EQ(user.session->devices()[0], (CameraDevice{"plain", "Plain camera", CameraPosition::unspecified}));

  user.start();
  const auto streams = [&](const std::string& id) {
    return user.eventually([&] {
      user.configure("there is no such camera");  // chooses anew, among those that there are
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
  EXPECT_GT(user.handed().back().bars[0][2], 200);
  other.stop();
  EXPECT_TRUE(user.getsFrames(10));
}

TEST_F(CaptureTest, ACameraThatIsPulledIsReportedAndTakenUpAgain) {
  VirtualCamera camera({});
  camera.appear();
  CaptureUser user;
  user.start("virtual_camera");
  ASSERT_TRUE(user.getsFrames());

  const auto pulled = SteadyClock::now();
  camera.vanish();
  ASSERT_TRUE(user.eventually([&] { return user.interruptions.size() == 2; }));
  EXPECT_LT(user.interruptions[0] - pulled, lateness);
  EXPECT_GT(user.interruptions[1] - user.interruptions[0], milliseconds(1900));
  EXPECT_LT(user.interruptions[1] - user.interruptions[0], milliseconds(2000) + lateness);
  user.queue->sync([&] { EXPECT_FALSE(user.session->awaitDevices({})) << "it was here"; });
  EXPECT_TRUE(user.session->devices().empty());
  ASSERT_TRUE(user.session->interruptionCause());

  const auto frames = user.handed().size();
  camera.appear();
  const auto returned = SteadyClock::now();
  ASSERT_TRUE(user.eventually([&] { return user.ends == 1; }));
  ASSERT_TRUE(user.getsFrames(1));
  EXPECT_LT(user.handed().at(frames).at - returned, milliseconds(1000) + lateness);
  EXPECT_FALSE(user.session->interruptionCause());
}

TEST_F(CaptureTest, TheServiceMayComeLateDieAndComeBack) {
  desktop.stopPipeWire();
  CaptureUser user;
  ASSERT_TRUE(user.eventually([&] {
    std::optional<CaptureError> missing;
    user.queue->sync([&] { missing = user.session->awaitDevices(milliseconds(50)); });
    return missing && missing->kind == CaptureError::Kind::noService;
  }));
  user.start();
  ASSERT_TRUE(user.eventually([&] { return user.interruptions.size() >= 2; }));
  ASSERT_TRUE(user.session->interruptionCause());
  EXPECT_EQ(user.session->interruptionCause()->kind, CaptureError::Kind::noService);

  VirtualCamera camera({});
  const auto serve = [&](int ends) {
    desktop.startPipeWire();
    camera.vanish();  // its connection has died as well
    camera.appear();
    ASSERT_TRUE(user.eventually([&] { return user.ends == ends; }));
    EXPECT_TRUE(user.getsFrames());
  };
  serve(1);
  user.interruptions.clear();
  desktop.killPipeWire();
  ASSERT_TRUE(user.eventually([&] { return !user.interruptions.empty(); }));
  EXPECT_TRUE(user.session->devices().empty());
  serve(2);
}

TEST_F(CaptureTest, ACameraWithoutAGoodFrameIsInterrupted) {
  // Three ways to give nothing: silence, buffers that are visibly broken, and pictures that cannot be read.
  struct Case {
    VirtualCamera camera;
    Fault fault;
    CaptureUser user = {};
  };
  std::array<Case, 3> cases{
      {{VirtualCamera({.name = "silent"}), Fault::none},
       {VirtualCamera({.name = "empty"}), Fault::zeroLength},
       {VirtualCamera({.name = "garbage", .modes = {{Format::mjpeg}}}), Fault::garbage}}};
  for (Case& one : cases) one.camera.appear();
  const std::array names{"silent", "empty", "garbage"};
  for (std::size_t i = 0; i < cases.size(); ++i) {
    cases.at(i).user.start(names.at(i), 101);
    ASSERT_TRUE(cases.at(i).user.getsFrames());
  }
  const auto stopped = SteadyClock::now();
  for (Case& one : cases) {
    one.camera.setFault(one.fault);
    one.camera.setPlaying(one.fault != Fault::none);
  }
  ASSERT_TRUE(waitUntil([&] {
    // Each is asked each time, so that none sees its reports late.
    return std::ranges::count_if(cases, [](Case& one) {
             one.user.mainLoop->runPosted();
             return one.user.interruptions.size() >= 2;
           }) == 3;
  }));
  for (Case& one : cases) {
    SCOPED_TRACE(static_cast<int>(one.fault));
    EXPECT_GT(one.user.interruptions.front() - stopped, milliseconds(1800));
    EXPECT_LT(one.user.interruptions.front() - stopped, milliseconds(2000) + lateness);
    EXPECT_EQ(one.user.session->brokenFrames() > 0, one.fault != Fault::none);
    const auto handed = one.user.handed();
    EXPECT_LT(handed.back().at - stopped, lateness) << "nothing that is broken is handed on";
    one.camera.setFault(Fault::none);
    one.camera.setPlaying(true);
    ASSERT_TRUE(one.user.eventually([&] { return one.user.ends == 1; }));
    EXPECT_TRUE(one.user.getsFrames());
  }
}

}  // namespace
}  // namespace sentrel::test
