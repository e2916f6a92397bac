// SPDX-License-Identifier: Apache-2.0

#include "support/test_core.h"

namespace sentrel {
namespace {

struct AVCaptureManagerTest : testing::Test, test::TestCore {
  void start() {
    camera->startSession([this](const std::optional<StartError>& told) {
      ++answers;
      error = told;
    });
    machine.settle();
  }
  void stop() {
    camera->stopSession(nullptr);
    machine.settle();
  }
  std::shared_ptr<VisionFaceAnalyzer> analyzer(std::int64_t fps = 10) {
    return std::make_shared<VisionFaceAnalyzer>(fps, machine.environment());
  }

  test::FakeCaptureSession& session = *machine.session;
  int answers = 0;  // to starts
  std::optional<StartError> error;
};

TEST_F(AVCaptureManagerTest, AStartWhileItRunsIsNoneAndAStopWinsOverOneThatIsUnderWay) {
  start();
  start();
  EXPECT_EQ(answers, 2);
  EXPECT_EQ(session.starts, 1);
  EXPECT_EQ(session.request->width, 640);
  EXPECT_EQ(session.request->height, 480);
  bool closed = false;
  camera->stopSession([&] { closed = !session.running; });
  start();
  EXPECT_TRUE(closed && session.running);
  EXPECT_EQ(session.starts, 2);
  stop();
  session.whileListing = [this] { camera->stopSession(nullptr); };
  start();
  session.whileListing = nullptr;
  EXPECT_EQ(session.starts, 2) << "while devices are awaited, the last moment";
  EXPECT_EQ(answers, 3);
  start();
  EXPECT_TRUE(camera->isRunning()) << "none of it stays behind";
}

TEST_F(AVCaptureManagerTest, FailuresTellTheirCauseAndTheNextStartIsFree) {
  const CaptureError denied{CaptureError::Kind::accessDenied, "no permission for the node"};
  const CaptureError taken{CaptureError::Kind::busy, "taken"};
  const CaptureError noService{CaptureError::Kind::noService, "not running"};
  const FaceDetectorError noModel{"models/face.tflite is damaged"};
  const auto unseen = [this] {
    session.cameras.clear();
    session.seen = false;
  };
  const struct {
    std::string key;
    std::function<void()> fault;
    StartError expected;
  } cases[] = {
      {"error_camera_denied", [&] { session.status = AuthorizationStatus::restricted; },
       CameraError::permissionDenied},
      {"error_model_missing", [&] { machine.detector->prepareError = noModel; }, noModel},
      {"error_no_camera", unseen, CameraError::noCameraAvailable},
      {"error_no_pipewire", [&] { unseen(), session.unseen = noService; }, noService},
      {"error_camera_denied", [&] { session.configureError = denied; }, denied},
      {"error_camera_busy", [&] { session.configureError = taken; }, CameraError::configurationFailed},
  };
  for (const auto& [key, fault, expected] : cases) {
    fault();
    start();
    ASSERT_TRUE(error) << key;
    EXPECT_EQ(error->index(), expected.index()) << key;
    EXPECT_EQ(describe(*error), describe(expected)) << key;
    EXPECT_EQ(textKey(describe(*error).kind), key);
    EXPECT_FALSE(session.running) << key;

    session.status = AuthorizationStatus::authorized;
    session.cameras.clear();  // that it was seen is enough
    session.seen = true;
    session.configureError.reset();
    machine.detector->prepareError.reset();
    start();
    EXPECT_FALSE(error) << "after " << key;
    EXPECT_TRUE(camera->isRunning());
    stop();
  }
}

TEST_F(AVCaptureManagerTest, ThePreferredCameraIsUsedAndSwitched) {
  session.cameras.push_back({"desk", "Desk", CameraPosition::unspecified});
  FilterSettings next;
  next.selectedCameraID = "desk";
  settings->save(next);
  EXPECT_FALSE(session.request) << "stopped: only the choice changes";
  session.whileListing = [&] { camera->switchCamera("front"); };  // while the start is on the camera queue
  start();
  EXPECT_EQ(session.request->deviceID, "front");
  session.whileListing = nullptr;
  camera->switchCamera(std::nullopt);
  machine.settle();
  ASSERT_TRUE(session.request);
  EXPECT_EQ(session.request->deviceID, std::nullopt) << "whoever edits the choice switches a running camera";
  stop();
  start();
  EXPECT_EQ(session.request->deviceID, "desk");
}

TEST_F(AVCaptureManagerTest, ACalibrationKeepsItsSamplesWhoeverAnalyses) {
  machine.detector->next = test::detectionsOf({test::faceOf(0.25)}, {});
  std::vector<double> widths;
  camera->startCalibrationSampling([](double) { FAIL() << "replaced"; });
  camera->startCalibrationSampling([&](double width) { widths.push_back(width); });
  start();
  const auto sampled = [&] {
    machine.advance(200);  // the frames have found their new way
    session.request->onFrame(machine.frame());
    machine.settle();
    return widths.size();
  };
  EXPECT_EQ(sampled(), 1U) << "by an analyser of its own";
  camera->setAnalyzer(analyzer());
  EXPECT_EQ(sampled(), 2U);
  camera->setAnalyzer(nullptr);
  EXPECT_EQ(sampled(), 3U) << "by one of its own again";
  camera->stopCalibrationSampling();
  EXPECT_EQ(sampled(), 3U);
  camera->setAnalyzer(nullptr);
  EXPECT_EQ(camera->analyzer(), nullptr);
}

}  // namespace
}  // namespace sentrel
