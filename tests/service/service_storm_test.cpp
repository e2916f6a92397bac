// SPDX-License-Identifier: Apache-2.0
//
// Whatever happens to the camera, to the service and to calibrations, and whatever the person or a command
// allows for a while, in whatever order and however their threads take turns: the camera is open when it
// should be and only then, what is said of it is true, what is held and shown fits what is said, and nothing
// protects less than was asked for, or for longer.
#include <iostream>
#include <random>

#include "service/remote_control.h"
#include "support/test_core.h"

namespace sentrel {
namespace {

using Kind = FilterState::Kind;
using Rest = CameraControl::Rest;
using Phase = CalibrationSession::Phase;
using enum AuthorizationStatus;

constexpr std::int64_t tickMs = 100;
constexpr std::int64_t blindLimitMs = 2500;
constexpr std::int64_t closingLimitMs = 500;
/// A chain that broke without a word is noticed after 2.3 s, and begun anew 5 s later.
constexpr std::int64_t healingLimitMs = 8000;
constexpr std::int64_t reportMs = 2000;
/// Beyond the time that the person chose.
constexpr std::int64_t alertLimitMs = 1500;

struct ServiceStormTest : testing::Test, test::TestCore {
  ServiceStormTest() {
    // Also what lasts for less than a tick.
    stateRegistration = service->fsmState().onChange([this](const FilterState& next) {
      if (!isWatching()) watchingSinceMs = now();
      // The second face is welcome, or too far away.
      EXPECT_FALSE(next.is(Kind::alert) && (stay() || isTooFar())) << "never to be told of";
    });
  }

  // The world.

  void happen() {
    std::int64_t left = pick(44);  // one of those that follow
    const auto comes = [&](const char* what) {
      if (left-- != 0) return false;
      steps += std::to_string(now()) + " ms: " + what + '\n';
      return true;
    };
    auto& session = *machine.session;
    if (comes("start")) service->start();
    if (comes("toggle")) service->toggle();
    if (comes("stop")) service->stop();
    if (comes("shortcut")) desktop.keys->observer.emit();
    if (comes("the program quits, or not after all")) quit(pick(4) == 0);
    if (comes("the camera is pulled")) session.plug(false);
    if (comes("a camera is plugged")) session.plug(true);
    if (comes("another program takes the camera")) taken = pick(2) == 0;
    if (comes("the camera gives nothing and says nothing")) silent = pick(3) == 0;
    if (comes("the camera is forbidden")) session.status = pick(2) == 0 ? denied : notDetermined;
    if (comes("the camera is permitted")) permit();
    if (comes("the person answers")) answerConsent(pick(6) != 0);
    if (comes("a model file")) damageModels(pick(3) == 0);
    if (comes("inference")) inferenceFails = pick(4) == 0;
    if (comes("the session cannot be configured")) refuseConfiguration(pick(8) == 0);
    if (comes("slow models")) analysis.heldMs = 100 * pick(40);
    if (comes("slow listing") && !session.running) capture.heldMs = 100 * pick(30);
    if (comes("notifications")) answer(*desktop.notifications, pick(4) != 0);
    if (comes("strength")) changeSettings([&](FilterSettings& next) { next.filterStrength = pick(7); });
    if (comes("screens")) backend->setScreens({backend->screenList[0], Screen{2, "", {}, false}});
    if (comes("a screen goes")) backend->setScreens({backend->screenList[0]});
    if (comes("everything is well for a while")) heal();
    if (comes("watched")) look(watched);
    if (comes("looking away")) look(lookingAway);
    if (comes("alone")) look(alone);
    if (comes("going away")) desktop.session->tell(static_cast<SessionEvent>(2 * pick(3)));
    if (comes("coming back")) comeBack();
    if (comes("the session answers")) answer(*desktop.session, pick(4) != 0);
    if (comes("battery")) desktop.power->source = {{static_cast<int>(pick(20)), pick(2) == 0}};
    if (comes("a calibration begins")) theCalibration().start();
    if (comes("a calibration is given up")) theCalibration().cancel();
    if (comes("a calibration's window goes")) calibration.reset();
    if (comes("a pause")) pauseFor(someTime());
    if (comes("no pause")) relaxations().resume();
    if (comes("a guest")) addGuest();
    if (comes("the guests go")) relaxations().sendGuestsAway();
    if (comes("it is nobody")) relaxations().filter.ignoreOnlooker();
    if (comes("the screen is shared, or no longer")) desktop.sharing->shared.assignIfChanged(pick(2) == 0);
    if (comes("another choice")) changeOptions();
    if (comes("do not disturb, or do")) desktop.notifications->heard.assignIfChanged(pick(3) != 0);
    if (comes("cover")) cover(pick(2) == 0);
    if (comes("a command")) command(pick(5));
    if (comes("another command")) command(pick(5));
    if (comes("an answer to a notification")) answerNotification();
  }

