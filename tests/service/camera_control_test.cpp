// SPDX-License-Identifier: Apache-2.0
//
// When the camera opens and closes, and what is told of it: what random steps against a model cannot show.
#include "support/test_core.h"

namespace sentrel {
namespace {

using FailureKind = CameraFailure::Kind;
using Kind = FilterState::Kind;
using Phase = CalibrationSession::Phase;

struct CameraControlTest : testing::Test, test::TestCore {
  [[nodiscard]] std::optional<FailureKind> failure() const {
    const auto& told = control->failure().get();
    return told ? std::optional(told->kind) : std::nullopt;
  }
  void plug() {
    machine.session->plug(true);
    machine.settle();
  }
};

TEST_F(CameraControlTest, ACalibrationCountsAndMeasuresTheMedianFace) {
  newCalibration();
  const Phase failed = Phase::failed("Aucun visage détecté. Assurez-vous d'être bien en face de la caméra.");
  const struct {
    std::vector<double> widths;
    Phase expected;
  } cases[] = {
      {{0.30, 0.10, 0.20}, Phase::done(49)},  {{0.16, 0.10, 0.14, 0.12}, Phase::done(70)},
      {{0.15, 0.15, 0.15}, Phase::done(66)},  {{0.5, 0.5, 0.5}, Phase::done(30)},
      {{0.02, 0.02, 0.02}, Phase::done(200)}, {{0.2, 0.2}, failed},
  };
  std::vector<std::int64_t> counted;
  const auto watch = calibration->phase().onChange([&](const Phase& p) { counted.push_back(p.remaining); });
  for (const auto& [widths, expected] : cases) {
    counted.clear();
    calibration->start();
    machine.advance(3000, 500);
    for (const double width : widths) camera->analyzer()->onCalibrationSample(width);
    machine.settle();
    EXPECT_THAT(counted, testing::ElementsAre(3, 2, 1, 0));
    EXPECT_EQ(calibration->phase().get(), Phase::measuring());
    machine.advance(3000, 500);
    EXPECT_EQ(calibration->phase().get(), expected) << widths[0];
    EXPECT_EQ(camera->analyzer(), nullptr) << "detached, and nobody else wants frames";
    calibration->start();
    EXPECT_EQ(calibration->phase().get(), expected) << "only from idle";
    calibration->cancel();
  }
  EXPECT_FALSE(machine.session->running) << "the light is out";
}

TEST_F(CameraControlTest, AStartWithoutACameraIsTriedEveryFiveSecondsAndToldOnce) {
  machine.session->cameras.clear();
  machine.session->seen = false;
  service->start();
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
  see(alone, 5900);
  stop();
  EXPECT_EQ(stats->stats.get(), (FilterStats{0, 1, 5})) << "once, its whole seconds, and not the waiting";
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
  EXPECT_EQ(failure(), FailureKind::noConsent);
  plug();
  EXPECT_EQ(machine.session->accessRequests.size(), 1U) << "a device is no reason to ask";
  start();
  EXPECT_EQ(machine.session->accessRequests.size(), 2U);
  EXPECT_EQ(failure(), std::nullopt);
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
}

TEST(CameraConsent, WhoWaitsLongestGivesUpAndNobodyIsTwiceAnswered) {
  CameraConsent consent(false);
  std::vector<int> refused;
  std::vector<int> agreed;
  const auto request = [&](int who) {
    consent.request([&, who](bool given) { (given ? agreed : refused).push_back(who); });
  };
  for (int who = 0; who < 10; ++who) request(who);
  consent.answer(true);
  request(10);
  EXPECT_THAT(refused, testing::ElementsAre(0, 1));
  EXPECT_THAT(agreed, testing::ElementsAre(2, 3, 4, 5, 6, 7, 8, 9, 10));
}

}  // namespace
}  // namespace sentrel
