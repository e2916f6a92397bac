// SPDX-License-Identifier: Apache-2.0
//
// Whatever happens to the service and in whatever order, what it holds and shows fits what it is.
#include <random>

#include "service/service_test_base.h"

namespace sentrel {
namespace {

using Kind = FilterState::Kind;

class ServiceStormTest : public test::ServiceTestBase {
 protected:
  void happen(std::mt19937& random) {
    const auto pick = [&](unsigned n) { return static_cast<std::int64_t>(random() % n); };
    FilterSettings next = settings->settings;
    switch (pick(21)) {
      case 0:
      case 1:
      case 19:
        service->start();
        break;
      case 2:
        service->stop();
        break;
      case 3:
        room.session->wasInterrupted.emit();
        break;
      case 4:
        room.session->interruptionEnded.emit();
        break;
      case 5:
        room.session->status = static_cast<AuthorizationStatus>(pick(2) * 3);
        break;
      case 6:
        for (auto& answer : std::exchange(room.session->accessRequests, {})) answer(pick(2) == 0);
        break;
      case 7:
        room.detector->prepareError = pick(3) == 0 ? std::optional(FaceDetectorError{"x"}) : std::nullopt;
        break;
      case 8:
        next.filterStrength = 1 + pick(5);
        next.inattentionDelayMs = 500;
        settings->save(next);
        break;
      case 9:
        backend->setScreens(pick(2) == 0 ? std::vector<Screen>{{1, "", {}, true}, {2, "", {}, false}}
                                         : std::vector<Screen>{{1, "", {}, true}});
        break;
      case 10:
        see(watched, 600 + 100 * pick(4));
        break;
      case 11:
        see(lookingAway, 100 * pick(9));
        break;
      case 12:
        see(alone, 100 * pick(9));
        break;
      case 13:
      case 14:
        lastSessionEvent = static_cast<SessionEvent>(pick(6));
        desktop.session->observer.tell(lastSessionEvent);
        break;
      case 15:
        desktop.power->source = PowerSourceDescription{static_cast<int>(pick(20)), pick(2) == 0};
        room.advance(30'000, 5000);
        break;
      case 16:
        desktop.keys->observer.tell();
        break;
      default:
        room.advance(pick(2) == 0 ? 5000 : 100);
        break;
    }
    if (pick(3) != 0) room.settle();
  }

  void expectFitting() {
    const bool active = service->isActive();
    if (!active) lastSessionEvent = SessionEvent::screensDidWake;  // nobody listens any more
    const Kind kind = state();
    const bool watching = kind == Kind::nominal || kind == Kind::inattention || kind == Kind::alert;
    EXPECT_EQ(room.session->running, camera->isRunning().get());
    EXPECT_EQ(observers(), active ? observersWhileOn : 0U);
    if (kind != Kind::cameraBusy) {
      EXPECT_EQ(overlay->isShowing(), watching);
    }
    EXPECT_EQ(backend->shown.size(), overlay->isShowing() ? backend->screenList.size() : 0U);
    EXPECT_EQ(backend->screensChanged.observerCount(), overlay->isShowing() ? 1U : 0U);
    EXPECT_EQ(camera->analyzer() && camera->analyzer()->onRetroFrame, kind == Kind::alert);
    EXPECT_EQ(desktop.session->resting,
              service->fsmState().get() == FilterState::autoPaused(PauseReason::lowBattery()));
    if (isGoingAway(lastSessionEvent)) {
      EXPECT_EQ(service->fsmState().get(), FilterState::autoPaused(PauseReason::screenOff()));
      EXPECT_FALSE(room.session->running) << "nothing opens the camera of a person who is away";
    }
    EXPECT_EQ(service->isAlert(), kind == Kind::alert);
    EXPECT_EQ(overlay->isAlertMode, kind == Kind::alert);
    const std::size_t flashes = kind == Kind::alert ? backend->shown.size() : 0;
    EXPECT_LE(room.loop->timerCount(), flashes + (active ? 2 : 0));
    if (active) {
      EXPECT_EQ(overlay->currentAlpha,
                std::min(0.8F, filterAlpha(service->fsmState(), settings->settings.get().filterStrength)));
      EXPECT_NE(kind, Kind::inactive);
    } else {
      EXPECT_EQ(kind, Kind::inactive);
    }
  }

  SessionEvent lastSessionEvent = SessionEvent::screensDidWake;
};

TEST_F(ServiceStormTest, RegistrationsAndWhatIsShownFitTheState) {
  int actives = 0;
  int alerts = 0;
  for (unsigned seed = 0; seed < 25; ++seed) {
    std::mt19937 random(seed);
    for (int i = 0; i < 60; ++i) {
      happen(random);
      room.settle();
      expectFitting();
      ASSERT_FALSE(HasFailure()) << "seed " << seed << ", step " << i;
      actives += service->isActive() ? 1 : 0;
      alerts += service->isAlert() ? 1 : 0;
    }
    service->stop();
    room.settle();
    expectFitting();
    EXPECT_FALSE(room.session->running);
    EXPECT_EQ(room.loop->timerCount(), 0U);
    EXPECT_EQ(room.pool.clearUnused(), 0U) << "no frame is held";
    ASSERT_FALSE(HasFailure()) << "seed " << seed;
  }
  EXPECT_GT(actives, 200);
  EXPECT_GT(alerts, 10);
}

}  // namespace
}  // namespace sentrel
