// SPDX-License-Identifier: Apache-2.0
//
// Whatever happens to the camera, to the service and to calibrations, in whatever order and however their
// threads take turns: the camera is open when it should be and only then, what is said of it is true, and
// what is held and shown fits what is said.
#include <deque>
#include <functional>
#include <iostream>
#include <random>
#include <string>
#include <utility>

#include "support/test_core.h"

namespace sentrel {
namespace {

using Kind = FilterState::Kind;
using Phase = CalibrationSession::Phase;

constexpr std::int64_t tickMs = 100;
constexpr std::int64_t blindLimitMs = 2500;
constexpr std::int64_t closingLimitMs = 500;
/// A chain that broke without a word is noticed after 2.3 s, and begun anew 5 s later.
constexpr std::int64_t healingLimitMs = 8000;
constexpr std::int64_t reportMs = 2000;

using enum AuthorizationStatus;
constexpr AuthorizationStatus permissions[] = {denied,     notDetermined, authorized, authorized,
                                               authorized, authorized,    authorized, authorized};

class ServiceStormTest : public testing::Test, protected test::TestCore {
 protected:
  ServiceStormTest() : TestCore(test::TestMachine::Queues::manual) {
    // Also what lasts for less than a tick.
    stateRegistration = service->fsmState().onChange([this](const FilterState&) {
      if (!isWatching()) watchingSinceMs = now();
    });
  }

  // The world.

  void happen() {
    const struct {
      const char* name;
      std::function<void()> run;
      int weight = 1;
    } happenings[] = {
        {"start", [&] { service->start(); }, 2},
        {"toggle", [&] { service->toggle(); }},
        {"stop", [&] { service->stop(); }},
        {"shortcut", [&] { desktop.keys->observer.emit(); }},
        {"the program quits, or not after all", [&] { quit(pick(4) == 0); }},
        {"the camera is pulled", [&] { plug(false); }},
        {"a camera is plugged", [&] { plug(true); }, 2},
        {"another program takes the camera", [&] { taken = pick(2) == 0; }},
        {"the camera gives nothing and says nothing", [&] { silent = pick(3) == 0; }},
        {"permission", [&] { permit(permissions[static_cast<std::size_t>(pick(8))]); }},
        {"the person answers", [&] { answerConsent(pick(6) != 0); }, 2},
        {"a model file", [&] { damageModels(pick(3) == 0); }},
        {"inference", [&] { inferenceFails = pick(4) == 0; }},
        {"the session cannot be configured", [&] { refuseConfiguration(pick(8) == 0); }},
        {"slow models", [&] { analysisHeldMs = 100 * pick(40); }},
        {"slow listing", [&] { cameraHeldMs = machine.session->running ? cameraHeldMs : 100 * pick(30); }},
        {"slow camera queue", [&] { cameraHeldMs = std::max(cameraHeldMs, 100 * pick(4)); }},
        {"notifications", [&] { answerNotifications(pick(4) != 0); }},
        {"a choice of cameras", [&] { chooseCamera(); }},
        {"settings", [&] { changeSomeSettings(); }},
        {"screens",
         [&] {
           backend->setScreens({backend->screenList[0], Screen{2, "", {}, false}});
         }},
        {"a screen goes", [&] { backend->setScreens({backend->screenList[0]}); }},
        {"everything is well for a while", [&] { heal(); }},
        {"watched", [&] { machine.detector->next = watched; }},
        {"looking away", [&] { machine.detector->next = lookingAway; }},
        {"alone", [&] { machine.detector->next = alone; }},
        {"going away", [&] { desktop.session->tell(static_cast<SessionEvent>(2 * pick(3))); }},
        {"coming back", [&] { desktop.session->tell(static_cast<SessionEvent>(2 * pick(3) + 1)); }, 2},
        {"the session answers", [&] { answerSession(pick(4) != 0); }},
        {"battery",
         [&] {
           desktop.power->source = {static_cast<int>(pick(20)), pick(2) == 0};
         }},
        {"a calibration begins", [&] { theCalibration().start(); }},
        {"a calibration is given up", [&] { theCalibration().cancel(); }},
        {"a calibration is accepted", [&] { theCalibration().accept(60); }},
        {"a calibration's window goes", [&] { calibration.reset(); }},
    };
    int left = 0;
    for (const auto& each : happenings) left += each.weight;
    left = static_cast<int>(pick(left));
    const auto* chosen = happenings;
    while ((left -= chosen->weight) >= 0) ++chosen;
    remember(chosen->name);
    chosen->run();
  }

