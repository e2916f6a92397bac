// SPDX-License-Identifier: Apache-2.0
//
// Whatever happens to the service and in whatever order, what it holds and shows fits what it is.
#include <functional>
#include <iterator>
#include <random>
#include <utility>

#include "service/service_test_base.h"

namespace sentrel {
namespace {

using Kind = FilterState::Kind;

class ServiceStormTest : public test::ServiceTestBase {
 protected:
  void happen(std::mt19937& random) {
    const auto pick = [&](unsigned n) { return static_cast<std::int64_t>(random() % n); };
    const Screen first{1, "", {}, true};
    const Screen second{2, "", {}, false};
    const auto begin = [&] { service->start(); };
    const auto wait = [&] { room.advance(pick(2) == 0 ? 5000 : 100); };
    const auto tell = [&] {
      lastSessionEvent = static_cast<SessionEvent>(pick(6));
      desktop.session->observer.tell(lastSessionEvent);
    };
    const std::function<void()> happenings[] = {
        begin,
        begin,
        begin,
        [&] { service->stop(); },
        [&] { room.session->wasInterrupted.emit(); },
        [&] { room.session->interruptionEnded.emit(); },
        [&] { room.session->status = static_cast<AuthorizationStatus>(pick(2) * 3); },
        [&] {
          for (auto& answer : std::exchange(room.session->accessRequests, {})) answer(pick(2) == 0);
        },
        [&] {
          room.detector->prepareError = pick(3) == 0 ? std::optional(FaceDetectorError{"x"}) : std::nullopt;
        },
        [&] {
          FilterSettings next = settings->settings;
          next.filterStrength = 1 + pick(5);
          next.inattentionDelayMs = 500;
          settings->save(next);
        },
        [&] {
          backend->setScreens(pick(2) == 0 ? std::vector{first, second} : std::vector{first});
        },
        [&] { see(watched, 600 + 100 * pick(4)); },
        [&] { see(lookingAway, 100 * pick(9)); },
        [&] { see(alone, 100 * pick(9)); },
        tell,
        tell,
        [&] {
          desktop.power->source = PowerSourceDescription{static_cast<int>(pick(20)), pick(2) == 0};
          room.advance(30'000, 5000);
        },
        [&] { desktop.keys->observer.tell(); },
        wait,
        wait,
        wait,
    };
    happenings[random() % std::size(happenings)]();
    if (pick(3) != 0) room.settle();
  }

  void expectFitting() {
    const bool active = service->isActive();
    if (!active) lastSessionEvent = SessionEvent::screensDidWake;  // nobody listens any more
    const Kind kind = state();
    const bool watching = kind == Kind::nominal || kind == Kind::inattention || kind == Kind::alert;
    EXPECT_EQ(room.session->running, camera->isRunning().get());
    EXPECT_TRUE(active || !room.session->running);
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
