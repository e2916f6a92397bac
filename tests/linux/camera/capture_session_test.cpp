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

/// One that is there from the beginning.
struct PluggedCamera : VirtualCamera {
  explicit PluggedCamera(Options options = {}) : VirtualCamera(std::move(options)) { appear(); }
};

/// A capture session with its queue and a log of everything that it gives.
class CaptureUser {
 public:
  /// The frames that were handed on.
  struct Handed {
    std::size_t count = 0;
    SteadyClock::time_point lastAt;
    std::array<std::uint8_t, 3> middle;  ///< of the last one: blue, green, red
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
      std::copy_n(frame->row(240) + std::size_t{320} * 4, 3, handed_.middle.begin());
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
  std::vector<std::pair<std::vector<Mode>, Mode>> cases{
      {{usual, usualMjpeg, huge, large30}, large30},  // more pixels, which cost little
      {{large, usualMjpeg, usual}, usual},            // a fluent picture before more pixels
      {{largeMjpeg, usual}, usual},                   // these cost much
      {{huge, slow, usualMjpeg}, usualMjpeg},         // a fluent picture before an uncompressed one
      {{huge, largeMjpeg, slow}, slow},               // the right size before a fluent picture
      {{huge, large, largeMjpeg}, largeMjpeg},
      {{usualMjpeg, software}, software},
  };
  for (const Mode& only : {odd, software, Mode{Format::bgrx, 320, 240}, Mode{Format::bgr, 480, 640},
                           Mode{Format::rgb, 1280, 720}, Mode{Format::nv12, 640, 360}})
    cases.push_back({{only}, only});
  for (const auto& [modes, best] : cases) {
    const PluggedCamera camera({.modes = modes});
    CaptureUser user;
    user.start();
    ASSERT_TRUE(user.getsFrames(1));
    EXPECT_EQ(camera.agreedMode(), best);
  }
}

// Pictures arrive all the time, so that some do in the midst of a closing or of a change of cameras. Here the
// session's own end is one of the closings.
TEST_F(CaptureTest, TheCameraIsOpenOnlyWhileFramesAreWanted) {
  const PluggedCamera one({.name = "one", .modes = {{.width = 64, .height = 48, .fps = 500}}});
  const PluggedCamera other({.name = "other", .modes = {{.width = 64, .height = 48, .fps = 500}}});
  for (int round = 0; round < 15; ++round) {
    SCOPED_TRACE(round);
    CaptureUser user;
    for (const std::string name : {"one", "other", "one"}) {
      user.start(name);
      ASSERT_TRUE(
          user.eventually([&] { return one.isOpen() == (name == "one") && other.isOpen() != one.isOpen(); }));
      ASSERT_TRUE(user.getsFrames(10));
    }
    round % 2 == 0 ? user.session->setFrameDemand({false, 0}) : user.stop();
    ASSERT_TRUE(user.eventually([&] { return !one.isOpen() && !other.isOpen(); }));
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
  const PluggedCamera camera({.modes = {{.width = 64, .height = 48, .fps = 200}}});
  std::atomic<int> looked = 0;
  CaptureUser user;
  user.start({}, 50);
  for (const bool looks : {false, true}) {
    if (looks) user.session->setPreviewTap([&](const FrameRef&) { ++looked; });
    ASSERT_TRUE(user.getsFrames(2));
    const auto [before, begin, middle] = user.handed();
    ASSERT_TRUE(user.getsFrames(8));
    const auto [after, end, last] = user.handed();
    EXPECT_GE(end - begin, (after - before) * milliseconds(50)) << looks;
    EXPECT_EQ(looked > 8, looks);
  }
}

TEST_F(CaptureTest, CamerasAreListedAndChosen) {
  const PluggedCamera plain({.name = "plain", .description = "Plain camera"});
  const PluggedCamera other({.name = "other"});
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
  const PluggedCamera front({.name = "front", .location = "front"});
  ASSERT_TRUE(user.eventually([&] { return user.deviceChanges > 0 && user.session->devices().size() == 3; }));
  EXPECT_TRUE(streams("front"));
  EXPECT_TRUE(streams("plain", "plain"));
}

// Each program that comes, with every sound, is told to all who are connected.
TEST_F(CaptureTest, ItIsConnectedOnlyWhileSomebodyNeedsCameras) {
  const PluggedCamera camera({.name = "camera"});
  const PluggedCamera other({.name = "other"});
  const auto connections = [&] {
    return std::stoi(desktop.run("sh", {"-c", "pw-cli ls Client | grep -c Interface:Client"}));
  };
  const int others = connections();
  CaptureUser user;
  const auto isConnected = [&](bool wanted) {
    return user.eventually([&] { return connections() == others + (wanted ? 1 : 0); });
  };
  EXPECT_TRUE(isConnected(false));
  {
    const Registration observing = user.session->observeDevices();
    const Registration reading = user.session->observe();
    ASSERT_TRUE(user.eventually([&] { return user.session->devices().size() == 2; }));
    EXPECT_TRUE(isConnected(true));
  }
  for (const std::string name : {"camera", "other"}) {
    ASSERT_TRUE(isConnected(false));
    EXPECT_TRUE(user.session->devices().empty());
    user.start(name);
    ASSERT_TRUE(user.getsFrames());
    EXPECT_EQ(user.session->currentDevice()->uniqueID, name);
    user.stop();
  }
  EXPECT_TRUE(isConnected(false));
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
  for (CaptureUser* one : {&user, &other}) {
    one->start("foreign");
    EXPECT_TRUE(one->getsFrames()) << camera.output();
  }
  EXPECT_GT(user.handed().middle[2], 200);
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

  camera.vanish();
  ASSERT_TRUE(user.eventually([&] { return user.interruptions.size() == 2; }));
  EXPECT_GT(user.interruptions[1] - user.interruptions[0], milliseconds(1900));
  EXPECT_FALSE(missing({})) << "it was here";
  EXPECT_TRUE(user.session->devices().empty());
  EXPECT_TRUE(user.session->interruptionCause());
  appears(2);

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
    PluggedCamera camera({.modes = {{format}}});
    CaptureUser user;
    user.start({}, 101);
    ASSERT_TRUE(user.getsFrames());
    const auto stopped = SteadyClock::now();
    camera.setFault(fault);
    camera.setPlaying(fault != Fault::none);
    ASSERT_TRUE(user.eventually([&] { return !user.interruptions.empty(); }));
    EXPECT_GT(user.interruptions.front() - stopped, milliseconds(1800));
    EXPECT_EQ(user.session->brokenFrames() > 0, fault != Fault::none);
    EXPECT_LT(user.handed().lastAt, user.interruptions.front() - milliseconds(1500)) << "nothing broken";
    camera.setFault(Fault::none);
    camera.setPlaying(true);
    ASSERT_TRUE(user.eventually([&] { return user.ends == 1; }));
    EXPECT_TRUE(user.getsFrames());
  }
}

TEST_F(CaptureTest, SizesChangeAndOneThatACameraCannotKeepIsNotAskedForAgain) {
  const Mode usual{Format::yuy2, 640, 480, 30};
  const Mode large{Format::yuy2, 1280, 720, 30};
  VirtualCamera camera({.modes = {usual, large}});
  camera.setFault(Fault::small);
  camera.appear();
  CaptureUser user;
  user.start();
  ASSERT_TRUE(user.getsFrames());
  EXPECT_EQ(camera.agreedMode(), usual);
  EXPECT_EQ(user.interruptions.size(), 1U);
  const auto broken = user.session->brokenFrames();
  EXPECT_GT(broken, 0);
  user.session->setFrameDemand({false, 0});
  ASSERT_TRUE(user.eventually([&] { return !camera.isOpen(); }));
  user.start();
  ASSERT_TRUE(user.getsFrames());
  EXPECT_EQ(user.session->brokenFrames(), broken);

  PluggedCamera other({.name = "other", .modes = {usual}});
  user.start("other");
  for (const Mode& mode : {usual, large, usual}) {
    other.setModes({mode});
    ASSERT_TRUE(user.eventually([&] { return other.agreedMode() == mode; }));
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