  // What is allowed for a while.

  /// Half of the time one that ends soon; now and then one that is none.
  std::int64_t someTime() {
    const std::int64_t longest = Relaxations::longestMs;
    const std::int64_t times[] = {100 * (1 + pick(100)), 1000 * (1 + pick(60)), longest, longest + 1, 0, -5};
    return times[pick(2) == 0 ? 0 : pick(6)];
  }
  void pauseFor(std::int64_t durationMs) {
    if (!service->isSwitchedOn()) return;
    EXPECT_EQ(relaxations().pause(durationMs), durationMs > 0 && durationMs <= Relaxations::longestMs);
    if (pauseEnd()) cameBack = false;
  }
  void addGuest() {
    if (!service->isSwitchedOn()) return;
    const std::int64_t before = stay() ? stay()->guests : 0;
    const std::int64_t time = someTime();
    const auto rest = control->rest();
    const bool isAllowed = (!rest || isUnknown()) && time > 0 && time <= Relaxations::longestMs &&
                           before < OnlookerRules::mostGuests;
    EXPECT_EQ(relaxations().addGuest(time), isAllowed);
  }
  void changeOptions() {
    const std::int64_t distances[] = {0, 0, 350, 150};
    ProtectionOptions next;
    next.reaction = static_cast<Reaction>(pick(3));
    next.whenShared = static_cast<WhenShared>(pick(3));
    next.alertAfterMs = 500 << pick(3);
    next.watchUpToCm = distances[pick(4)];
    next.coverShortcutEnabled = pick(2) == 0;
    settings->save(next);
  }
  void cover(bool byCommand) {
    const bool before = overlay->isCovered();
    if (!byCommand) {
      if (before) backend->click(backend->screenList[0].id);
      machine.loop->runPosted();
    } else if (remote.cover() == Answer::locked) {
      EXPECT_TRUE(desktop.session->isAway);
      EXPECT_EQ(overlay->isCovered().get(), before);
    } else {
      EXPECT_FALSE(desktop.session->isAway) << "a lock was to be uncovered";
      EXPECT_FALSE(before && overlay->isCovered());
    }
    mayBeCovered = !before || desktop.session->isAway;
    wasCovered = overlay->isCovered();
  }
  /// Is refused while the session is locked, or else told.
  void command(std::int64_t which) {
    auto& shown = desktop.notifications->shown;
    const bool wasOn = service->isSwitchedOn();
    const std::int64_t time = someTime();
    const std::int64_t guests = pick(6);
    shown.erase(RemoteControl::notification);
    remote.seen();
    if (which == 1 && !wasOn) return;  // that switches on
    const Answer answer = which == 0   ? remote.switchOff()
                          : which == 1 ? remote.toggle()
                          : which == 2 ? remote.pause(time)
                          : which == 3 ? remote.welcome(guests, time)
                                       : remote.quit();
    EXPECT_EQ(answer == Answer::locked, desktop.session->isAway);
    const bool weakened = answer == Answer::done && wasOn;
    EXPECT_EQ(shown.contains(RemoteControl::notification), weakened) << "command " << which;
    EXPECT_EQ(remote.news().get() == RemoteControl::Origin::command, weakened);
    if (which == 2 && weakened) cameBack = false;
  }
  void answerNotification() {
    const char* const notifications[] = {"sentrel.alert", "sentrel.off", "sentrel.shared", "nobody"};
    const char* const actions[] = {"nobody", "pause", "default", "off", ""};
    const auto endBefore = pauseEnd();
    const auto ignoredBefore = relaxations().filter.ignoredCount().get();
    const auto* notification = notifications[pick(4)];
    desktop.notifications->answered.emit(notification, actions[pick(5)]);
    if (pauseEnd() != endBefore) cameBack = false;
    const bool isNone = notification != notifications[0] || desktop.session->isAway;
    EXPECT_FALSE(isNone &&
                 (pauseEnd() != endBefore || relaxations().filter.ignoredCount().get() != ignoredBefore));
  }
  void comeBack() {
    const bool isHeard = desktop.session->observer.observerCount() > 0 && !quits;
    desktop.session->tell(static_cast<SessionEvent>(2 * pick(3) + 1));
    cameBack = cameBack || isHeard;
  }
  Relaxations& relaxations() { return service->relaxations(); }
  [[nodiscard]] std::optional<std::int64_t> pauseEnd() { return relaxations().pauseEndMs(); }
  [[nodiscard]] const std::optional<Relaxations::Stay>& stay() { return relaxations().stay(); }
  [[nodiscard]] bool isTooFar() const { return settings->options.get().watchUpToCm == 150; }

