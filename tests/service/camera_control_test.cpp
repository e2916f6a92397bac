// SPDX-License-Identifier: Apache-2.0
//
// When the camera opens and closes, and what is told of it: what random steps against a model cannot show.
#include "support/test_core.h"

namespace sentrel {
namespace {

using FailureKind = CameraFailure::Kind;
using Kind = FilterState::Kind;
using Phase = CalibrationSession::Phase;

class CameraControlTest : public testing::Test, protected test::TestCore {
 protected:
  CameraControlTest() : TestCore(test::TestMachine::Queues::manual) {}

  [[nodiscard]] std::optional<FailureKind> failure() const {
    const auto& told = control->failure().get();
    return told ? std::optional(told->kind) : std::nullopt;
  }
  void plug() {
    machine.session->cameras = {{"front", "Front", CameraPosition::front}};
    machine.session->seen = true;
    machine.session->devicesChanged.emit();
    machine.settle();
  }
};

TEST_F(CameraControlTest, ACalibrationFailsWithWhateverSpeaksAgainstTheCamera) {
  const Phase failed =
      Phase::failed("La caméra reste fermée tant que la session est verrouillée, en veille ou en pause.");
  for (const auto rest : {CameraControl::Rest::away, CameraControl::Rest::lowBattery}) {
    const auto calibration = newCalibration();
    calibration->start();
    see(alone, 4000);
    EXPECT_EQ(calibration->phase().get(), Phase::measuring());
    control->setRest(rest, true);
    machine.settle();
    EXPECT_EQ(calibration->phase().get(), failed);
    EXPECT_FALSE(machine.session->running);
    control->setRest(rest, false);
  }
}

TEST_F(CameraControlTest, ProtectionComesAndGoesUnderACalibration) {
  const auto calibration = newCalibration();
  calibration->start();
  see(alone, 1000);
  start();
  EXPECT_TRUE(service->isActive());
  see(alone, 3500);
  stop();
  EXPECT_TRUE(machine.session->running) << "it still measures";
  see(alone, 2000);
  EXPECT_EQ(calibration->phase().get(), Phase::done(49));
  EXPECT_FALSE(machine.session->running);
}

TEST_F(CameraControlTest, AStartWithoutACameraIsTriedEveryFiveSecondsAndToldOnce) {
  machine.session->cameras.clear();
  machine.session->seen = false;
  start();
  EXPECT_TRUE(service->isStarting());
  EXPECT_EQ(failure(), FailureKind::noCamera);
  machine.advance(29'900);
  EXPECT_EQ(desktop.notifications->added, 0);
  machine.advance(120'000);
  EXPECT_EQ(desktop.notifications->added, 1);
  EXPECT_EQ(desktop.notifications->shown["sentrel.camera"].title, "error_no_camera");
  EXPECT_EQ(machine.detector->preparations, 30);
  plug();
  EXPECT_TRUE(service->isActive());
  EXPECT_TRUE(desktop.notifications->shown.empty());
  see(alone, 5000);
  stop();
  EXPECT_EQ(stats->stats.get(), (FilterStats{0, 1, 5})) << "waiting is not protection";
}

TEST_F(CameraControlTest, APermissionThatIsDeniedIsToldAndNotAskedForAgain) {
  machine.session->status = AuthorizationStatus::denied;
  start();
  EXPECT_EQ(failure(), FailureKind::cameraDenied);
  machine.session->status = AuthorizationStatus::authorized;
  machine.advance(20'000);
  EXPECT_FALSE(service->isActive()) << "not tried again by itself";
  plug();
  EXPECT_TRUE(service->isActive()) << "but when a device appears";
  stop();

  // A person's no ends the start; the next one asks again.
  machine.session->status = AuthorizationStatus::notDetermined;
  start();
  machine.session->accessRequests.at(0)(false);
  machine.settle();
  EXPECT_FALSE(service->isStarting());
  EXPECT_EQ(failure(), FailureKind::cameraDenied);
  plug();
  EXPECT_EQ(machine.session->accessRequests.size(), 1U) << "a device is no reason to ask";
  start();
  EXPECT_EQ(machine.session->accessRequests.size(), 2U);
  EXPECT_EQ(failure(), std::nullopt);
}

TEST_F(CameraControlTest, AChainThatGivesNothingIsBegunAnew) {
  start();
  machine.advance(2500);
  EXPECT_EQ(failure(), FailureKind::cameraBusy);
  machine.advance(5000);
  EXPECT_EQ(machine.session->starts, 2);
  // Ten failed detections in a row are a failure, too, and fewer are no empty room.
  see(lookingAway, 1800);
  see(std::nullopt, 900);
  EXPECT_EQ(state(), Kind::inattention);
  see(lookingAway, 200);
  see(std::nullopt, 1000);
  EXPECT_EQ(failure(), FailureKind::analysisFailed);
  const int before = machine.detector->preparations;
  see(std::nullopt, 5200);
  EXPECT_EQ(machine.detector->preparations, before + 1) << "the models are loaded anew";
}

TEST_F(CameraControlTest, AnInterruptionIsWaitedOut) {
  start();
  // Another program has the camera: the session says so again and again.
  for (int i = 0; i < 30; ++i) {
    machine.session->interrupt(CaptureError::Kind::busy);
    machine.advance(2000);
    EXPECT_EQ(state(), Kind::cameraBusy);
  }
  EXPECT_EQ(overlay->currentAlpha, 0.0F);
  EXPECT_TRUE(overlay->isShowing()) << "neither shown nor hidden, only clear";
  EXPECT_EQ(machine.session->starts, 1) << "the session itself waits for its camera";
  machine.session->cause.reset();
  machine.session->interruptionEnded.emit();
  EXPECT_EQ(state(), Kind::nominal);

  // A frame that was under way when the camera was lost does not bring it back, a later one does.
  machine.session->request->onFrame(machine.frame());
  machine.analysisQueue->sync([] {});
  machine.loop->advance(1);
  machine.session->interrupt(CaptureError::Kind::deviceUnavailable);
  machine.settle();
  EXPECT_EQ(state(), Kind::cameraBusy);
  machine.session->cause.reset();
  see(alone, 200);
  EXPECT_EQ(state(), Kind::nominal);
  EXPECT_EQ(failure(), std::nullopt) << "nothing stale is told";
}

}  // namespace
}  // namespace sentrel
