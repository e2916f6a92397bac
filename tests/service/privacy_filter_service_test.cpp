// SPDX-License-Identifier: Apache-2.0
#include "service/privacy_filter_service.h"

#include <limits>

#include "linux/desktop/system_clock.h"
#include "service/covered_screens.h"
#include "service/filter_overlay.h"
#include "service/service_test_base.h"

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

TEST_F(PrivacyFilterServiceTest, OverlappingStartsAndStops) {
  service->start();
  start();
  EXPECT_TRUE(service->isActive());
  start();
  EXPECT_EQ(room.session->starts, 1) << "already running";
  service->stop();
  start();
  EXPECT_TRUE(service->isActive()) << "off and on again ends on";
  see(alone, 200);
  EXPECT_EQ(state(), Kind::nominal);
  EXPECT_EQ(backend->shown.size(), 1U);
  EXPECT_EQ(observers(), observersWhileOn);
  stop();
  service->start();
  stop();
  expectOff("stopped while it started");
  room.session->status = AuthorizationStatus::notDetermined;
  start();
  service->stop();
  room.session->accessRequests.at(0)(true);
  room.settle();
  expectOff("stopped while the person was asked");
}

TEST_F(PrivacyFilterServiceTest, AnInterruptionIsWaitedOut) {
  start();
  std::vector<Kind> states;
  const auto watch = service->fsmState().onChange([&](const FilterState& s) { states.push_back(s.kind()); });
  room.session->interrupt(CaptureError::Kind::busy);
  room.advance(2000);
  EXPECT_EQ(overlay->currentAlpha, 0.0F);
  EXPECT_TRUE(overlay->isShowing()) << "neither shown nor hidden, only clear";
  // Another program has the camera: the session says so again and again.
  for (int i = 0; i < 30; ++i) {
    room.session->wasInterrupted.emit();
    room.advance(2000);
  }
  EXPECT_THAT(states, ElementsAre(Kind::cameraBusy));
  EXPECT_EQ(room.session->starts, 1) << "the session itself waits for its camera";
  room.session->endInterruption();
  EXPECT_THAT(states, ElementsAre(Kind::cameraBusy, Kind::nominal));
  EXPECT_EQ(desktop.stats->stats.get().sessionCount, 1);

  // A frame that was under way when the camera was lost does not bring it back, a later one does.
  room.session->request->onFrame(room.frame());
  room.analysisQueue->sync([] {});
  room.loop->advance(1);
  room.session->interrupt(CaptureError::Kind::deviceUnavailable);
  room.settle();
  EXPECT_EQ(state(), Kind::cameraBusy);
  room.session->cause.reset();
  see(alone, 200);
  EXPECT_EQ(state(), Kind::nominal);
  EXPECT_EQ(control->failure().get(), std::nullopt) << "nothing stale is told";
}

