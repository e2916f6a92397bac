// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <fstream>

#include "linux/camera/pipewire_capture_session.h"
#include "stage/headless_desktop.h"
#include "stage/virtual_camera.h"
#include "support/manual_main_loop.h"

namespace sentrel::test {
namespace {

using Fault = VirtualCamera::Fault;
using Format = VirtualCamera::Format;
using Mode = VirtualCamera::Mode;
using SteadyClock = std::chrono::steady_clock;
using std::chrono::milliseconds;
namespace fs = std::filesystem;

/// How late a report may be seen: the limit of what a loaded machine does, not of the session.
constexpr milliseconds lateness{1500};

using Colour = std::array<double, 3>;  // blue, green, red

/// What a picture shows at `x`, a share of its width.
Colour colourAt(double x) {
  return {20 + 200 * x, 220 - 200 * x, 120};
}

/// The picture, as BGRA pixels.
std::vector<std::uint8_t> shades(int width, int height) {
  std::vector<std::uint8_t> pixels;
  for (int i = 0; i < width * height; ++i) {
    for (const double value : colourAt((i % width + 0.5) / width))
      pixels.push_back(static_cast<std::uint8_t>(value));
    pixels.push_back(255);
  }
  return pixels;
}

/// A capture session with its queue and a log of everything that it gives.
class CaptureUser {
 public:
  /// The frames that were handed on.
  struct Handed {
    std::size_t count = 0;
    SteadyClock::time_point lastAt;
    std::array<Colour, 8> colours;  ///< of the last one, in the middle of each of eight upright bars
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
      EXPECT_TRUE(frame->width() == 640 && frame->height() == 480);
      const std::lock_guard lock(mutex_);
      ++handed_.count;
      handed_.lastAt = SteadyClock::now();
      for (std::size_t i = 0; i < 8; ++i)
        std::copy_n(frame->row(240) + (40 + 80 * i) * 4, 3, handed_.colours.at(i).begin());
    };
    queue->sync([&] { EXPECT_FALSE(session->configure({640, 480, deviceID, log})); });
  }
  void stop() {
    queue->sync([this] { session->stopRunning(); });
  }

  [[nodiscard]] Handed handed() const {
    const std::lock_guard lock(mutex_);
    return handed_;
  }
  /// Runs what was posted to the main loop until `condition` holds.
  [[nodiscard]] bool eventually(const std::function<bool()>& condition,
                                milliseconds timeout = milliseconds(20'000)) {
    const auto holds = [&] {
      mainLoop->runPosted();
      return condition();
    };
    return waitUntil(holds, timeout, milliseconds(2));
  }
  /// Waits for `more` further frames.
  [[nodiscard]] bool getsFrames(std::size_t more = 3) {
    const std::size_t wanted = handed().count + more;
    return eventually([&] { return handed().count >= wanted; });
  }

  std::shared_ptr<ManualMainLoop> mainLoop = std::make_shared<ManualMainLoop>();
  std::shared_ptr<SerialQueue> queue = std::make_shared<SerialQueue>("com.mardeck.sentrel.camera");
  std::shared_ptr<PipeWireCaptureSession> session = PipeWireCaptureSession::create(mainLoop, queue);
  /// When they were seen, at most some milliseconds late.
  std::vector<SteadyClock::time_point> interruptions;
  int ends = 0;  ///< of interruptions
  int deviceChanges = 0;

 private:
  mutable std::mutex mutex_;
  Handed handed_;
  std::vector<Registration> observers_;
};

/// A private PipeWire with its session manager.
struct CaptureTest : ::testing::Test {
  CaptureTest() { desktop.exportToProcess(); }