  void heal() {
    taken = silent = inferenceFails = false;
    quit(false);
    refuseConfiguration(false);
    // Half of the time nothing is told of it. Who was denied the camera has to be told.
    const auto failure = control->failure().get();
    const bool isDenied = failure && failure->kind == CameraFailure::Kind::cameraDenied;
    const bool wasDenied = machine.session->status != authorized;
    const bool isTold = isDenied || wasDenied || pick(2) == 0;
    machine.session->status = authorized;
    answerConsent(true);
    answerNotifications(true);
    machine.detector->prepareError.reset();
    settleTurns();
    if (isTold) control->retryNow();
    if (isTold || machine.session->cameras.empty()) plug(true);
    answerSession(true);
    desktop.session->tell(SessionEvent::screensDidWake);
    for (int i = 0; i < 150 && !HasFailure(); ++i) tick();
  }
  void plug(bool plugged) {
    machine.session->cameras.clear();
    if (plugged) machine.session->cameras = {{"front", "", CameraPosition::front}};
    if (plugged) machine.session->seen = true;
    machine.session->devicesChanged.emit();
  }
  void permit(AuthorizationStatus status) {
    machine.session->status = status;
    // Permissions come with a device that is new.
    if (status == authorized) machine.session->devicesChanged.emit();
  }
  void answerConsent(bool yes) {
    if (machine.session->accessRequests.empty()) return;
    if (yes) machine.session->status = authorized;
    for (auto& answer : std::exchange(machine.session->accessRequests, {})) answer(yes);
  }
  void damageModels(bool damaged) {
    machine.detector->prepareError = damaged ? std::optional(FaceDetectorError{"gone"}) : std::nullopt;
    if (!damaged) control->retryNow();
  }
  void answerNotifications(bool atOnce) {
    desktop.notifications->answering = atOnce;
    for (auto& answer : std::exchange(desktop.notifications->questions, {})) answer(true);
  }
  void answerSession(bool atOnce) {
    desktop.session->answering = atOnce;
    desktop.session->answer();
  }
  void quit(bool really) {
    quits = really;
    if (quits) service->stop();
    control->setRest(CameraControl::Rest::quitting, really);
  }
  CalibrationSession& theCalibration() {
    if (!calibration) calibration = newCalibration();
    return *calibration;
  }
  void changeSomeSettings() {
    changeSettings([&](FilterSettings& next) {
      next.filterStrength = pick(7);
      next.inattentionDelayMs = 500;
      next.captureFps = pick(4) == 0 ? 100'000 : 10;
    });
  }
  void refuseConfiguration(bool refused) {
    machine.session->configureError.reset();
    if (refused) machine.session->configureError = CaptureError{CaptureError::Kind::busy, "just now"};
  }
  void chooseCamera() {
    const std::optional<std::string> choices[] = {std::nullopt, "front", "unplugged"};
    const auto before = machine.session->configureError;
    if (pick(2) == 0) refuseConfiguration(true);
    camera->switchCamera(choices[static_cast<std::size_t>(pick(3))]);
    settleTurns();
    machine.session->configureError = before;
    healthySinceMs = now();
  }

  /// Acts as the capture session: frames while it can, reports while it cannot.
  void playCamera() {
    auto& session = *machine.session;
    const bool wanted = session.running && session.demand.wanted && session.request;
    const bool lost = taken || session.cameras.empty();
    if (!wanted || !lost) {
      reportDueMs = now();
      if (std::exchange(session.cause, std::nullopt) && wanted && !silent) session.interruptionEnded.emit();
    } else if (now() >= reportDueMs) {
      reportDueMs = now() + reportMs;
      session.interrupt(taken ? CaptureError::Kind::busy : CaptureError::Kind::deviceUnavailable);
    }
    if (session.delivers() && !silent) session.request->onFrame(machine.frame());
  }

  void runQueue(SerialQueue& queue, std::int64_t& heldMs) {
    if (heldMs <= 0) static_cast<test::ManualQueue&>(queue).runOne();
  }
  /// Lets the threads take turns at random until nothing moves any more.
  void takeTurns() {
    for (int i = 0; i < 12; ++i) {
      const auto turn = pick(3);
      if (turn == 0) machine.loop->runPosted();
      if (turn == 1) runQueue(*machine.cameraQueue, cameraHeldMs);
      if (turn == 2) runQueue(*machine.analysisQueue, analysisHeldMs);
    }
  }
  void settleTurns() {
    for (int i = 0; i < 6; ++i) {
      machine.loop->runPosted();
      if (cameraHeldMs <= 0) static_cast<test::ManualQueue&>(*machine.cameraQueue).drain();
      if (analysisHeldMs <= 0) static_cast<test::ManualQueue&>(*machine.analysisQueue).drain();
    }
    machine.loop->runPosted();
  }