TEST_F(PrivacyFilterServiceTest, ASteppedWallClockLosesNoFrameAndChangesNoState) {
  std::int64_t wall = 1'700'000'000'000;
  AnalysisEnvironment environment = room.environment();
  environment.clock =
      std::make_shared<SystemClock>([&] { return wall; }, [loop = room.loop] { return loop->nowMs(); });
  service = desktop.service(environment, camera, desktop.control(environment, camera), overlay, settings);
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

TEST_F(PrivacyFilterServiceTest, AnAlertIsFeltToldShownAndCountedOnceInHalfAMinute) {
  start();
  const auto alertOnce = [&] {
    see(watched, 700);
    EXPECT_EQ(state(), Kind::alert);
    room.detector->next = alone;
  };
  alertOnce();
  ASSERT_EQ(desktop.notifications->shown.count("sentrel.alert"), 1U);
  EXPECT_EQ(desktop.notifications->shown["sentrel.alert"].title, "notif_alert_title");
  see(watched, 200);
  ASSERT_TRUE(desktop.retroOverlay->picture.get());
  EXPECT_TRUE(desktop.retroOverlay->picture.get()->picture);
  see(alone, 3200);
  EXPECT_EQ(desktop.notifications->shown.size(), 0U) << "withdrawn";
  EXPECT_FALSE(desktop.retroOverlay->picture.get()) << "hidden";

  see(alone, 15'000);
  alertOnce();
  EXPECT_EQ(desktop.notifications->added, 1) << "too soon after the first";
  see(alone, 11'000);
  FilterSettings next = settings->settings;
  next.hapticOnAlert = false;
  settings->save(next);
  alertOnce();
  EXPECT_EQ(desktop.notifications->added, 2);
  EXPECT_EQ(desktop.haptics->performed, 1);
  EXPECT_EQ(desktop.stats->stats.get().alertCount, 2);
  desktop.session->observer.tell(SessionEvent::screenIsLocked);
  room.settle();
  EXPECT_EQ(desktop.notifications->shown.size(), 1U) << "a pause leaves it where it is";
  stop();
  EXPECT_EQ(desktop.notifications->shown.size(), 0U);
}

TEST_F(PrivacyFilterServiceTest, SessionsAndTheirWholeSecondsAreCounted) {
  start();
  room.loop->advance(2'999);
  stop();
  EXPECT_EQ(desktop.stats->stats.get(), (FilterStats{0, 1, 2}));
  stop();
  EXPECT_EQ(desktop.stats->stats.get().totalActiveSeconds, 2) << "counted once";

  desktop.notifications->answering = false;
  start();
  EXPECT_EQ(room.session->starts, 1) << "the camera waits for the answer";
  stop();
  desktop.notifications->questions.at(0)(true);
  room.settle();
  expectOff("stopped while notifications were asked for");
  EXPECT_EQ(desktop.stats->stats.get(), (FilterStats{0, 1, 2}));
}

TEST_F(PrivacyFilterServiceTest, WhoIsAwayIsNeitherWatchedNorCovered) {
  start();
  see(alone, 300);
  const auto tell = [&](SessionEvent event) {
    desktop.session->observer.tell(event);
    EXPECT_TRUE(camera->analyzer()->isSuspended || !isGoingAway(event));
    room.settle();
  };
  const auto paused = FilterState::autoPaused(PauseReason::screenOff());
  tell(SessionEvent::screenIsLocked);
  EXPECT_EQ(service->fsmState().get(), paused);
  EXPECT_FALSE(room.session->running);
  EXPECT_TRUE(backend->shown.empty());
  EXPECT_EQ(desktop.session->closings, 1) << "sleep may go on";
  // The late word of a camera, an empty battery and a charged one.
  room.session->wasInterrupted.emit();
  room.session->interruptionEnded.emit();
  for (const bool charging : {false, true}) {
    desktop.power->source = PowerSourceDescription{5, charging};
    room.advance(30'000, 5000);
    EXPECT_EQ(service->fsmState().get(), paused);
  }
  tell(SessionEvent::screenIsUnlocked);
  EXPECT_EQ(state(), Kind::nominal);
  see(alone, 300);
  EXPECT_EQ(room.detector->timestamps.size(), 6U) << "the analyser looks again";

  // A camera that is being opened again when the person goes away once more.
  tell(SessionEvent::screenIsLocked);
  room.detector->whilePreparing = [this] { desktop.session->observer.tell(SessionEvent::screensDidSleep); };
  desktop.session->observer.tell(SessionEvent::screenIsUnlocked);
  room.settle();
  room.detector->whilePreparing = nullptr;
  EXPECT_EQ(service->fsmState().get(), paused);
  EXPECT_FALSE(room.session->running);
  EXPECT_TRUE(backend->shown.empty());
  tell(SessionEvent::sessionDidBecomeActive);
  EXPECT_TRUE(room.session->running);
  EXPECT_EQ(backend->shown.size(), 1U);
}

TEST_F(PrivacyFilterServiceTest, TheBatteryPausesBelowItsThreshold) {
  start();
  const auto low = FilterState::autoPaused(PauseReason::lowBattery());
  const auto on = FilterState::nominal(3);
  using Power = std::optional<PowerSourceDescription>;
  const struct {
    Power power;
    std::int64_t threshold;
    FilterState expected;
  } checks[] = {{Power{{9, false}}, 10, low},
                {std::nullopt, 10, low},
                {Power{{10, false}}, 10, on},
                {Power{{9, false}}, 10, low},
                {Power{{5, true}}, 10, on},
                {Power{{9, std::nullopt}}, 10, low},
                {Power{{std::nullopt, false}}, 10, on},
                {Power{{9, false}}, 10, low},
                {Power{{9, false}}, 0, on},
                {Power{{0, false}}, -3, on}};
  for (const auto& [power, threshold, expected] : checks) {
    FilterSettings next = settings->settings;
    next.batteryThresholdPercent = threshold;
    settings->save(next);
    desktop.power->source = power;
    const FilterState before = service->fsmState();
    see(alone, 29'900);
    EXPECT_EQ(service->fsmState().get(), before);
    room.advance(100);
    EXPECT_EQ(service->fsmState().get(), expected) << power->currentCapacity.value_or(-1) << " " << threshold;
    EXPECT_EQ(room.session->isOpen(), expected == on) << "the light is out while paused";
  }
}

TEST_F(PrivacyFilterServiceTest, TheShortcutSwitchesOffAndIsNamedWhereItWorks) {
  desktop.keys->possible = false;
  start();
  EXPECT_FALSE(overlay->shortcutAvailable);
  desktop.keys->possible = true;
  desktop.keys->canObserveChanged.emit();
  EXPECT_TRUE(overlay->shortcutAvailable);
  for (const auto& [away, back] : {std::pair(SessionEvent::screenIsLocked, SessionEvent::screenIsUnlocked),
                                   std::pair(SessionEvent::screensDidSleep, SessionEvent::screensDidWake)}) {
    desktop.session->tell(away);
    EXPECT_EQ(desktop.keys->observer.count(), 0U) << "a password is being typed";
    desktop.keys->canObserveChanged.emit();
    EXPECT_FALSE(overlay->shortcutAvailable);
    desktop.session->tell(back);
    EXPECT_EQ(desktop.keys->observer.count(), 1U);
    EXPECT_TRUE(overlay->shortcutAvailable);
  }
  desktop.keys->observer.tell();
  room.settle();
  expectOff("by the keys");
  EXPECT_FALSE(overlay->shortcutAvailable);
  FilterSettings next = settings->settings;
  next.globalShortcutEnabled = false;
  settings->save(next);
  start();
  desktop.session->tell(SessionEvent::screenIsLocked);
  desktop.session->tell(SessionEvent::screenIsUnlocked);
  EXPECT_EQ(desktop.keys->observer.count(), 0U);
}

TEST(CoveredScreens, AreAllOrTheMainOne) {
  const auto backend = std::make_shared<test::FakeOverlayBackend>();
  const Screen left{1, "left", {0, 0, 800, 600}, false};
  const Screen main{2, "main", {800, 0, 800, 600}, true};
  backend->screenList = {left, main};
  const auto settings = std::make_shared<SettingsRepository>(std::make_shared<test::MemoryUserDefaults>(),
                                                             std::make_shared<test::FakeLoginItem>());
  CoveredScreens covered(backend);
  covered.follow(settings);
  int changes = 0;
  const auto watch = covered.screensChanged.connect([&] { ++changes; });
  EXPECT_THAT(covered.screens(), ElementsAre(left, main));
  FilterSettings next = settings->settings;
  next.coverAllScreens = false;
  settings->settings = next;
  EXPECT_THAT(covered.screens(), ElementsAre(main));
  settings->settings = next;
  EXPECT_EQ(changes, 1) << "only when it changes";
  backend->setScreens({left});
  EXPECT_THAT(covered.screens(), ElementsAre(left)) << "none is marked";
  EXPECT_EQ(changes, 2);
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