  void look(const FaceDetections& faces) {
    machine.detector->next = faces;
    isWatched = &faces == &watched;
  }
  void heal() {
    // Half of the time nothing is told of it. Who was denied the camera has to be told.
    const auto failure = control->failure().get();
    const bool isDenied = failure && (failure->kind == CameraFailure::Kind::cameraDenied ||
                                      failure->kind == CameraFailure::Kind::noConsent);
    const bool isTold =
        isDenied || machine.session->status != authorized || machine.session->cameras.empty() || pick(2) == 0;
    beWell();
    settleTurns();
    if (isTold) machine.session->plug(true);
    desktop.session->tell(SessionEvent::screensDidWake);
    for (int i = 0; i < 150 && !HasFailure(); ++i) tick();
  }
  void beWell() {
    taken = silent = inferenceFails = false;
    quit(false);
    refuseConfiguration(false);
    machine.detector->prepareError.reset();
    machine.session->status = authorized;
    answerConsent(true);
    answer(*desktop.notifications, true);
    answer(*desktop.session, true);
  }
  /// Permissions come with a device that is new.
  void permit() {
    machine.session->status = authorized;
    machine.session->devicesChanged.emit();
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
  /// The notifications, or the session.
  static void answer(auto& asked, bool atOnce) {
    asked.answering = atOnce;
    asked.answer();
  }
  void quit(bool really) {
    quits = really;
    if (quits) service->stop();
    control->setRest(Rest::quitting, really);
  }
  CalibrationSession& theCalibration() {
    if (!calibration) newCalibration();
    return *calibration;
  }
  void refuseConfiguration(bool refused) {
    machine.session->configureError.reset();
    if (refused) machine.session->configureError = CaptureError{CaptureError::Kind::busy, "just now"};
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

  struct Thread {
    test::ManualQueue& queue;
    std::int64_t heldMs = 0;
    void run(bool all) const {
      if (heldMs <= 0) all ? queue.drain() : queue.runOne();
    }
  };
  void takeTurn(std::int64_t which, bool all) {
    if (which == 0) machine.loop->runPosted();
    if (which == 1) capture.run(all);
    if (which == 2) analysis.run(all);
  }
  void settleTurns() {
    for (int i = 0; i < 19; ++i) takeTurn(i % 3, true);
  }

  void tick() {
    auto& detector = *machine.detector;
    const auto sight = std::exchange(detector.next, inferenceFails ? std::nullopt : detector.next);
    playCamera();
    for (int i = 0; i < 12; ++i) takeTurn(pick(3), false);
    settleTurns();
    // A moment later: whoever was due at the same moment has had its turn.
    machine.loop->advance(tickMs);
    capture.heldMs -= tickMs;
    analysis.heldMs -= tickMs;
    settleTurns();
    detector.next = sight;
    if (!detector.timestamps.empty() && !inferenceFails) lastAnalysedMs = detector.timestamps.back();
    detector.timestamps.clear();
    expectRules();
    if (!isHeld()) expectFitting();
  }

  // What must be true of it.

  [[nodiscard]] bool isHeld() const { return capture.heldMs > 0 || analysis.heldMs > 0; }
  [[nodiscard]] bool isCalibrating() const {
    const auto kind = calibration ? calibration->phase().get().kind : Phase::Kind::idle;
    return kind == Phase::Kind::counting || kind == Phase::Kind::measuring;
  }
  [[nodiscard]] bool isWatching() const {
    return state() == Kind::nominal || state() == Kind::inattention || state() == Kind::alert;
  }
  [[nodiscard]] bool isHealthy() const {
    const auto& session = *machine.session;
    return service->isSwitchedOn() && desktop.notifications->questions.empty() && !control->rest() &&
           !session.cameras.empty() && session.status == authorized && session.accessRequests.empty() &&
           !session.configureError && !taken && !silent && !inferenceFails &&
           !machine.detector->prepareError && !isHeld();
  }

  void expectRules() {
    const bool isAway = desktop.session->isAway;
    // 1. It says that it watches only while it sees, and says why when it does not.
    if (!isWatching()) watchingSinceMs = now();
    EXPECT_LE(now() - std::max(watchingSinceMs, lastAnalysedMs), blindLimitMs) << "blind, and says nothing";
    EXPECT_FALSE(state() == Kind::cameraBusy && !control->failure().get()) << "no reason";
    // 2. It tries until it sees.
    if (!isHealthy()) healthySinceMs = now();
    if (now() - healthySinceMs > healingLimitMs) {
      EXPECT_TRUE(service->isActive() && isWatching()) << "gave up";
      EXPECT_EQ(control->failure().get(), std::nullopt) << "a reason that is none any more";
    }
    // 3. It is closed while anything speaks against it, whoever wishes it, and only then.
    if ((service->isSwitchedOn() || isCalibrating()) && !isAway && !quits && !control->rest())
      closedSinceMs = now();
    const bool isClosing = now() - closedSinceMs < closingLimitMs;
    EXPECT_TRUE(isClosing || !machine.session->isOpen()) << "open behind the person's back";
    const auto rest = control->rest();
    EXPECT_FALSE(rest == Rest::away && !isAway);
    EXPECT_FALSE(rest == Rest::lowBattery && !service->isActive());
    EXPECT_FALSE(rest == Rest::sessionUnknown && !desktop.session->known);
    EXPECT_FALSE(isAway && isCalibrating() && !desktop.session->known) << "no camera, and says nothing";
    EXPECT_TRUE(!isWatching() || machine.session->running) << "watches before the camera is open";
    // 4. A start that waits or failed leaves nothing behind.
    EXPECT_TRUE(service->isActive() || state() == Kind::inactive);
    expectBounds();
  }

  /// What is allowed ends by itself, and allows nothing else.
  void expectBounds() {
    const auto isBounded = [this](const std::optional<std::int64_t>& endMs) {
      return !endMs || (*endMs > now() && *endMs - now() <= Relaxations::longestMs);
    };
    // 5. A pause: the camera is closed, and who comes back ends it.
    if (!pauseEnd()) notPausedSinceMs = now();
    EXPECT_TRUE(isBounded(pauseEnd()));
    EXPECT_FALSE(pauseEnd() && (!service->isSwitchedOn() || (cameBack && !isUnknown()))) << "lasts";
    EXPECT_TRUE(!pauseEnd() || now() - notPausedSinceMs < closingLimitMs || !machine.session->isOpen())
        << "open in a pause";
    if (!pauseEnd()) cameBack = false;
    // 6. Guests: a few, and none after any closing of the camera.
    EXPECT_TRUE(!stay() || (isBounded(stay()->untilMs) && stay()->guests >= 1 &&
                            stay()->guests <= OnlookerRules::mostGuests));
    const bool isResting = control->status().get().kind == CameraControl::Status::Kind::resting;
    EXPECT_FALSE(stay() && isResting && !isUnknown());
    const auto ignored = relaxations().filter.ignoredCount().get();
    EXPECT_FALSE(ignored > 0 && isResting);
    EXPECT_FALSE((stay() || ignored > 0) && !service->isSwitchedOn());
    EXPECT_LE(ignored, 3);
    // 7. An onlooker of whom nothing of this is true alerts.
    const bool isOnlooker = isWatched && !stay() && ignored == 0 && !isTooFar();
    if (!isOnlooker || !isHealthy()) onlookerSinceMs = now();
    const std::int64_t seenForMs = now() - std::max(onlookerSinceMs, watchingSinceMs);
    EXPECT_TRUE(state() == Kind::alert || seenForMs <= settings->options.get().alertAfterMs + alertLimitMs)
        << "an onlooker, and no alert for " << seenForMs;
    // 8. The cover stays until somebody takes it away.
    EXPECT_FALSE(overlay->isCovered() && !mayBeCovered);
    EXPECT_FALSE(wasCovered && mayBeCovered && !overlay->isCovered());
    wasCovered = overlay->isCovered();
  }
  [[nodiscard]] bool isUnknown() const { return control->rest() == Rest::sessionUnknown; }

  void expectFitting() {
    const bool active = service->isActive();
    const bool isAway = desktop.session->isAway;
    const Kind kind = state();
    const FilterState current = service->fsmState();
    const bool isWished = control->status().get().kind != CameraControl::Status::Kind::closed;
    EXPECT_EQ(desktop.session->observer.observerCount(), isWished ? 1U : 0U);
    EXPECT_EQ(desktop.power->observer.observerCount(), active && !isAway ? 1U : 0U);
    EXPECT_TRUE(service->isSwitchedOn() || desktop.sharing->observer.observerCount() == 0);
    EXPECT_EQ(*machine.session->observers, isWished && !control->rest() ? 1 : 0) << "of the cameras";
    EXPECT_EQ(desktop.keys->observer.observerCount(), active && !isAway ? 1U : 0U) << "a password";
    EXPECT_EQ(!overlay->shortcutKeys.get().empty(), active && !isAway);
    const ProtectionOptions& options = settings->options;
    const bool isShared = relaxations().isScreenShared();
    EXPECT_TRUE(!active || isShared == desktop.sharing->shared);
    EXPECT_TRUE(!isShared || service->isSwitchedOn());
    const bool hides = isShared && options.whenShared == WhenShared::hideStripes;
    const bool onlyTells =
        (hides || options.reaction == Reaction::notifyOnly) && desktop.notifications->heard;
    const bool isDark = kind == Kind::alert && !onlyTells;
    EXPECT_TRUE(kind == Kind::cameraBusy || overlay->isShowing() == (isWatching() && (!hides || isDark)));
    EXPECT_EQ(backend->shown.size(),
              overlay->isShowing() || overlay->isCovered() ? backend->screenList.size() : 0U);
    EXPECT_EQ(camera->analyzer() && camera->analyzer()->onRetroFrame, kind == Kind::alert && !hides);
    auto& shown = desktop.notifications->shown;
    EXPECT_FALSE(kind == Kind::alert && onlyTells && !shown.contains(OnlookerFeedback::notification))
        << "an alert that nobody learns of";
    EXPECT_FALSE(!isShared && shown.contains("sentrel.shared"));
    EXPECT_FALSE(isShared && options.whenShared != WhenShared::changeNothing &&
                 !shown.contains("sentrel.shared"));
    EXPECT_FALSE(isShared && options.whenShared == WhenShared::pause && !control->rest());
    if (active) {
      EXPECT_EQ(desktop.sharing->observer.observerCount(), !isAway || isShared ? 1U : 0U);
      EXPECT_TRUE(!isAway || current == FilterState::autoPaused(PauseReason::screenOff()));
      const auto rest = control->rest();
      const bool isPaused = rest == Rest::userPaused || rest == Rest::screenShared;
      EXPECT_EQ(desktop.session->resting, isPaused || rest == Rest::lowBattery);
      EXPECT_EQ(rest == Rest::userPaused, rest != Rest::away && pauseEnd().has_value() && !quits);
      EXPECT_NE(kind, Kind::inactive);
      const auto strength = settings->settings.get().filterStrength;
      const bool isAsBefore = kind == Kind::alert && !isDark;
      const float alpha = filterAlpha(isAsBefore ? FilterState::nominal(strength) : current, strength);
      EXPECT_EQ(overlay->currentAlpha, std::min(0.8F, alpha));
    }
    EXPECT_FALSE(active && service->isStarting());
    EXPECT_EQ(service->isAlert(), kind == Kind::alert);
    EXPECT_EQ(overlay->isAlertMode, isDark);
    // Of the camera, the battery, the notice, a calibration, a pause and guests.
    EXPECT_LE(machine.loop->timerCount(), 6 + (kind == Kind::alert ? backend->shown.size() : 0));
  }

  // The test's own business.

  template <class Count>
  std::int64_t pick(Count n) {
    return static_cast<std::int64_t>(random() % static_cast<unsigned>(n));
  }
  [[nodiscard]] std::int64_t now() const { return machine.loop->nowMs(); }
  void begin(unsigned seed) {
    random.seed(seed);
    steps = "seed " + std::to_string(seed) + '\n';
    desktop.session->tell(SessionEvent::screensDidWake);
    desktop.sharing->shared = false;
    desktop.notifications->heard = true;
    settings->save(ProtectionOptions());
    look(alone);
    cameBack = false;
    mayBeCovered = true;  // as the life before left it
    wasCovered = overlay->isCovered();
    notPausedSinceMs = onlookerSinceMs = now();
    beWell();
    watchingSinceMs = healthySinceMs = closedSinceMs = now();
    // Every other life begins without a camera.
    machine.session->plug(seed % 2 == 0);
    machine.session->seen = seed % 2 == 0;
  }
  void end() {
    calibration.reset();
    service->stop();
    settings->save(ProtectionOptions());
    capture.heldMs = analysis.heldMs = 0;
    answerConsent(false);
    answer(*desktop.notifications, true);
    settleTurns();
    expectFitting();
    EXPECT_FALSE(machine.session->running);
    EXPECT_EQ(machine.loop->timerCount(), 0U);
    EXPECT_EQ(camera->analyzer(), nullptr);
    EXPECT_EQ(machine.freeFrames(), 8U) << "no frame is held";
  }

  using Answer = RemoteControl::Answer;
  RemoteControl remote{service, platform(), [] {}};
  Registration stateRegistration;
  std::mt19937 random;
  std::string steps;
  bool taken = false;
  bool quits = false;
  bool silent = false;
  bool inferenceFails = false;
  Thread capture{static_cast<test::ManualQueue&>(*machine.cameraQueue)};
  Thread analysis{static_cast<test::ManualQueue&>(*machine.analysisQueue)};
  std::int64_t reportDueMs = 0;
  std::int64_t lastAnalysedMs = 0;
  std::int64_t watchingSinceMs = 0;
  std::int64_t healthySinceMs = 0;
  std::int64_t closedSinceMs = 0;
  std::int64_t notPausedSinceMs = 0;
  std::int64_t onlookerSinceMs = 0;
  bool isWatched = false;
  bool cameBack = false;      // since the pause began
  bool mayBeCovered = false;  // because it was asked for
  bool wasCovered = false;
};

TEST_F(ServiceStormTest, AHundredThousandRandomStepsBreakNoRule) {
  constexpr unsigned lives = 500;
  constexpr int stepsInALife = 200;
  // What the rules are held against, and how often at least.
  const struct {
    const char* what;
    int least;
    std::function<bool()> isNow;
  } moments[] = {
      {"an alert", 500, [this] { return state() == Kind::alert; }},
      {"no camera", 2000, [this] { return state() == Kind::cameraBusy; }},
      {"a calibration", 1000, [this] { return isCalibrating(); }},
      {"healed", 1000, [this] { return now() - healthySinceMs > healingLimitMs; }},
      {"a pause", 500, [this] { return pauseEnd().has_value(); }},
      {"guests", 500, [this] { return stay().has_value(); }},
      {"a shared screen", 500, [this] { return relaxations().isScreenShared().get(); }},
      {"a cover", 500, [this] { return overlay->isCovered().get(); }},
      {"a poster", 50, [this] { return relaxations().filter.ignoredCount() > 0; }},
  };
  std::map<std::string, int> seen;
  for (unsigned seed = 0; seed < lives && !HasFailure(); ++seed) {
    begin(seed);
    for (int i = 0; i < stepsInALife && !HasFailure(); ++i) {
      happen();
      const std::int64_t ticks = pick(8) == 0 ? pick(100) : pick(6);
      for (std::int64_t t = 0; t < ticks && !HasFailure(); ++t) tick();
      for (const auto& moment : moments) seen[moment.what] += moment.isNow();
    }
    if (!HasFailure()) end();
  }
  if (HasFailure()) std::cout << steps;
  for (const auto& [what, least, isNow] : moments) EXPECT_GT(seen[what], least) << what;
}

}  // namespace
}  // namespace sentrel