  void tick() {
    auto& detector = *machine.detector;
    const auto sight = std::exchange(detector.next, inferenceFails ? std::nullopt : detector.next);
    playCamera();
    takeTurns();
    settleTurns();
    // A moment later: whoever was due at the same moment has had its turn.
    machine.loop->advance(tickMs);
    cameraHeldMs -= tickMs;
    analysisHeldMs -= tickMs;
    settleTurns();
    detector.next = sight;
    if (!detector.timestamps.empty() && !inferenceFails) lastAnalysedMs = detector.timestamps.back();
    detector.timestamps.clear();
    expectRules();
    if (cameraHeldMs <= 0 && analysisHeldMs <= 0) expectFitting();
  }

  // What must be true of it.

  [[nodiscard]] bool isCalibrating() const {
    const auto kind = calibration ? calibration->phase().get().kind : Phase::Kind::idle;
    return kind == Phase::Kind::counting || kind == Phase::Kind::measuring;
  }
  [[nodiscard]] bool isWatching() const {
    return state() == Kind::nominal || state() == Kind::inattention || state() == Kind::alert;
  }

  void expectRules() {
    const bool isAway = desktop.session->isAway;
    // 1. It says that it watches only while it sees, and says why when it does not.
    if (!isWatching()) watchingSinceMs = now();
    EXPECT_LE(now() - std::max(watchingSinceMs, lastAnalysedMs), blindLimitMs) << "blind, and says nothing";
    if (state() == Kind::cameraBusy) {
      EXPECT_TRUE(control->failure().get()) << "no reason";
    }
    // 2. It tries until it sees.
    const auto& session = *machine.session;
    const bool healthy = service->isSwitchedOn() && desktop.notifications->questions.empty() &&
                         !control->rest() && !session.cameras.empty() && session.status == authorized &&
                         session.accessRequests.empty() && !session.configureError && !taken && !silent &&
                         !inferenceFails && !machine.detector->prepareError && cameraHeldMs <= 0 &&
                         analysisHeldMs <= 0;
    if (!healthy) healthySinceMs = now();
    if (now() - healthySinceMs > healingLimitMs) {
      EXPECT_TRUE(service->isActive() && isWatching()) << "gave up";
      EXPECT_EQ(control->failure().get(), std::nullopt) << "a reason that is none any more";
    }
    // 3. It is closed while anything speaks against it, whoever wishes it.
    const bool mayBeOpen =
        (service->isSwitchedOn() || isCalibrating()) && !isAway && !quits && !control->rest();
    if (mayBeOpen) closedSinceMs = now();
    if (now() - closedSinceMs >= closingLimitMs) {
      EXPECT_FALSE(session.isOpen()) << "open behind the person's back";
    }
    if (isAway && isCalibrating() && !desktop.session->known) {
      ADD_FAILURE() << "a calibration without a camera says nothing";
    }
    if (isWatching()) {
      EXPECT_TRUE(session.running) << "watches before the camera is open";
    }
    // 4. A start that waits or failed leaves nothing behind.
    if (!service->isActive()) {
      EXPECT_EQ(state(), Kind::inactive);
    }
    if (service->isSwitchedOn() &&
        (service->isActive() || (!control->failure().get() && session.accessRequests.empty())))
      protectedMs += tickMs;
    EXPECT_LE(1000 * stats->stats.get().totalActiveSeconds, protectedMs) << "hours that were none";
  }

  void expectFitting() {
    const bool active = service->isActive();
    const Kind kind = state();
    EXPECT_EQ(desktop.session->observer.observerCount(),
              control->status().get().kind == CameraControl::Status::Kind::closed ? 0U : 1U);
    EXPECT_EQ(desktop.power->observer.observerCount(), active ? 1U : 0U);
    EXPECT_EQ(desktop.keys->observer.observerCount(), active && !desktop.session->isAway ? 1U : 0U)
        << "a password passes nobody";
    if (kind != Kind::cameraBusy) {
      EXPECT_EQ(overlay->isShowing(), isWatching());
    }
    EXPECT_EQ(backend->shown.size(), overlay->isShowing() ? backend->screenList.size() : 0U);
    EXPECT_EQ(camera->analyzer() && camera->analyzer()->onRetroFrame, kind == Kind::alert);
    if (active && desktop.session->isAway) {
      EXPECT_EQ(service->fsmState().get(), FilterState::autoPaused(PauseReason::screenOff()));
    }
    if (active) {
      EXPECT_EQ(desktop.session->resting,
                service->fsmState().get() == FilterState::autoPaused(PauseReason::lowBattery()) &&
                    control->rest() == CameraControl::Rest::lowBattery);
      EXPECT_NE(kind, Kind::inactive);
      EXPECT_EQ(overlay->currentAlpha,
                std::min(0.8F, filterAlpha(service->fsmState(), settings->settings.get().filterStrength)));
    }
    EXPECT_FALSE(active && service->isStarting());
    EXPECT_EQ(service->isAlert(), kind == Kind::alert);
    EXPECT_EQ(overlay->isAlertMode, kind == Kind::alert);
    const std::size_t flashes = kind == Kind::alert ? backend->shown.size() : 0;
    // Of the camera, the battery, the notice, and a calibration.
    EXPECT_LE(machine.loop->timerCount(), flashes + 4);
  }