  HeadlessDesktop desktop{{.sessionBus = true, .pipeWire = true}};
};

TEST_F(CaptureTest, EveryFormatShowsItsColours) {
  const Mode modes[] = {{Format::yuy2, 640, 480},  {Format::nv12, 640, 480}, {Format::i420, 640, 480},
                        {Format::mjpeg, 640, 480}, {Format::yuy2, 320, 240}, {Format::mjpeg, 1280, 960},
                        {Format::yuy2, 1280, 720}, {Format::nv12, 640, 360}, {Format::mjpeg, 1920, 1080},
                        {Format::yuy2, 480, 640},  {Format::bgrx, 640, 480}, {Format::rgbx, 640, 480},
                        {Format::bgr, 640, 480},   {Format::rgb, 1280, 720}};
  for (const auto& [format, width, height, fps] : modes) {
    SCOPED_TRACE(testing::Message() << static_cast<int>(format) << " at " << width << "x" << height);
    const auto picture = shades(width, height);
    VirtualCamera camera({.modes = {{format, width, height, fps}}});
    camera.setSource([&](std::int64_t) { return picture.data(); });
    camera.appear();
    CaptureUser user;
    user.start();
    ASSERT_TRUE(user.getsFrames());
    const auto colours = user.handed().colours;
    // Another shape is cut about its centre.
    const double shown = std::min(1.0, height * 4.0 / 3 / width);
    for (std::size_t i = 0; i < 8; ++i) {
      const Colour expected = colourAt(0.5 + (static_cast<double>(i) - 3.5) / 8 * shown);
      for (std::size_t c = 0; c < 3; ++c) EXPECT_NEAR(colours.at(i).at(c), expected.at(c), 6) << i;
    }
  }
}

TEST_F(CaptureTest, TheBestModeIsAgreedOn) {
  // Each camera's own first choice is another one than the best.
  const Mode usual{Format::yuy2, 640, 480, 30};
  const Mode usualMjpeg{Format::mjpeg, 640, 480, 30};
  const Mode slow{Format::yuy2, 640, 480, 5};
  const Mode large{Format::yuy2, 1280, 720, 10};
  const Mode large30{Format::nv12, 1280, 720, 30};
  const Mode largeMjpeg{Format::mjpeg, 1280, 720, 30};
  const Mode huge{Format::nv12, 1920, 1080, 30};
  const Mode odd{Format::i420, 720, 576, 25};
  const Mode software{Format::rgbx, 640, 480, 30};
  const std::vector<std::pair<std::vector<Mode>, Mode>> cases{
      {{usual, usualMjpeg, huge, large30}, large30},  // more pixels, which cost little
      {{large, usualMjpeg, usual}, usual},            // a fluent picture before more pixels
      {{largeMjpeg, usual}, usual},                   // these cost much
      {{huge, slow, usualMjpeg}, usualMjpeg},         // a fluent picture before an uncompressed one
      {{huge, largeMjpeg, slow}, slow},               // the right size before a fluent picture
      {{huge, large, largeMjpeg}, largeMjpeg},
      {{odd}, odd},
      {{software}, software},
      {{usualMjpeg, software}, software},
  };
  for (const auto& [modes, best] : cases) {
    VirtualCamera camera({.modes = modes});
    camera.appear();
    CaptureUser user;
    user.start();
    ASSERT_TRUE(user.getsFrames(1));
    EXPECT_EQ(camera.agreedMode(), best);
  }
}

// Pictures arrive all the time, so that some do in the midst of a closing or of a change of cameras. Here the
// session's own end is one of the closings.
TEST_F(CaptureTest, TheCameraIsOpenOnlyWhileFramesAreWanted) {
  VirtualCamera one({.name = "one", .modes = {{.width = 64, .height = 48, .fps = 500}}});
  VirtualCamera other({.name = "other", .modes = {{.width = 64, .height = 48, .fps = 500}}});
  one.appear();
  other.appear();
  for (int round = 0; round < 15; ++round) {
    SCOPED_TRACE(round);
    CaptureUser user;
    for (const std::string name : {"one", "other", "one"}) {
      user.start(name);
      ASSERT_TRUE(
          user.eventually([&] { return one.isOpen() == (name == "one") && other.isOpen() != one.isOpen(); }));
      ASSERT_TRUE(user.getsFrames(10));
    }
    if (round % 2 == 0) user.session->setFrameDemand({false, 0});
    if (round % 2 == 1) user.stop();
    ASSERT_TRUE(user.eventually([&] { return !one.isOpen() && !other.isOpen(); }, lateness));
    const std::size_t frames = user.handed().count;
    if (round < 2) {
      // Longer than the timeout of the watch: it rests.
      EXPECT_FALSE(user.eventually([&] { return user.handed().count > frames; }, milliseconds(2500)));
      EXPECT_TRUE(waitUntil([&] { return !desktop.hasNode("sentrel"); }));
    }
    user.start("other");
    ASSERT_TRUE(user.getsFrames(10));
    EXPECT_TRUE(user.interruptions.empty() && user.ends == 0);
  }
}

// Whoever looks at the pictures gets all of them, and the pace of what is handed on stays the same.
TEST_F(CaptureTest, ThePaceHoldsHoweverManyFramesArrive) {
  VirtualCamera camera({.modes = {{.width = 64, .height = 48, .fps = 200}}});
  camera.appear();
  std::atomic<int> looked = 0;
  CaptureUser user;
  user.start({}, 50);
  for (const bool looks : {false, true}) {
    if (looks) user.session->setPreviewTap([&](const FrameRef&) { ++looked; });
    ASSERT_TRUE(user.getsFrames(2));
    const auto [before, begin, colours] = user.handed();
    ASSERT_TRUE(user.getsFrames(8));
    const auto [after, end, last] = user.handed();
    EXPECT_GE(end - begin, (after - before) * milliseconds(50)) << looks;
    EXPECT_EQ(looked > 8, looks);
  }
}

TEST_F(CaptureTest, CamerasAreListedAndChosen) {
  VirtualCamera plain({.name = "plain", .description = "Plain camera"});
  plain.appear();
  VirtualCamera other({.name = "other", .description = "Other camera"});
  other.appear();
  CaptureUser user;
  const Registration observing = user.session->observeDevices();
  user.queue->sync([&] { EXPECT_FALSE(user.session->awaitDevices(std::chrono::seconds(10))); });
  ASSERT_TRUE(user.eventually([&] { return user.session->devices().size() == 2; }));
  EXPECT_EQ(user.session->devices()[0], (CameraDevice{"plain", "Plain camera", CameraPosition::unspecified}));

  user.start();
  const auto streams = [&](const std::string& id, const std::string& wanted = "there is no such camera") {
    return user.eventually([&] {
      user.configure(wanted);  // chooses anew, among those that there are
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
  EXPECT_TRUE(streams("plain", "plain"));
}

/// How often the session's own thread was woken.
std::int64_t wakeUps() {
  for (const auto& task : fs::directory_iterator("/proc/self/task")) {
    std::ifstream name(task.path() / "comm");
    std::string thread;
    if (std::getline(name, thread) && thread == "sentrel-camera")
      return ProcessUsage::of(getpid()).wakeUps.at(static_cast<pid_t>(std::stol(task.path().filename())));
  }
  return -1;
}

// Each program that comes, with every sound, is told to all who listen. What the session does itself may take
// a wake-up.
TEST_F(CaptureTest, OthersWakeItOnlyWhileSomebodyNeedsCameras) {
  VirtualCamera camera({.name = "camera"});
  camera.appear();
  CaptureUser user;
  VirtualCamera sound({.name = "sound", .mediaClass = "Audio/Source", .role = ""});
  const auto wakesForSounds = [&] {
    const std::int64_t before = wakeUps();
    for (int i = 0; i < 5; ++i) {
      sound.appear();
      sound.vanish();
    }
    desktop.run("pw-cli", {"info", "0"});
    return wakeUps() - before;
  };
  const auto isKnown = [&] { return user.session->devices().size() == 1; };
  EXPECT_LT(wakesForSounds(), 5) << "from the beginning";
  {
    const Registration observing = user.session->observeDevices();
    const Registration reading = user.session->observe();
    ASSERT_TRUE(user.eventually(isKnown));
    EXPECT_GE(wakesForSounds(), 5);
  }
  ASSERT_TRUE(user.eventually([&] { return !isKnown(); }));
  EXPECT_LT(wakesForSounds(), 5);

  user.start("camera");
  ASSERT_TRUE(user.getsFrames());
  EXPECT_EQ(user.session->currentDevice()->uniqueID, "camera");
  user.stop();
  ASSERT_TRUE(user.eventually([&] { return !isKnown(); }));
  EXPECT_LT(wakesForSounds(), 5);
  VirtualCamera other({.name = "other"});
  other.appear();
  user.start("other");
  ASSERT_TRUE(user.getsFrames());
  EXPECT_EQ(user.session->currentDevice()->uniqueID, "other") << "it came while nobody listened";
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
  EXPECT_GT(user.handed().colours[0][2], 200);
  EXPECT_EQ(user.session->otherUser(), "") << "this program is no other";
  const auto reader = desktop.spawn(
      "gst-launch-1.0", {"-q", "pipewiresrc", "target-object=foreign", "!", "video/x-raw", "!", "fakesink"});
  EXPECT_TRUE(user.eventually([&] { return user.session->otherUser() == "gst-launch-1.0"; }))
      << reader.output();
  other.stop();
  EXPECT_TRUE(user.getsFrames(10));
}

TEST_F(CaptureTest, ServiceAndCameraMayComeLateGoAndComeBack) {
  desktop.stopPipeWire();
  VirtualCamera camera({.name = "pulled"});
  CaptureUser user;
  const auto missing = [&](milliseconds timeout) {
    std::optional<CaptureError> error;
    user.queue->sync([&] { error = user.session->awaitDevices(timeout); });
    return error;
  };
  const auto noService = [](const std::optional<CaptureError>& error) {
    return error && error->kind == CaptureError::Kind::noService;
  };
  ASSERT_TRUE(user.eventually([&] { return noService(missing(milliseconds(50))); }));
  user.start();
  ASSERT_TRUE(user.eventually([&] { return !user.interruptions.empty(); }));
  EXPECT_TRUE(noService(user.session->interruptionCause()));
  const auto appears = [&](int ends) {
    camera.appear();
    ASSERT_TRUE(user.eventually([&] { return user.ends == ends; }));
    ASSERT_TRUE(user.getsFrames());
    EXPECT_FALSE(user.session->interruptionCause());
    user.interruptions.clear();
  };
  desktop.startPipeWire();
  appears(1);

  const auto pulled = SteadyClock::now();
  camera.vanish();
  ASSERT_TRUE(user.eventually([&] { return user.interruptions.size() == 2; }));
  EXPECT_LT(user.interruptions[0] - pulled, lateness);
  EXPECT_GT(user.interruptions[1] - user.interruptions[0], milliseconds(1900));
  EXPECT_LT(user.interruptions[1] - user.interruptions[0], milliseconds(2000) + lateness);
  EXPECT_FALSE(missing({})) << "it was here";
  EXPECT_TRUE(user.session->devices().empty());
  EXPECT_TRUE(user.session->interruptionCause());
  const auto returns = SteadyClock::now();
  appears(2);
  EXPECT_LT(user.handed().lastAt - returns, milliseconds(1000) + lateness);

  desktop.killPipeWire();
  ASSERT_TRUE(user.eventually([&] { return !user.interruptions.empty(); }));
  EXPECT_TRUE(user.session->devices().empty());
  desktop.startPipeWire();
  camera.vanish();  // its connection has died as well
  appears(3);
}

TEST_F(CaptureTest, ACameraWithoutAGoodFrameIsInterrupted) {
  // Three ways to give nothing: silence, buffers that are visibly broken, and pictures that cannot be read.
  for (const auto& [format, fault] : {std::pair{Format::yuy2, Fault::none},
                                      {Format::yuy2, Fault::zeroLength},
                                      {Format::mjpeg, Fault::garbage}}) {
    SCOPED_TRACE(static_cast<int>(fault));
    VirtualCamera camera({.modes = {{format}}});
    camera.appear();
    CaptureUser user;
    user.start({}, 101);
    ASSERT_TRUE(user.getsFrames());
    const auto stopped = SteadyClock::now();
    camera.setFault(fault);
    camera.setPlaying(fault != Fault::none);
    ASSERT_TRUE(user.eventually([&] { return !user.interruptions.empty(); }));
    EXPECT_GT(user.interruptions.front() - stopped, milliseconds(1800));
    EXPECT_LT(user.interruptions.front() - stopped, milliseconds(2000) + lateness);
    EXPECT_EQ(user.session->brokenFrames() > 0, fault != Fault::none);
    EXPECT_LT(user.handed().lastAt - stopped, lateness) << "nothing that is broken is handed on";
    camera.setFault(Fault::none);
    camera.setPlaying(true);
    ASSERT_TRUE(user.eventually([&] { return user.ends == 1; }));
    EXPECT_TRUE(user.getsFrames());
  }
}

TEST_F(CaptureTest, ACameraThatCannotKeepItsLargerSizeIsUsedAtTheUsualOne) {
  const Mode usual{Format::yuy2, 640, 480, 30};
  const Mode large{Format::yuy2, 1280, 720, 30};
  VirtualCamera camera({.modes = {usual, large}});
  camera.setFault(Fault::small);
  camera.appear();
  CaptureUser user;
  user.start();
  ASSERT_TRUE(user.getsFrames());
  EXPECT_EQ(camera.agreedMode(), usual);
  EXPECT_GT(user.session->brokenFrames(), 0);
  EXPECT_EQ(user.interruptions.size(), 1U);
  // It is not asked a second time.
  const auto broken = user.session->brokenFrames();
  user.session->setFrameDemand({false, 0});
  ASSERT_TRUE(user.eventually([&] { return !camera.isOpen(); }));
  user.start();
  ASSERT_TRUE(user.getsFrames());
  EXPECT_EQ(user.session->brokenFrames(), broken);
}

TEST_F(CaptureTest, ACameraMayChangeItsSize) {
  const Mode usual{Format::yuy2, 640, 480, 30};
  const Mode large{Format::yuy2, 1280, 720, 30};
  VirtualCamera camera({.modes = {usual}});
  camera.appear();
  CaptureUser user;
  user.start();
  ASSERT_TRUE(user.getsFrames());
  for (const Mode& mode : {large, usual, large}) {
    camera.setModes({mode});
    ASSERT_TRUE(user.eventually([&] { return camera.agreedMode() == mode; }));
    ASSERT_TRUE(user.getsFrames());
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
