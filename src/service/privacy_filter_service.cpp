// SPDX-License-Identifier: Apache-2.0
#include "service/privacy_filter_service.h"

#include <algorithm>
#include <utility>

#include "detection/av_capture_manager.h"
#include "platform/platform.h"
#include "service/viewing_distance.h"
#include "support/fatal.h"

namespace sentrel {

namespace {

// Even the strongest filter leaves the screen readable for its user.
constexpr float greatestOpacity = 0.8F;

template <class T>
void assignIfChanged(Published<T>& published, T value) {
  if (published.get() != value) published = std::move(value);
}

}  // namespace

PrivacyFilterService::PrivacyFilterService(Parts parts)
    : environment_(std::move(parts.environment)),
      cameraManager(std::move(parts.cameraManager)),
      cameraControl_(std::move(parts.cameraControl)),
      overlayManager(std::move(parts.overlayManager)),
      settingsRepo(std::move(parts.settingsRepo)),
      statsRepo(std::move(parts.statsRepo)),
      notifications_(std::move(parts.notifications)),
      feedback_({environment_.clock, settingsRepo, statsRepo, notifications_, std::move(parts.haptics),
                 parts.localizedText, std::move(parts.retroPiP)}),
      blindness_(environment_.mainLoop, cameraControl_, notifications_, parts.localizedText),
      systemEvents_({environment_.mainLoop, cameraControl_, overlayManager, settingsRepo,
                     std::move(parts.powerSource), std::move(parts.keyMonitor)}) {}

const std::shared_ptr<PrivacyFilterService>& PrivacyFilterService::shared() {
  static const auto instance = [] {
    const Platform& platform = Platform::current();
    return std::make_shared<PrivacyFilterService>(Parts{.environment = AnalysisEnvironment::of(platform),
                                                        .cameraManager = AVCaptureManager::shared(),
                                                        .cameraControl = CameraControl::shared(),
                                                        .overlayManager = OverlayWindowManager::shared(),
                                                        .settingsRepo = SettingsRepository::shared(),
                                                        .statsRepo = StatsRepository::shared(),
                                                        .powerSource = platform.powerSource,
                                                        .keyMonitor = platform.keyMonitor,
                                                        .notifications = platform.notifications,
                                                        .haptics = platform.haptics,
                                                        .localizedText = platform.localizedText,
                                                        .retroPiP = RetroPiPManager::shared()});
  }();
  return instance;
}

// Switching on and off.

void PrivacyFilterService::toggle() {
  if (isActive_ || isStarting_) {
    stop();
  } else {
    start();
  }
}

void PrivacyFilterService::start() {
  if (isActive_ || isStarting_) return;
  isStarting_ = true;
  // Whatever the answer is: notifications that nobody may show are dropped by the desktop.
  notifications_->requestAuthorization([weak = weak_from_this()](bool /*granted*/) {
    if (const auto self = weak.lock()) self->startCamera();
  });
}

void PrivacyFilterService::startCamera() {
  // A stop came meanwhile, or the answer to an earlier start.
  if (!isStarting_ || cameraWish_) return;
  sessionStartDate = environment_.clock->nowMs();
  statsRepo->incrementSessions();
  if (!cameraControl_->isPermitted()) sessionStartDate.reset();  // the person may take hours to answer
  makeAnalyzer();
  cameraManager->setAnalyzer(analyzer);
  cameraWish_ = cameraControl_->wish(CameraControl::Wish::protection);
  cameraStatus_ = cameraControl_->status().onChange(
      [this](const CameraControl::Status& status) { cameraChanged(status); });
  cameraChanged(cameraControl_->status());
}

void PrivacyFilterService::startFinished() {
  if (!sessionStartDate) sessionStartDate = environment_.clock->nowMs();
  fsm.activate();
  ensureOverlay();
  observeSettings();
  observeFsm();
  if (!cameraWish_) return;  // who heard of the state switched protection off
  systemEvents_.startBatteryMonitor();
  if (settingsRepo->settings.get().globalShortcutEnabled) {
    systemEvents_.registerGlobalShortcut([weak = weak_from_this()] {
      if (const auto self = weak.lock()) self->toggle();
    });
  }
  assignIfChanged(isActive_, true);
  assignIfChanged(isStarting_, false);
}

void PrivacyFilterService::stop() {
  if (const auto seconds = takeSessionSeconds())
    environment_.mainLoop->post(
        [stats = statsRepo, seconds = *seconds] { stats->addActiveSeconds(seconds); });
  assignIfChanged(fsmState_, FilterState::inactive());
  assignIfChanged(isActive_, false);
  assignIfChanged(isStarting_, false);
  assignIfChanged(isAlert_, false);
  fsm.setState(FilterState::inactive());
  ++stopCount_;  // what an earlier state has still to bring about must not follow a stop
  handleFsmSideEffects(FilterState::inactive());
  blindness_.end();
  analyzer.reset();
  cameraManager->setAnalyzer(nullptr);
  cameraStatus_.reset();
  cameraWish_.reset();
  settingsCancellable.reset();
  fsmCancellable.reset();
  systemEvents_.end();
}

void PrivacyFilterService::countSession() {
  if (const auto seconds = takeSessionSeconds()) statsRepo->addActiveSeconds(*seconds);
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
  blindness_.follow(status);
  if (!isActive_) {
    if (status.kind == Kind::seeing) startFinished();
    // The hours of waiting are not hours of protection.
    if (status.kind == Kind::blind || status.kind == Kind::resting) sessionStartDate.reset();
    return;
  }
  systemEvents_.setAway(status == CameraControl::Status{Kind::resting, CameraControl::Rest::away});
  switch (status.kind) {
    case Kind::seeing:
      fsm.onSystemEvent(Event::screenOn);
      fsm.onSystemEvent(Event::cameraAvailable);
      break;
    case Kind::blind:
      fsm.onSystemEvent(Event::cameraBusy);
      break;
    case Kind::resting:
      fsm.onSystemEvent(status.rest == CameraControl::Rest::lowBattery ? Event::batteryLow
                                                                       : Event::screenOff);
      break;
    case Kind::opening:
    case Kind::closed:
      break;
  }
}

// The road of a frame.

void PrivacyFilterService::makeAnalyzer() {
  const std::int64_t fps = inUse(settingsRepo->settings.get(), &FilterSettings::captureFps);
  analyzer = std::make_shared<VisionFaceAnalyzer>(fps, environment_);
  analyzer->onResult = [weak = weak_from_this(), source = std::weak_ptr(analyzer),
                        mainLoop = environment_.mainLoop](const DetectionInput& input) {
    mainLoop->post([weak, source, input] {
      const auto self = weak.lock();
      const auto from = source.lock();
      if (!self || !from || from != self->analyzer) return;  // of a session that has ended
      self->cameraControl_->frameAnalysed(input.timestampMs);
      self->handleDetectionInput(input);
    });
  };
  analyzer->onFailure = [control = cameraControl_] { control->analysisFailed(); };
}

void PrivacyFilterService::handleDetectionInput(const DetectionInput& input) {
  switch (fsm.state().get().kind()) {
    case FilterState::Kind::nominal:
      fsm.handleNominal(input);
      break;
    case FilterState::Kind::inattention:
      fsm.handleInattention(input);
      break;
    case FilterState::Kind::alert:
      fsm.handleAlert(input);
      break;
    case FilterState::Kind::autoPaused:
    case FilterState::Kind::cameraBusy:
    case FilterState::Kind::inactive:
      break;
  }
  if (input.primaryFace && input.primaryFace->boundingBoxRatio > 0) updateViewingDistance(*input.primaryFace);
}

void PrivacyFilterService::updateViewingDistance(const FaceData& face) {
  const FilterSettings& settings = settingsRepo->settings.get();
  const std::int64_t cm = matrixDistanceFor(face.boundingBoxRatio, settings.privacyMatrixCoefficient);
  if (isNewMatrixDistance(cm, overlayManager->lastDistanceCm)) applyMatrix(settings, cm);
}

// What follows from a state.

void PrivacyFilterService::observeFsm() {
  fsmCancellable = fsm.state().subscribe([this](const FilterState& state) {
    const std::uint64_t session = stopCount_;
    assignIfChanged(fsmState_, state);
    if (session != stopCount_) return;  // who heard of the state switched protection off
    applyOpacity(state, settingsRepo->settings.get());
    // The opacity is there at once; the rest of what is seen comes in the next turn, in the order of states.
    environment_.mainLoop->post([weak = weak_from_this(), session, state] {
      const auto self = weak.lock();
      if (self && session == self->stopCount_) self->handleFsmSideEffects(state);
    });
  });
}

void PrivacyFilterService::handleFsmSideEffects(const FilterState& state) {
  assignIfChanged(isAlert_, state.is(FilterState::Kind::alert));
  if (!state.is(FilterState::Kind::alert)) feedback_.forget(analyzer.get());
  switch (state.kind()) {
    case FilterState::Kind::nominal:
    case FilterState::Kind::inattention:
      assignIfChanged(overlayManager->isAlertMode, false);
      ensureOverlay();
      feedback_.withdrawNotification();
      break;
    case FilterState::Kind::alert:
      ensureOverlay();
      assignIfChanged(overlayManager->isAlertMode, true);
      feedback_.follow(analyzer.get());
      feedback_.alertStarted();
      break;
    case FilterState::Kind::autoPaused:
      assignIfChanged(overlayManager->isAlertMode, false);
      overlayManager->hide();
      break;
    case FilterState::Kind::cameraBusy:
      assignIfChanged(overlayManager->isAlertMode, false);
      break;
    case FilterState::Kind::inactive:
      assignIfChanged(overlayManager->isAlertMode, false);
      overlayManager->hide();
      feedback_.withdrawNotification();
      break;
  }
}

/// Nothing is mapped while the person is away: it would lie above a screen locker.
void PrivacyFilterService::ensureOverlay() {
  if (!cameraControl_->rest() && !overlayManager->isShowing()) overlayManager->show();
}

// The person's settings.

void PrivacyFilterService::observeSettings() {
  appliedSettings_.reset();
  settingsCancellable =
      settingsRepo->settings.subscribe([this](const FilterSettings& settings) { applySettings(settings); });
}

void PrivacyFilterService::applySettings(const FilterSettings& settings) {
  if (appliedSettings_ == settings) return;
  appliedSettings_ = settings;
  fsm.settings = settings;
  applyOpacity(fsm.state().get(), settings);
  applyMatrix(settings, overlayManager->lastDistanceCm);
  tuneDetector(settings);
}

void PrivacyFilterService::applyOpacity(const FilterState& state, const FilterSettings& settings) {
  assignIfChanged(overlayManager->currentAlpha,
                  std::min(filterAlpha(state, settings.filterStrength), greatestOpacity));
}

void PrivacyFilterService::applyMatrix(const FilterSettings& settings, std::int64_t distanceCm) {
  overlayManager->matrixEnabled = settings.privacyMatrixEnabled;
  overlayManager->matrixDistanceCm = distanceCm;
  overlayManager->matrixColorArgb = settings.matrixColorArgb;
  overlayManager->matrixStripeAlpha = settings.matrixStripeAlpha;
  overlayManager->lastDistanceCm = distanceCm;
}

void PrivacyFilterService::tuneDetector(const FilterSettings& settings) {
  const FaceTuning tuning{static_cast<int>(inUse(settings, &FilterSettings::sensitivity)),
                          settings.glassesCompat};
  if (tuning_ == tuning) return;
  tuning_ = tuning;
  environment_.analysisQueue->async(
      [detector = environment_.faceDetector, tuning] { detector->tune(tuning); });
}

}  // namespace sentrel
