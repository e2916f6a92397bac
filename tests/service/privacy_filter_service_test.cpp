// SPDX-License-Identifier: Apache-2.0
#include "service/privacy_filter_service.h"

#include <limits>

#include "linux/desktop/system_clock.h"
#include "service/camera_choice.h"
#include "service/service_test_base.h"
#include "service/viewing_distance.h"

namespace sentrel {
namespace {

using Kind = FilterState::Kind;
using testing::ElementsAre;
using testing::FloatEq;

class PrivacyFilterServiceTest : public test::ServiceTestBase {
 protected:
  void expectOff(const char* when) {
    EXPECT_FALSE(service->isActive()) << when;
    EXPECT_EQ(state(), Kind::inactive) << when;
    EXPECT_FALSE(room.session->running) << when;
    EXPECT_TRUE(backend->shown.empty()) << when;
    EXPECT_EQ(observers(), 0U) << when;
  }
};

TEST_F(PrivacyFilterServiceTest, TurnsWhatTheCameraSeesIntoWhatIsShown) {
  start();
  EXPECT_TRUE(service->isActive());
  see(alone, 500);
  EXPECT_EQ(state(), Kind::nominal);
  EXPECT_FLOAT_EQ(overlay->currentAlpha, 0.4125F);
  ASSERT_EQ(backend->shown.size(), 1U);
  EXPECT_FLOAT_EQ(static_cast<float>(backend->shown[1].scenes.back().stripes->layerAlpha), 0.4125F);

  see(lookingAway, 1700);
  EXPECT_EQ(state(), Kind::inattention);
  see(watched, 700);
  EXPECT_EQ(state(), Kind::alert);
  EXPECT_TRUE(service->isAlert());
  EXPECT_TRUE(backend->shown[1].scenes.back().banner);
  EXPECT_FLOAT_EQ(overlay->currentAlpha, 0.75F);

  see(alone, 3200);
  EXPECT_EQ(state(), Kind::nominal);
  EXPECT_FALSE(service->isAlert());
  EXPECT_FALSE(backend->shown[1].scenes.back().banner);

  stop();
  expectOff("stopped");
  EXPECT_EQ(room.session->demand, FrameDemand{});
}

TEST_F(PrivacyFilterServiceTest, OpacityComesAtOnceAndTheRestInTheNextTurn) {
  start();
  see(watched, 500);
  bool alertModeAtOpacity = true;
  const auto watch =
      overlay->currentAlpha.onChange([&](float) { alertModeAtOpacity = overlay->isAlertMode; });
  see(watched, 200);
  EXPECT_TRUE(overlay->isAlertMode);
  EXPECT_FALSE(alertModeAtOpacity);
}

TEST_F(PrivacyFilterServiceTest, OverlappingStartsAndStops) {
  service->start();
  service->start();
  room.settle();
  EXPECT_TRUE(service->isActive());
  EXPECT_EQ(room.session->starts, 1);
  start();
  EXPECT_EQ(room.session->starts, 1) << "already running";

  service->stop();
  service->start();
  room.settle();
  EXPECT_TRUE(service->isActive()) << "off and on again ends on";
  EXPECT_TRUE(room.session->running);
  see(alone, 200);
  EXPECT_EQ(state(), Kind::nominal);
  EXPECT_FALSE(backend->shown.empty());

  stop();
  service->start();
  service->stop();
  room.settle();
  expectOff("stopped while it started");

  service->start();
  service->stop();
  service->start();
  room.settle();
  EXPECT_TRUE(service->isActive());
  EXPECT_EQ(observers(), 2U);
  stop();

  room.session->status = AuthorizationStatus::notDetermined;
  start();
  service->stop();
  room.session->accessRequests.at(0)(true);
  room.settle();
  expectOff("stopped while the person was asked");
}

TEST_F(PrivacyFilterServiceTest, ACameraThatCannotStartLeavesProtectionOff) {
  room.session->status = AuthorizationStatus::denied;
  start();
  expectOff("denied");
  const std::size_t timers = room.loop->timerCount();
  EXPECT_EQ(timers, 0U) << "no retry from here";
  room.session->status = AuthorizationStatus::authorized;
  start();
  EXPECT_TRUE(service->isActive());
  EXPECT_EQ(state(), Kind::cameraBusy) << "the machine still waits out its delay";
  room.advance(5000);
  EXPECT_EQ(state(), Kind::nominal);
  EXPECT_EQ(room.session->starts, 1);
}

TEST_F(PrivacyFilterServiceTest, AnInterruptionIsWaitedOut) {
  start();
  std::vector<Kind> states;
  const auto watch = service->fsmState().onChange([&](const FilterState& s) { states.push_back(s.kind()); });
  room.session->wasInterrupted.emit();
  room.advance(2000);
  EXPECT_EQ(overlay->currentAlpha, 0.0F);
  EXPECT_TRUE(overlay->isShowing()) << "neither shown nor hidden, only clear";
  room.session->wasInterrupted.emit();
  room.advance(2999);
  EXPECT_THAT(states, ElementsAre(Kind::cameraBusy));
  room.advance(1);
  EXPECT_THAT(states, ElementsAre(Kind::cameraBusy, Kind::nominal));
  EXPECT_EQ(room.session->starts, 1) << "the camera was running all along";

  room.session->wasInterrupted.emit();
  room.session->interruptionEnded.emit();
  room.settle();
  EXPECT_EQ(state(), Kind::nominal);
  room.advance(2000);
  room.session->wasInterrupted.emit();
  room.advance(3500);
  EXPECT_EQ(state(), Kind::cameraBusy) << "the delay counts from the last interruption";
  room.advance(1500);
  EXPECT_EQ(state(), Kind::nominal);
}

TEST_F(PrivacyFilterServiceTest, ARetryRestartsAStoppedCameraUntilItWorksAndAddsNothing) {
  start();
  camera->stopSession();
  room.settle();
  room.session->status = AuthorizationStatus::denied;
  room.session->wasInterrupted.emit();
  room.advance(5000);
  EXPECT_EQ(state(), Kind::cameraBusy) << "the restart failed";
  room.session->status = AuthorizationStatus::authorized;
  room.advance(5000);
  EXPECT_EQ(state(), Kind::nominal);
  EXPECT_EQ(room.session->starts, 2);
  EXPECT_EQ(observers(), 2U);
  see(alone, 300);
  EXPECT_EQ(room.detector->restarts, 3) << "each start has its own analyser";
}

TEST_F(PrivacyFilterServiceTest, AStopEndsARetry) {
  start();
  room.session->wasInterrupted.emit();
  room.advance(4950);
  stop();
  EXPECT_EQ(room.loop->timerCount(), 0U);
  room.advance(6000);
  expectOff("stopped before the retry");

  start();
  camera->stopSession();
  room.settle();
  room.session->wasInterrupted.emit();
  room.settle();
  // The very turn of the retry: the person's stop lies between it and the start that it asks for.
  const auto watch = service->fsmState().onChange([&](const FilterState& s) {
    if (s.is(Kind::nominal)) service->stop();
  });
  room.advance(6000);
  expectOff("stopped during the retry");
}

TEST_F(PrivacyFilterServiceTest, ASteppedWallClockLosesNoFrameAndChangesNoState) {
  std::int64_t wall = 1'700'000'000'000;
  AnalysisEnvironment environment = room.environment();
  environment.clock =
      std::make_shared<SystemClock>([&] { return wall; }, [loop = room.loop] { return loop->nowMs(); });
  service = std::make_shared<PrivacyFilterService>(
      PrivacyFilterService::Parts{environment, camera, room.session, overlay, settings});
  start();
  see(alone, 1000);
  for (const std::int64_t step : {-3'600'000, 7'200'000}) {
    wall += step;
    const std::size_t before = room.detector->timestamps.size();
    see(lookingAway, 1400);
    EXPECT_EQ(room.detector->timestamps.size(), before + 14);
    EXPECT_EQ(state(), Kind::nominal) << "1.4 s are still 1.4 s";
    see(alone, 300);
  }
}

TEST_F(PrivacyFilterServiceTest, SettingsReachMachineOverlayAndDetector) {
  start();
  EXPECT_THAT(room.detector->tunings, ElementsAre(FaceTuning{3, true}));
  see(test::detectionsOf({test::faceOf(1.0 / 6)}, {test::faceOf(1.0 / 6)}), 300);
  EXPECT_EQ(overlay->matrixDistanceCm, 120);

  FilterSettings next = settings->settings;
  next.filterStrength = 5;
  next.matrixColorArgb = 0xFF00FF00;
  next.inattentionDelayMs = 500;
  settings->save(next);
  room.settle();
  EXPECT_FLOAT_EQ(overlay->currentAlpha, 0.5225F);
  EXPECT_EQ(overlay->matrixColorArgb, 0xFF00FF00U);
  EXPECT_EQ(overlay->matrixDistanceCm, 120) << "the last distance";
  see(lookingAway, 700);
  EXPECT_EQ(service->fsmState().get(), FilterState::inattention(5));
  EXPECT_EQ(room.detector->tunings.size(), 1U) << "nothing new for the detector";

  next.sensitivity = 9;
  next.glassesCompat = false;
  settings->save(next);
  room.settle();
  EXPECT_EQ(room.detector->tunings.back(), (FaceTuning{5, false}));
  next.matrixStripeAlpha = 1.0F;
  stop();
  settings->save(next);
  EXPECT_NE(overlay->matrixStripeAlpha, 1.0F) << "off: the next start takes it";
}

TEST_F(PrivacyFilterServiceTest, TheStoredCameraIsPreferredAtEveryStart) {
  room.session->cameras.push_back({"desk", "Desk", CameraPosition::unspecified});
  const CameraChoice choice(camera, settings);
  FilterSettings next = settings->settings;
  const auto save = [&](std::optional<std::string> id) {
    next.selectedCameraID = std::move(id);
    settings->save(next);
    room.settle();
  };
  save("desk");
  start();
  EXPECT_EQ(room.session->input->deviceID, "desk");
  save("front");
  EXPECT_EQ(room.session->input->deviceID, "desk") << "who edits the choice switches a running camera";
  stop();
  start();
  EXPECT_EQ(room.session->input->deviceID, "front");
}

TEST(ViewingDistance, IsBoundedAndTruncated) {
  constexpr float notANumber = std::numeric_limits<float>::quiet_NaN();
  const struct {
    float ratio;
    float coefficient;
    std::int64_t cm;
  } cases[] = {{0.05F, 2, 300}, {0.05F, 1, 200}, {0.01F, 1, 200},  {0.5F, 1, 20},          {0.9F, 4, 80},
               {0.2F, 2, 100},  {0.3F, 1, 33},   {0.2F, 0.1F, 20}, {0.2F, notANumber, 20}, {0.2F, -1, 20}};
  for (const auto& [ratio, coefficient, cm] : cases)
    EXPECT_EQ(matrixDistanceFor(ratio, coefficient), cm) << ratio << " x " << coefficient;
  EXPECT_FALSE(isNewMatrixDistance(70, 60));
  EXPECT_TRUE(isNewMatrixDistance(71, 60));
  EXPECT_FALSE(isNewMatrixDistance(50, 60));
  EXPECT_TRUE(isNewMatrixDistance(49, 60));
}

}  // namespace
}  // namespace sentrel
