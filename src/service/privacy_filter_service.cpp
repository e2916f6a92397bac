// SPDX-License-Identifier: Apache-2.0
#include "service/privacy_filter_service.h"

#include <utility>

#include "support/fatal.h"

namespace sentrel {

PrivacyFilterService::PrivacyFilterService(ServiceDependencies dependencies)
    : uses_(std::move(dependencies)) {}

const std::shared_ptr<PrivacyFilterService>& PrivacyFilterService::shared() {
  static const auto instance = std::make_shared<PrivacyFilterService>(
      ServiceDependencies{Platform::current(), AVCaptureManager::shared(), CameraControl::shared(),
                          OverlayWindowManager::shared(), RetroPiPManager::shared(),
                          SettingsRepository::shared(), StatsRepository::shared()});
  return instance;
}

// Switching on and off.

void PrivacyFilterService::toggle() {
  isSwitchedOn() ? stop() : start();
}

void PrivacyFilterService::start() {
  if (isSwitchedOn()) return;
  isStarting_ = true;
  // Whatever the answer is: notifications that nobody may show are dropped by the desktop.
  uses_.platform.notifications->requestAuthorization([weak = weak_from_this()](bool /*granted*/) {
    if (const auto self = weak.lock()) self->startCamera();
  });
}

void PrivacyFilterService::startCamera() {
  // A stop came meanwhile, or the answer to an earlier start.
  if (!isStarting_ || cameraWish_) return;
  sessionStartDate = environment_.clock->nowMs();
  uses_.statsRepo->incrementSessions();
  if (!uses_.cameraControl->isPermitted()) sessionStartDate.reset();  // the person may take hours to answer
  makeAnalyzer();
  uses_.cameraManager->setAnalyzer(analyzer);
  cameraWish_ = uses_.cameraControl->wish(CameraControl::Wish::protection);
  relaxations_.begin();
  cameraStatus_ = uses_.cameraControl->status().onChange(
      [this](const CameraControl::Status& status) { cameraChanged(status); });
  cameraChanged(uses_.cameraControl->status());
}

void PrivacyFilterService::startFinished(const CameraControl::Status& status) {
  if (!sessionStartDate) sessionStartDate = environment_.clock->nowMs();
  fsm.activate();
  if (status.kind == CameraControl::Status::Kind::resting) cameraRests(status.rest);
  observeSettings();
  observeRelaxations();
  overlay_.show(fsm.state());
  observeFsm();
  if (!cameraWish_) return;  // an observer of the state switched protection off
  systemEvents_.startBatteryMonitor();
  if (uses_.settingsRepo->settings.get().globalShortcutEnabled) {
    systemEvents_.registerGlobalShortcut([weak = weak_from_this()] {
      if (const auto self = weak.lock()) self->toggle();
    });
  }
  isActive_.assignIfChanged(true);
  isStarting_.assignIfChanged(false);
}

void PrivacyFilterService::stop() {
  if (const auto seconds = takeSessionSeconds())
    environment_.mainLoop->post(
        [stats = uses_.statsRepo, seconds = *seconds] { stats->addActiveSeconds(seconds); });
  fsmState_.assignIfChanged(FilterState::inactive());
  isActive_.assignIfChanged(false);
  isStarting_.assignIfChanged(false);
  isAlert_.assignIfChanged(false);
  fsm.setState(FilterState::inactive());
  ++stopCount_;  // cancels the side effects that earlier states have posted
  handleFsmSideEffects(FilterState::inactive());
  blindness_.end();
  conditions_.end();
  analyzer.reset();
  uses_.cameraManager->setAnalyzer(nullptr);
  // The wish goes before what speaks against it: the camera must not open between the two.
  cameraStatus_.reset();
  cameraWish_.reset();
  relaxations_.end();
  settingsCancellable.reset();
  relaxationsObserved_.clear();
  fsmCancellable.reset();
  systemEvents_.end();
}

void PrivacyFilterService::countSession() {
  if (const auto seconds = takeSessionSeconds()) uses_.statsRepo->addActiveSeconds(*seconds);
  recorder_.alertEnded(FilterState::inactive());
}

/// Of the session that runs; it counts as ended from now on.
std::optional<std::int64_t> PrivacyFilterService::takeSessionSeconds() {
  const auto began = std::exchange(sessionStartDate, std::nullopt);
  if (!began) return std::nullopt;
  return checkedSubtract(environment_.clock->nowMs(), *began) / 1000;
}

void PrivacyFilterService::cameraChanged(const CameraControl::Status& status) {
  using Kind = CameraControl::Status::Kind;
  using Event = FilterFsm::SystemEvent;
  if (status == CameraControl::Status{Kind::resting, CameraControl::Rest::noConsent}) {
    stop();
    return;
  }
  conditions_.follow(status);
  blindness_.follow(status);
  relaxations_.follow(status);
  if (!isActive_) {
    const bool isPaused = status.kind == Kind::resting && (status.rest == CameraControl::Rest::userPaused ||
                                                           status.rest == CameraControl::Rest::screenShared);
    if (status.kind == Kind::seeing || isPaused) return startFinished(status);
    // The hours of waiting are not hours of protection.
    if (status.kind == Kind::blind || status.kind == Kind::resting) sessionStartDate.reset();
    return;
  }
  systemEvents_.setAway(status == CameraControl::Status{Kind::resting, CameraControl::Rest::away});
  if (status.kind == Kind::seeing) {
    fsm.onSystemEvent(Event::screenOn);
    fsm.onSystemEvent(Event::cameraAvailable);
  } else if (status.kind == Kind::blind) {
    fsm.onSystemEvent(Event::cameraBusy);
  } else if (status.kind == Kind::resting) {
    cameraRests(status.rest);
  }
}

void PrivacyFilterService::cameraRests(CameraControl::Rest rest) {
  using Event = FilterFsm::SystemEvent;
  const auto pauseEnd = relaxations_.pauseEndMs().get();
  if (rest == CameraControl::Rest::lowBattery) {
    fsm.onSystemEvent(Event::batteryLow);
  } else if (rest == CameraControl::Rest::userPaused && pauseEnd) {
    fsm.onSystemEvent({Event::userPause, checkedSubtract(*pauseEnd, environment_.clock->nowMs())});
  } else if (rest == CameraControl::Rest::screenShared) {
    fsm.onSystemEvent(Event::userPause);  // nobody knows for how long
  } else {
    fsm.onSystemEvent(Event::screenOff);
  }
}

// What the machine hears, and what follows from its states.

void PrivacyFilterService::makeAnalyzer() {
  const std::int64_t fps = inUse(uses_.settingsRepo->settings.get(), &FilterSettings::captureFps);
  analyzer = std::make_shared<VisionFaceAnalyzer>(fps, environment_);
  analyzer->onResult = [weak = weak_from_this(), source = std::weak_ptr(analyzer),
                        mainLoop = environment_.mainLoop](const DetectionInput& input,
                                                          const std::shared_ptr<const FaceList>& faces) {
    mainLoop->post([weak, source, input, faces] {
      const auto self = weak.lock();
      const auto from = source.lock();
      if (!self || !from || from != self->analyzer) return;  // of a session that has ended
      self->uses_.cameraControl->frameAnalysed(input.timestampMs);
      self->handleDetectionInput(input, faces.get());
    });
  };
  analyzer->onLook = [weak = weak_from_this()](std::int64_t timestampMs, std::int64_t faces,
                                               const auto& look) {
    if (const auto self = weak.lock()) self->conditions_.frame(timestampMs, faces, look);
  };
  liveView_.follow(analyzer);
  // Weakly: the analysis queue may be the last that holds the analyser.
  analyzer->onFailure = [weak = std::weak_ptr(uses_.cameraControl)] {
    if (const auto control = weak.lock()) control->analysisFailed();
  };
}

void PrivacyFilterService::handleDetectionInput(const DetectionInput& input, const FaceList* faces) {
  static const FaceList alone;
  const bool isAlert = fsm.state().get().is(FilterState::Kind::alert);
  const auto frame = relaxations_.filter.apply(input, faces != nullptr ? *faces : alone, isAlert);
  feedback_.follow(frame.onlooker);
  recorder_.follow(frame);
  fsm.handle(frame.input);
  liveView_.judged(input.timestampMs, frame, relaxations_.filter, fsm);
  if (input.primaryFace) overlay_.updateDistance(*input.primaryFace);
}

void PrivacyFilterService::observeSettings() {
  appliedSettings_.reset();
  settingsCancellable = uses_.settingsRepo->settings.subscribe([this](const FilterSettings& settings) {
    if (appliedSettings_ == settings) return;
    appliedSettings_ = settings;
    fsm.settings = settings;
    overlay_.applySettings(fsm.state());
    tuneDetector();
  });
}

/// How much of the looks the person, or whoever sees the screen, is to be spared at this moment.
FilterOverlay::Softening PrivacyFilterService::softening() const {
  const ProtectionOptions& options = uses_.settingsRepo->options;
  const bool hides = relaxations_.isScreenShared() && options.whenShared == WhenShared::hideStripes;
  const bool notifiesOnly = hides || options.reaction == Reaction::notifyOnly;
  // What nobody would hear of is shown.
  return {hides, notifiesOnly && uses_.platform.notifications->isHeard().get()};
}

void PrivacyFilterService::observeRelaxations() {
  const auto apply = [this] {
    const auto former = std::exchange(overlay_.softening, softening());
    if (overlay_.softening == former) return;
    overlay_.applyOpacity(fsm.state());
    overlay_.showState(fsm.state());
    if (isAlert_) feedback_.softened(analyzer.get(), former, overlay_.softening);
  };
  overlay_.softening = softening();
  relaxationsObserved_.clear();
  relaxationsObserved_.push_back(relaxations_.isScreenShared().onChange([apply](bool) { apply(); }));
  relaxationsObserved_.push_back(
      uses_.platform.notifications->isHeard().onChange([apply](bool) { apply(); }));
  relaxationsObserved_.push_back(uses_.settingsRepo->options.onChange([this, apply](const auto&) {
    apply();
    tuneDetector();
  }));
  relaxationsObserved_.push_back(
      relaxations_.filter.ignoredCount().onChange([this](const auto&) { tuneDetector(); }));
}

void PrivacyFilterService::tuneDetector() {
  const FilterSettings& settings = uses_.settingsRepo->settings;
  const bool others = uses_.settingsRepo->options.get().onlyFacing || relaxations_.filter.ignoredCount() > 0;
  const FaceTuning tuning{static_cast<int>(inUse(settings, &FilterSettings::sensitivity)),
                          settings.glassesCompat, others};
  if (tuning_ == tuning) return;
  tuning_ = tuning;
  environment_.analysisQueue->async(
      [detector = environment_.faceDetector, tuning] { detector->tune(tuning); });
}

void PrivacyFilterService::observeFsm() {
  fsmCancellable = fsm.state().subscribe([this](const FilterState& state) {
    const std::uint64_t session = stopCount_;
    fsmState_.assignIfChanged(state);
    if (session != stopCount_) return;  // an observer of the state switched protection off
    overlay_.softening = softening();
    overlay_.applyOpacity(state);
    // The opacity changes at once, the other effects in the next turn, in the order of the states.
    environment_.mainLoop->post([weak = weak_from_this(), session, state] {
      const auto self = weak.lock();
      if (self && session == self->stopCount_) self->handleFsmSideEffects(state);
    });
  });
}

void PrivacyFilterService::handleFsmSideEffects(const FilterState& state) {
  const bool isAlert = state.is(FilterState::Kind::alert);
  isAlert_.assignIfChanged(isAlert);
  if (!isAlert) {
    feedback_.alertEnded(analyzer.get());
    recorder_.alertEnded(state);
  }
  overlay_.showState(state);
  if (isAlert) {
    const bool notifies = feedback_.alertStarted(analyzer.get(), overlay_.softening);
    recorder_.alertStarted(!overlay_.softening.noDarkening, notifies);
  } else if (!state.is(FilterState::Kind::autoPaused) && !state.is(FilterState::Kind::cameraBusy)) {
    feedback_.withdrawNotification();
  }
}

}  // namespace sentrel
