// SPDX-License-Identifier: Apache-2.0
#include "detection/camera_control.h"

#include <gmock/gmock.h>

#include <string>
#include <vector>

#include "support/machine_room.h"

namespace sentrel {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class AVCaptureManagerTest : public testing::Test {
 protected:
  void start() {
    manager->startSession([this](const std::optional<StartError>& told) {
      ++answers;
      error = told;
    });
  }
  void startAndSettle() {
    start();
    room.settle();
  }
  void startWith(std::shared_ptr<VisionFaceAnalyzer> analyzer) {
    manager->setAnalyzer(std::move(analyzer));
    startAndSettle();
  }
  std::shared_ptr<VisionFaceAnalyzer> analyzer(std::int64_t fps = 10) {
    return std::make_shared<VisionFaceAnalyzer>(fps, room.environment());
  }

  test::MachineRoom room;
  std::shared_ptr<AVCaptureManager> manager =
      std::make_shared<AVCaptureManager>(room.session, room.cameraQueue, room.environment());
  int answers = 0;  ///< to starts
  std::optional<StartError> error;
};

TEST_F(AVCaptureManagerTest, StartsConfiguresAndFeedsTheAnalyser) {
  const auto first = analyzer();
  int results = 0;
  first->onResult = [&](const DetectionInput&) { ++results; };
  startWith(first);
  EXPECT_EQ(answers, 1);
  EXPECT_FALSE(error);
  EXPECT_TRUE(manager->isRunning());
  EXPECT_TRUE(room.session->running);
  EXPECT_EQ(room.session->request->width, 640);
  EXPECT_EQ(room.session->request->height, 480);
  room.session->request->onFrame(room.frame());
  room.settle();
  EXPECT_EQ(results, 1);

  startAndSettle();
  EXPECT_EQ(room.session->starts, 1) << "already running";
  EXPECT_EQ(answers, 2);

  manager->setAnalyzer(nullptr);
  room.settle();
  room.loop->advance(200);
  room.session->request->onFrame(room.frame());
  room.settle();
  EXPECT_EQ(results, 1) << "no analyser, no result";
}

TEST_F(AVCaptureManagerTest, AStopWinsOverAStartThatIsUnderWay) {
  room.session->status = AuthorizationStatus::notDetermined;
  start();
  manager->stopSession();
  room.settle();
  ASSERT_EQ(room.session->accessRequests.size(), 1U);
  room.session->accessRequests[0](true);
  room.settle();
  EXPECT_EQ(room.detector->preparations, 0);

  room.session->status = AuthorizationStatus::authorized;
  const auto stop = [this] { manager->stopSession(); };  // the main thread waits in settle() meanwhile
  room.detector->whilePreparing = stop;
  startAndSettle();
  room.detector->whilePreparing = nullptr;
  EXPECT_EQ(room.session->configurations, 0);

  room.session->whileListing = stop;
  startAndSettle();
  room.session->whileListing = nullptr;
  EXPECT_EQ(room.session->starts, 0) << "the camera never opened";
  EXPECT_FALSE(manager->isRunning());

  startAndSettle();
  EXPECT_EQ(answers, 1) << "none of it stays behind";
  EXPECT_FALSE(error);
  EXPECT_TRUE(manager->isRunning());
}

TEST_F(AVCaptureManagerTest, StartsThatOverlapAreOneAndAStartAfterAStopIsAnother) {
  start();
  room.loop->runPosted();
  startAndSettle();
  EXPECT_EQ(room.session->starts, 1);
  EXPECT_EQ(answers, 2);
  EXPECT_FALSE(error);
  std::vector<bool> seen;
  const auto watch = manager->isRunning().onChange([&](bool running) { seen.push_back(running); });
  manager->stopSession();
  start();
  room.settle();
  EXPECT_TRUE(room.session->running);
  EXPECT_THAT(seen, ElementsAre(false, true));
}

TEST_F(AVCaptureManagerTest, FailuresTellTheirCauseAndTheNextStartIsFree) {
  const CaptureError denied{CaptureError::Kind::accessDenied, "no permission for the node"};
  const CaptureError taken{CaptureError::Kind::busy, "taken"};
  const CaptureError noService{CaptureError::Kind::noService, "not running"};
  const FaceDetectorError noModel{"models/face.tflite is damaged"};
  auto& session = *room.session;
  const auto unseen = [&] {
    session.cameras.clear();
    session.seen = false;
  };
  const struct {
    std::string key;
    std::function<void()> fault;
    StartError expected;
  } cases[] = {
      {"error_camera_denied", [&] { session.status = AuthorizationStatus::denied; },
       CameraError::permissionDenied},
      {"error_camera_denied", [&] { session.status = AuthorizationStatus::restricted; },
       CameraError::permissionDenied},
      {"error_model_missing", [&] { room.detector->prepareError = noModel; }, noModel},
      {"error_no_camera", unseen, CameraError::noCameraAvailable},
      {"error_no_pipewire", [&] { unseen(), session.service = noService; }, noService},
      {"error_camera_denied", [&] { session.configureError = denied; }, denied},
      {"error_camera_busy", [&] { session.configureError = taken; }, CameraError::configurationFailed},
  };
  for (const auto& [key, fault, expected] : cases) {
    fault();
    startAndSettle();
    ASSERT_TRUE(error) << key;
    EXPECT_EQ(error->index(), expected.index()) << key;
    EXPECT_EQ(describe(*error), describe(expected)) << key;
    EXPECT_EQ(textKey(describe(*error).kind), key);
    EXPECT_EQ(session.starts, 0) << key;
    EXPECT_FALSE(manager->isRunning()) << key;

    session.status = AuthorizationStatus::authorized;
    session.cameras = {{"front", "", CameraPosition::front}};
    session.seen = true;
    session.service.reset();
    session.configureError.reset();
    room.detector->prepareError.reset();
    startAndSettle();
    EXPECT_FALSE(error) << "after " << key;
    manager->stopSession();
    room.settle();
    session.starts = 0;
  }
}

TEST_F(AVCaptureManagerTest, ACameraThatIsAwayCountsAsStarted) {
  room.session->cameras.clear();
  startAndSettle();
  EXPECT_TRUE(manager->isRunning()) << "this process has seen a camera";
  bool closed = false;
  manager->stopSession([&] {
    closed = true;
    EXPECT_FALSE(room.session->running);
  });
  room.settle();
  EXPECT_TRUE(closed);
}

TEST_F(AVCaptureManagerTest, ThePreferredCameraIsUsedAndSwitched) {
  room.session->cameras.push_back({"desk", "Desk", CameraPosition::unspecified});
  manager->switchCamera("desk");
  room.settle();
  EXPECT_FALSE(room.session->request) << "stopped: only the choice changes";
  startAndSettle();
  EXPECT_EQ(room.session->request->deviceID, "desk");
  manager->switchCamera(std::nullopt);
  room.settle();
  ASSERT_TRUE(room.session->request);
  EXPECT_EQ(room.session->request->deviceID, std::nullopt);

  room.session->configureError = CaptureError{CaptureError::Kind::busy, "taken"};
  manager->switchCamera("desk");
  room.settle();
  EXPECT_EQ(room.session->configurations, 3) << "refused, and nobody is told";
  EXPECT_TRUE(manager->isRunning());

  room.session->configureError.reset();
  manager->stopSession();
  manager->switchCamera("unplugged");
  startAndSettle();
  EXPECT_EQ(answers, 2);
  ASSERT_TRUE(room.session->request);
  EXPECT_EQ(room.session->request->deviceID, std::nullopt) << "the default camera stands in";
  start();
  manager->stopSession();
  start();
  room.loop->runPosted();
  room.analysisQueue->sync([] {});
  room.loop->runPosted();
  manager->switchCamera("desk");  // while the start is on the camera queue
  room.settle();
  EXPECT_EQ(room.session->request->deviceID, "desk");
}

TEST_F(AVCaptureManagerTest, TheDeviceIsWantedOnlyWhileAnAnalyserTakesFrames) {
  const auto wants = [this](bool wanted, std::int64_t pace = 0) {
    return room.session->demand == FrameDemand{wanted, pace};
  };
  EXPECT_TRUE(wants(false));
  const auto slow = analyzer(3);
  startWith(slow);
  EXPECT_TRUE(wants(true, 334));
  slow->isSuspended = true;
  EXPECT_TRUE(wants(false));
  const auto quick = analyzer(10);
  manager->setAnalyzer(quick);
  EXPECT_TRUE(wants(true, 101));
  slow->isSuspended = false;
  slow->isSuspended = true;
  EXPECT_TRUE(wants(true, 101)) << "an analyser that was replaced has no say";
  manager->setAnalyzer(nullptr);
  EXPECT_TRUE(wants(false));
  room.settle();
  EXPECT_EQ(room.detector->restarts, 2) << "once for each analyser";
}

TEST_F(AVCaptureManagerTest, ACalibrationKeepsItsSamplesWhoeverAnalyses) {
  room.detector->next = test::detectionsOf({test::faceOf(0.25)}, {});
  std::vector<double> widths;
  manager->startCalibrationSampling([](double) { FAIL() << "replaced"; });
  manager->startCalibrationSampling([&](double width) { widths.push_back(width); });
  startAndSettle();
  const auto sampled = [&] {
    room.settle();  // the frames have found their new way
    room.loop->advance(200);
    room.session->request->onFrame(room.frame());
    room.settle();
    return widths.size();
  };
  EXPECT_EQ(sampled(), 1U) << "by an analyser of its own";
  const auto other = analyzer();
  manager->setAnalyzer(other);
  EXPECT_EQ(sampled(), 2U);
  manager->setAnalyzer(nullptr);
  EXPECT_EQ(sampled(), 3U) << "by one of its own again";
  manager->stopCalibrationSampling();
  EXPECT_EQ(sampled(), 3U);
  manager->setAnalyzer(nullptr);
  EXPECT_EQ(manager->analyzer(), nullptr);
}

}  // namespace
}  // namespace sentrel
