// SPDX-License-Identifier: Apache-2.0
//
// Never blind without a word, never open behind the person's back.
#include <limits>

#include "service/service_test_base.h"

namespace sentrel {
namespace {

using FailureKind = CameraFailure::Kind;
using Kind = FilterState::Kind;
using Phase = CalibrationSession::Phase;
using testing::ElementsAre;

const auto paused = FilterState::autoPaused(PauseReason::screenOff());

class CameraRulesTest : public test::ServiceTestBase {
 protected:
  CameraRulesTest() : ServiceTestBase(test::MachineRoom::withoutThreads()) {}

  void tell(SessionEvent event) {
    desktop.session->tell(event);
    room.settle();
  }
  [[nodiscard]] std::optional<FailureKind> failure() const {
    const auto& told = control->failure().get();
    return told ? std::optional(told->kind) : std::nullopt;
  }
  void unplugAll() {
    room.session->cameras.clear();
    room.session->seen = false;
  }
  void plug() {
    room.session->cameras = {{"front", "Front", CameraPosition::front}};
    room.session->seen = true;
    room.session->devicesChanged.emit();
    room.settle();
  }
};

TEST_F(CameraRulesTest, ACalibrationEndsWithWhateverSpeaksAgainstTheCamera) {
  const auto battery = [&](int percent) {
    desktop.power->source = PowerSourceDescription{percent, false};
    see(alone, 30'000);
  };
  const struct {
    const char* what;
    bool isProtecting;
    std::function<void()> begins;
    std::function<void()> ends;
  } cases[] = {
      {"locked", true, [&] { tell(SessionEvent::screenIsLocked); },
       [&] { tell(SessionEvent::screenIsUnlocked); }},
      {"asleep, protection off", false, [&] { tell(SessionEvent::screensDidSleep); },
       [&] { tell(SessionEvent::screensDidWake); }},
      {"low battery", true, [&] { battery(5); }, [&] { battery(80); }},
      {"quitting", false,
       [&] {
         control->setRest(CameraControl::Rest::quitting, true);
         room.settle();
       },
       [&] { control->setRest(CameraControl::Rest::quitting, false); }},
  };
  for (const auto& [what, isProtecting, begins, ends] : cases) {
    for (const std::int64_t moment : {0, 1500, 4000}) {
      SCOPED_TRACE(std::string(what) + " after " + std::to_string(moment) + " ms");
      if (isProtecting) start();
      const auto calibration = newCalibration();
      calibration->start();
      see(alone, moment);
      begins();
      EXPECT_FALSE(room.session->running);
      room.advance(7000);
      EXPECT_FALSE(room.session->running) << "no countdown opens it again";
      if (!std::string(what).starts_with("low")) {  // that takes longer than a calibration to be noticed
        EXPECT_EQ(calibration->phase().get(), Phase::failed("La caméra reste fermée tant que la session est "
                                                            "verrouillée, en veille ou en pause."));
      }
      calibration->cancel();
      calibration->start();
      if (isProtecting || what == cases[3].what) {
        EXPECT_EQ(calibration->phase().get().kind(), Phase::Kind::failed) << "nor does another one";
      }
      room.advance(4000);
      calibration->cancel();
      ends();
      stop();
      EXPECT_EQ(observers(), 0U);
      EXPECT_EQ(camera->analyzer(), nullptr);
    }
  }
}

TEST_F(CameraRulesTest, ACalibrationThatIsGivenUpAtOnceLeavesNothingOpen) {
  const auto calibration = newCalibration();
  calibration->start();
  calibration->cancel();
  room.settle();
  EXPECT_FALSE(room.session->running);
  start();
  EXPECT_TRUE(service->isActive());
}

TEST_F(CameraRulesTest, ProtectionComesAndGoesUnderACalibration) {
  const auto calibration = newCalibration();
  calibration->start();
  see(alone, 1000);
  start();
  EXPECT_TRUE(service->isActive());
  see(alone, 3500);
  stop();
  EXPECT_TRUE(room.session->running) << "it still measures";
  see(alone, 2000);
  EXPECT_EQ(calibration->phase().get(), Phase::done(49));
  EXPECT_FALSE(room.session->running);
}

TEST_F(CameraRulesTest, TheDefaultCameraChosenWhileNoneIsListedIsWaitedFor) {
  camera->switchCamera("front");
  start();
  see(alone, 300);
  room.session->cameras.clear();
  room.session->interrupt(CaptureError::Kind::deviceUnavailable);
  room.settle();
  camera->switchCamera(std::nullopt);
  room.settle();
  room.advance(20'000);
  EXPECT_EQ(state(), Kind::cameraBusy);
  plug();
  room.session->cause.reset();
  see(alone, 300);
  EXPECT_EQ(state(), Kind::nominal);
  EXPECT_TRUE(room.session->delivers());

  // One that cannot be opened leaves the session without a camera, and the session then tells nothing.
  room.session->configureError = CaptureError{CaptureError::Kind::accessDenied, "no"};
  camera->switchCamera("front");
  room.settle();
  EXPECT_FALSE(room.session->request);
  room.advance(2500);
  EXPECT_EQ(state(), Kind::cameraBusy) << "it does not say that it sees";
  room.session->configureError.reset();
  see(alone, 5500);
  EXPECT_EQ(state(), Kind::nominal);
}

TEST_F(CameraRulesTest, TheMachineWatchesAgainOnlyOnceTheCameraIsOpen) {
  start();
  see(alone, 300);
  tell(SessionEvent::screenIsLocked);
  std::vector<Kind> states;
  const auto watch = service->fsmState().onChange([&](const FilterState& s) { states.push_back(s.kind()); });
  room.detector->prepareError = FaceDetectorError{"gone"};
  tell(SessionEvent::screenIsUnlocked);
  room.advance(12'000);
  EXPECT_THAT(states, ElementsAre(Kind::cameraBusy));
  EXPECT_EQ(failure(), FailureKind::modelMissing);
  EXPECT_TRUE(backend->shown.empty());
  room.detector->prepareError.reset();
  room.advance(5000);
  EXPECT_THAT(states, ElementsAre(Kind::cameraBusy, Kind::nominal));
  EXPECT_EQ(desktop.stats->stats.get().sessionCount, 1);
}

TEST_F(CameraRulesTest, AStartWhileLockedWaitsForTheUnlock) {
  desktop.session->answering = false;
  desktop.session->isAway = true;
  start();
  room.advance(300);
  EXPECT_FALSE(room.session->running) << "nobody knows yet";
  desktop.session->answer();
  room.advance(10'000);
  EXPECT_EQ(room.session->starts, 0);
  EXPECT_EQ(backend->created, 0);
  tell(SessionEvent::screenIsUnlocked);
  EXPECT_TRUE(service->isActive());
  see(alone, 1000);
  stop();
  EXPECT_EQ(desktop.stats->stats.get(), (FilterStats{0, 1, 1})) << "waiting is not protection";
}

TEST_F(CameraRulesTest, AFirstStartIsTriedUntilItSees) {
  unplugAll();
  start();
  std::vector<bool> active;
  const auto watch = service->isActive().onChange([&](bool on) { active.push_back(on); });
  EXPECT_TRUE(service->isStarting());
  EXPECT_EQ(failure(), FailureKind::noCamera);
  EXPECT_EQ(state(), Kind::inactive);
  room.advance(29'900);
  EXPECT_EQ(desktop.notifications->added, 0);
  room.advance(120'000);
  EXPECT_EQ(desktop.notifications->added, 1) << "told once";
  EXPECT_EQ(desktop.notifications->shown["sentrel.camera"].title, "error_no_camera");
  EXPECT_EQ(room.detector->preparations, 30) << "every 5 s";
  plug();
  EXPECT_TRUE(service->isActive());
  EXPECT_FALSE(service->isStarting());
  EXPECT_TRUE(desktop.notifications->shown.empty());
  // The machine looks at frames at once, and only what was protected counts.
  see(watched, 700);
  EXPECT_EQ(state(), Kind::alert);
  see(alone, 4300);
  stop();
  EXPECT_EQ(desktop.stats->stats.get(), (FilterStats{1, 1, 5}));
  EXPECT_THAT(active, ElementsAre(true, false));

  // Given up, it leaves nothing, whatever was missing, as often as it is tried.
  for (const bool models : {true, true, false, false}) {
    room.detector->prepareError = models ? std::optional(FaceDetectorError{"gone"}) : std::nullopt;
    if (!models) unplugAll();
    service->toggle();
    room.advance(7000);
    EXPECT_TRUE(service->isStarting());
    EXPECT_EQ(failure(), models ? FailureKind::modelMissing : FailureKind::noCamera);
    service->toggle();
    room.settle();
    EXPECT_FALSE(service->isStarting());
    EXPECT_EQ(failure(), std::nullopt);
    EXPECT_EQ(room.loop->timerCount(), 0U);
    EXPECT_EQ(observers(), 0U);
    EXPECT_EQ(desktop.stats->stats.get().totalActiveSeconds, 5);
  }
}

TEST_F(CameraRulesTest, WhatAppearsWhileItIsTriedIsTriedAtOnce) {
  room.detector->prepareError = FaceDetectorError{"gone"};
  // The model file comes just after it was looked for.
  room.detector->whilePreparing = [this] { control->retryNow(); };
  service->start();
  room.loop->runPosted();
  room.analysisQueue->sync([this] {
    room.detector->whilePreparing = nullptr;
    room.detector->prepareError.reset();
  });
  room.settle();
  EXPECT_TRUE(service->isActive());
}

TEST_F(CameraRulesTest, APermissionThatIsDeniedIsToldAndNotAskedForAgain) {
  room.session->status = AuthorizationStatus::denied;
  start();
  EXPECT_EQ(failure(), FailureKind::cameraDenied);
  EXPECT_TRUE(service->isStarting());
  room.session->status = AuthorizationStatus::authorized;
  room.advance(20'000);
  EXPECT_FALSE(service->isActive()) << "not tried again by itself";
  plug();
  EXPECT_TRUE(service->isActive()) << "but when a device appears";
  stop();

  // A person's no ends the start; the next one asks again.
  room.session->status = AuthorizationStatus::notDetermined;
  start();
  room.advance(60'000);
  EXPECT_TRUE(service->isStarting());
  room.session->accessRequests.at(0)(false);
  room.settle();
  EXPECT_FALSE(service->isStarting());
  EXPECT_EQ(failure(), FailureKind::cameraDenied);
  EXPECT_EQ(observers(), 0U);
  plug();
  EXPECT_EQ(room.session->accessRequests.size(), 1U) << "a device is no reason to ask";
  service->toggle();
  room.settle();
  ASSERT_EQ(room.session->accessRequests.size(), 2U);
  EXPECT_EQ(failure(), std::nullopt);
  room.session->accessRequests.back()(true);
  room.settle();
  EXPECT_TRUE(service->isActive()) << "consent that comes late";
  stop();
  EXPECT_EQ(desktop.stats->stats.get().totalActiveSeconds, 0) << "waiting is not protection";
}

TEST_F(CameraRulesTest, ACameraThatGivesNothingIsNotSaidToWatch) {
  start();
  room.advance(2500);
  EXPECT_EQ(state(), Kind::cameraBusy);
  EXPECT_EQ(failure(), FailureKind::cameraBusy);
  room.advance(5000);
  EXPECT_EQ(room.session->starts, 2) << "the chain is begun anew";
  see(alone, 300);
  EXPECT_EQ(state(), Kind::nominal);
  EXPECT_EQ(failure(), std::nullopt);
}

TEST_F(CameraRulesTest, TenFailedDetectionsAreAFailureAndNotAnEmptyRoom) {
  start();
  see(lookingAway, 1800);
  EXPECT_EQ(state(), Kind::inattention);
  const auto failing = [&](std::int64_t ms) {
    room.detector->next = std::nullopt;
    for (; ms > 0; ms -= 100) {
      if (room.session->delivers()) room.session->request->onFrame(room.frame());
      room.advance(100);
    }
  };
  failing(900);
  EXPECT_EQ(state(), Kind::inattention) << "nobody vanished";
  see(lookingAway, 200);
  failing(1000);
  EXPECT_EQ(state(), Kind::cameraBusy);
  EXPECT_EQ(failure(), FailureKind::analysisFailed);
  failing(5200);
  EXPECT_EQ(room.detector->preparations, 2) << "the models are loaded anew";
  see(alone, 300);
  EXPECT_EQ(state(), Kind::nominal);
}

TEST_F(CameraRulesTest, NumbersThatNoControlGivesHarmNothing) {
  for (const std::int64_t fps : {std::numeric_limits<std::int64_t>::max(), std::int64_t{100'000},
                                 std::int64_t{-1}, std::numeric_limits<std::int64_t>::min()}) {
    FilterSettings next = settings->settings;
    next.captureFps = fps;
    settings->save(next);
    start();
    const std::int64_t interval = camera->analyzer()->minIntervalMs();
    EXPECT_EQ(interval, fps > 0 ? 33 : 1000) << fps;
    stop();
    EXPECT_EQ(settings->settings.get().captureFps, fps) << "what is stored stays";
  }
  constexpr auto most = std::numeric_limits<std::int64_t>::max();
  desktop.stats->addActiveSeconds(most);
  desktop.stats->addActiveSeconds(1);
  EXPECT_EQ(desktop.stats->stats.get().totalActiveSeconds, most);
}

/// Protection, its start, its retries and calibrations, each met by a reason to rest at a thousand random
/// moments.
TEST_F(CameraRulesTest, TheCameraIsClosedWithinHalfASecondOfAnyReason) {
  std::uint64_t random = 42;
  const auto pick = [&](std::uint64_t n) {
    random = random * 6364136223846793005U + 1442695040888963407U;
    return static_cast<std::int64_t>((random >> 33U) % n);
  };
  std::int64_t slowestMs = 0;
  int opened = 0;
  for (int i = 0; i < 1000; ++i) {
    const auto calibration = newCalibration();
    if (pick(3) == 0) unplugAll();
    if (pick(2) == 0) room.detector->prepareError = FaceDetectorError{"gone"};
    if (pick(2) == 0) calibration->start();
    if (pick(3) != 0 || calibration->phase().get() == Phase::idle()) service->start();
    const std::int64_t momentMs = pick(7000);
    for (std::int64_t ms = 0; ms < momentMs; ms += 100) {
      room.loop->advance(std::min<std::int64_t>(100, momentMs - ms));
      if (ms % 2000 == 0 && pick(2) == 0) {
        room.detector->prepareError.reset();
        plug();
      }
      // In the middle of things: not everything that was posted has run.
      if (ms + 100 < momentMs) room.settle();
    }
    opened += room.session->running ? 1 : 0;
    const auto reason = pick(4);
    if (reason == 0) desktop.session->tell(SessionEvent::screenIsLocked);
    if (reason == 1) desktop.session->tell(SessionEvent::screensDidSleep);
    if (reason == 2) control->setRest(CameraControl::Rest::lowBattery, true);
    if (reason == 3) control->setRest(CameraControl::Rest::quitting, true);
    std::int64_t takenMs = 0;
    room.loop->runPosted();
    room.cameraQueue->sync([] {});
    for (; room.session->isOpen() && takenMs < 5000; takenMs += 10) room.advance(10);
    slowestMs = std::max(slowestMs, takenMs);
    for (int later = 0; later < 60; ++later) {
      room.advance(100);
      ASSERT_FALSE(room.session->isOpen()) << i;
    }
    calibration->cancel();
    stop();
    control->setRest(CameraControl::Rest::quitting, false);
    desktop.session->isAway = false;
    room.detector->prepareError.reset();
    plug();
  }
  std::cout << "closed within " << slowestMs << " ms; open at " << opened << " of 1000 moments\n";
  EXPECT_LE(slowestMs, 500);
  EXPECT_GT(opened, 300);
}

}  // namespace
}  // namespace sentrel
