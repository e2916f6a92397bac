// SPDX-License-Identifier: Apache-2.0
#include "service/privacy_filter_service.h"

#include <algorithm>
#include <utility>

#include "detection/av_capture_manager.h"
#include "platform/platform.h"
#include "service/viewing_distance.h"
#include "support/checked.h"
#include "support/fatal.h"

namespace sentrel {

namespace {

constexpr std::int64_t cameraRetryMs = 5000;
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
      captureSession_(std::move(parts.captureSession)),
      overlayManager(std::move(parts.overlayManager)),
      settingsRepo(std::move(parts.settingsRepo)),
      statsRepo(std::move(parts.statsRepo)),
      sessionEvents_(std::move(parts.sessionEvents)),
      powerSource_(std::move(parts.powerSource)),
      keyMonitor_(std::move(parts.keyMonitor)),
      notifications_(std::move(parts.notifications)),
      haptics_(std::move(parts.haptics)),
      localizedText_(std::move(parts.localizedText)),
      retroPiP_(std::move(parts.retroPiP)) {
  cameraRunningRegistration_ = cameraManager->isRunning().onChange([this](bool running) {
    if (!running) cameraClosing_ = false;
  });
}

const std::shared_ptr<PrivacyFilterService>& PrivacyFilterService::shared() {
  static const auto instance = [] {
    const Platform& platform = Platform::current();
    return std::make_shared<PrivacyFilterService>(
        Parts{.environment = AnalysisEnvironment::of(platform),
              .cameraManager = AVCaptureManager::shared(),
              .captureSession = AVCaptureManager::shared()->session(),
              .overlayManager = OverlayWindowManager::shared(),
              .settingsRepo = SettingsRepository::shared(),
              .statsRepo = StatsRepository::shared(),
              .sessionEvents = platform.sessionEvents,
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

void PrivacyFilterService::start() {
  // A camera that is about to stop does not count as running: switching off and on again must end on.
  if (cameraManager->isRunning() && !cameraClosing_) return;
  // On already; the camera opens again when the person comes back.
  if (away_ || std::exchange(starting_, true)) return;
  const std::uint64_t attempt = ++startAttempt_;
  // Whatever the answer is: notifications that nobody may show are dropped by the desktop.
  notifications_->requestAuthorization([weak = weak_from_this(), attempt](bool /*granted*/) {
    if (const auto self = weak.lock()) self->startCamera(attempt);
  });
}

void PrivacyFilterService::startCamera(std::uint64_t attempt) {
  if (attempt != startAttempt_ || !starting_) return;  // a stop came meanwhile, and wins
  sessionStartDate = environment_.clock->nowMs();
  statsRepo->incrementSessions();
  analyzer = std::make_shared<VisionFaceAnalyzer>(settingsRepo->settings.get().captureFps, environment_);
  analyzer->onResult = [weak = weak_from_this(),
                        mainLoop = environment_.mainLoop](const DetectionInput& input) {
    mainLoop->post([weak, input] {
      if (const auto self = weak.lock()) self->handleDetectionInput(input);
    });
  };
  cameraManager->setAnalyzer(analyzer);

  cameraManager->startSession([weak = weak_from_this(), attempt](const StartResult& result) {
    if (const auto self = weak.lock()) self->startFinished(attempt, result);
  });
}

void PrivacyFilterService::startFinished(std::uint64_t attempt, const StartResult& result) {
  if (attempt != startAttempt_ || !starting_) return;
  starting_ = false;
  switch (result.outcome) {
    case StartResult::Outcome::stoppedMeanwhile:
      return;
    case StartResult::Outcome::failed:
      fsm.setState(FilterState::cameraBusy(cameraRetryMs));
      return;
    case StartResult::Outcome::started:
      break;
  }
  fsm.activate();
  ensureOverlay();
  observeSettings();
  observeFsm();
  observeSystemEvents();
  startBatteryMonitor();
  if (settingsRepo->settings.get().globalShortcutEnabled) registerGlobalShortcut();
  assignIfChanged(isActive_, true);
}

void PrivacyFilterService::stop() {
  abandonStart();
  if (const auto seconds = takeSessionSeconds())
    environment_.mainLoop->post(
        [stats = statsRepo, seconds = *seconds] { stats->addActiveSeconds(seconds); });
  assignIfChanged(fsmState_, FilterState::inactive());
  assignIfChanged(isActive_, false);
  assignIfChanged(isAlert_, false);
  fsm.setState(FilterState::inactive());
  ++stopCount_;  // what an earlier state has still to bring about must not follow a stop
  handleFsmSideEffects(FilterState::inactive());
  analyzer.reset();
  cameraManager->setAnalyzer(nullptr);
  closeCamera([] {});
  settingsCancellable.reset();
  fsmCancellable.reset();
  busyRetry_.reset();
  batteryTimer.reset();
  powerRegistration_.reset();
  unregisterGlobalShortcut();
  removeSystemEventObservers();
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

void PrivacyFilterService::releaseCamera() {
  if (isActive_ || starting_) return;
  cameraManager->setAnalyzer(nullptr);
  closeCamera([] {});
}

/// Makes the answer to a start that is under way come too late.
void PrivacyFilterService::abandonStart() {
  ++startAttempt_;
  starting_ = false;
}

void PrivacyFilterService::closeCamera(std::function<void()> closed) {
  cameraClosing_ = cameraManager->isRunning();
  cameraManager->stopSession(std::move(closed));
}

// The road of a frame.

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
  const FaceTuning tuning{static_cast<int>(std::clamp<std::int64_t>(settings.sensitivity, 1, 5)),
                          settings.glassesCompat};
  if (tuning_ == tuning) return;
  tuning_ = tuning;
  environment_.analysisQueue->async(
      [detector = environment_.faceDetector, tuning] { detector->tune(tuning); });
}

}  // namespace sentrel