  // The test's own business.

  template <class Count>
  std::int64_t pick(Count n) {
    return static_cast<std::int64_t>(random() % static_cast<unsigned>(n));
  }
  [[nodiscard]] std::int64_t now() const { return machine.loop->nowMs(); }
  void remember(const char* what) {
    steps.push_back(std::to_string(now() - test::ManualMainLoop::startMs) + " ms: " + what);
    if (steps.size() > 40) steps.pop_front();
  }
  void begin(unsigned seed) {
    random.seed(seed);
    steps.clear();
    taken = silent = inferenceFails = desktop.session->isAway = false;
    quit(false);
    machine.detector->prepareError.reset();
    refuseConfiguration(false);
    machine.session->status = authorized;
    desktop.session->answering = desktop.notifications->answering = true;
    watchingSinceMs = healthySinceMs = closedSinceMs = now();
    // Every other life begins without a camera.
    machine.session->cameras.clear();
    machine.session->seen = false;
    if (seed % 2 == 0) plug(true);
  }
  void end() {
    calibration.reset();
    service->stop();
    cameraHeldMs = analysisHeldMs = 0;
    answerConsent(false);
    answerNotifications(true);
    settleTurns();
    EXPECT_FALSE(machine.session->running);
    EXPECT_EQ(machine.loop->timerCount(), 0U);
    EXPECT_EQ(desktop.observers(), 0U);
    EXPECT_EQ(camera->analyzer(), nullptr);
    EXPECT_EQ(machine.freeFrames(), 8U) << "no frame is held";
  }
  void tellSteps(unsigned seed) {
    std::cout << "seed " << seed << ", the last steps:\n";
    for (const std::string& step : steps) std::cout << "  " << step << '\n';
  }

  Registration stateRegistration;
  std::mt19937 random;
  std::deque<std::string> steps;
  std::shared_ptr<CalibrationSession> calibration;
  bool taken = false;
  bool quits = false;
  bool silent = false;
  bool inferenceFails = false;
  std::int64_t cameraHeldMs = 0;
  std::int64_t analysisHeldMs = 0;
  std::int64_t reportDueMs = 0;
  std::int64_t lastAnalysedMs = 0;
  std::int64_t watchingSinceMs = 0;
  std::int64_t healthySinceMs = 0;
  std::int64_t closedSinceMs = 0;
  std::int64_t protectedMs = 0;
};

TEST_F(ServiceStormTest, AHundredThousandRandomStepsBreakNoRule) {
  constexpr int lives = 500;
  constexpr int stepsInALife = 200;
  int actives = 0;
  int alerts = 0;
  int busy = 0;
  int measured = 0;
  int healed = 0;
  for (unsigned seed = 0; seed < lives; ++seed) {
    begin(seed);
    for (int i = 0; i < stepsInALife; ++i) {
      happen();
      const std::int64_t ticks = pick(8) == 0 ? pick(100) : pick(6);
      for (std::int64_t t = 0; t < ticks && !HasFailure(); ++t) tick();
      if (HasFailure()) return tellSteps(seed);
      actives += service->isActive() ? 1 : 0;
      alerts += service->isAlert() ? 1 : 0;
      busy += state() == Kind::cameraBusy ? 1 : 0;
      measured += isCalibrating() ? 1 : 0;
      healed += now() - healthySinceMs > healingLimitMs ? 1 : 0;
    }
    end();
    if (HasFailure()) return tellSteps(seed);
  }
  // What the rules were held against.
  EXPECT_GT(actives, 10'000);
  EXPECT_GT(alerts, 500);
  EXPECT_GT(busy, 2000);
  EXPECT_GT(measured, 1000);
  EXPECT_GT(healed, 1000);
}

}  // namespace
}  // namespace sentrel
