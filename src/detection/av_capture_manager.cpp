// SPDX-License-Identifier: Apache-2.0
#include "detection/av_capture_manager.h"

#include <atomic>
#include <chrono>
#include <utility>

#include "platform/platform.h"

namespace sentrel {

namespace {

constexpr std::int64_t calibrationFps = 10;
constexpr int frameWidth = 640;  // pixels
constexpr int frameHeight = 480;
// A camera service that was just started lists its devices within a second or two.
constexpr std::chrono::milliseconds firstListingTimeout{3000};

/// Prepares `session` for its start. Only what a person must mend is reported as the device's own error.
/// Camera queue.
std::optional<StartError> configure(CaptureSession& session, CaptureRequest request) {
  auto error = session.awaitDevices(firstListingTimeout);
  if (error) {
    if (error->kind == CaptureError::Kind::noService) return *std::move(error);
    return CameraError::noCameraAvailable;
  }
  error = session.configure(std::move(request));
  if (!error) return std::nullopt;
  if (error->kind == CaptureError::Kind::accessDenied) return *std::move(error);
  return CameraError::configurationFailed;
}

}  // namespace

/// A start that is under way. `abandoned` is how a stop overtakes it on the camera queue.
struct AVCaptureManager::Start {
  StartCompletion completion;
  bool onSessionQueue = false;
  std::atomic<bool> abandoned = false;
};

AVCaptureManager::AVCaptureManager(std::shared_ptr<CaptureSession> captureSession,
                                   std::shared_ptr<SerialQueue> cameraQueue, AnalysisEnvironment environment,
                                   std::shared_ptr<SettingsRepository> settingsRepo)
    : session_(std::move(captureSession)),
      sessionQueue(std::move(cameraQueue)),
      environment_(std::move(environment)),
      settingsRepo_(std::move(settingsRepo)),
      settingsRegistration_(
          settingsRepo_->settings.subscribe([this](const FilterSettings&) { useSelection(); })) {}

const std::shared_ptr<AVCaptureManager>& AVCaptureManager::shared() {
  static const auto instance = [] {
    const Platform& platform = Platform::current();
    return std::make_shared<AVCaptureManager>(platform.captureSession, platform.cameraQueue,
                                              AnalysisEnvironment::of(platform),
                                              SettingsRepository::shared());
  }();
  return instance;
}

// Frames.

void AVCaptureManager::setAnalyzer(std::shared_ptr<VisionFaceAnalyzer> analyzer) {
  if (!analyzer && sampler_) {
    analyzer = std::make_shared<VisionFaceAnalyzer>(calibrationFps, environment_);
  }
  if (analyzer == analyzer_) return;
  analyzer_ = std::move(analyzer);
  if (analyzer_ && sampler_) analyzer_->onCalibrationSample = sampler_;
  sessionQueue->async([route = route_, next = std::weak_ptr(analyzer_)] { route->analyzer = next; });
  if (analyzer_)
    environment_.analysisQueue->async(
        [detector = environment_.faceDetector] { detector->restartTracking(); });
  updateFrameDemand();
}

void AVCaptureManager::setSuspended(bool suspended) {
  if (analyzer_) analyzer_->isSuspended = suspended;
  updateFrameDemand();
}

void AVCaptureManager::updateFrameDemand() {
  FrameDemand demand;
  if (analyzer_ && !analyzer_->isSuspended) {
    // Just above the interval: a frame handed over a moment too early would be dropped by the throttle, and
    // the next one would come a whole camera period late.
    demand = {true, analyzer_->minIntervalMs() + 1};
  }
  if (demand == demand_) return;
  demand_ = demand;
  session_->setFrameDemand(demand);
}

// Start and stop.

CaptureRequest AVCaptureManager::captureRequest() const {
  return {frameWidth, frameHeight, preferredCameraID_,
          [route = route_](const FrameRef& frame) { route->captureOutput(frame); }};
}

void AVCaptureManager::requestAccess(std::function<void(bool granted)> answer) {
  const auto status = session_->authorizationStatus();
  if (status == AuthorizationStatus::notDetermined) {
    session_->requestAccess(std::move(answer));
  } else {
    answer(status == AuthorizationStatus::authorized);
  }
}

void AVCaptureManager::findCameras(
    std::function<void(const std::optional<CaptureError>& missing)> told) const {
  sessionQueue->async([session = session_, mainLoop = environment_.mainLoop, told = std::move(told)] {
    mainLoop->post([told, missing = session->awaitDevices(firstListingTimeout)] { told(missing); });
  });
}

void AVCaptureManager::startSession(StartCompletion completion) {
  if (start_) start_->abandoned = true;
  const auto start = start_ = std::make_shared<Start>();
  start->completion = std::move(completion);
  requestAccess([weak = weak_from_this(), start](bool granted) {
    const auto self = weak.lock();
    if (!self || start->abandoned) return;
    if (!granted) {
      self->finish(start, CameraError::permissionDenied);
    } else if (self->runs()) {
      self->finish(start, std::nullopt);
    } else {
      self->prepareDetector(start);
    }
  });
}

void AVCaptureManager::prepareDetector(const std::shared_ptr<Start>& start) {
  environment_.analysisQueue->async([weak = weak_from_this(), start, detector = environment_.faceDetector,
                                     mainLoop = environment_.mainLoop] {
    auto error = detector->prepare();
    mainLoop->post([weak, start, error = std::move(error)]() mutable {
      const auto self = weak.lock();
      if (!self || start->abandoned) return;
      if (error) {
        self->finish(start, *std::move(error));
      } else {
        self->startOnSessionQueue(start);
      }
    });
  });
}

void AVCaptureManager::startOnSessionQueue(const std::shared_ptr<Start>& start) {
  start->onSessionQueue = true;
  sessionQueue->async([weak = weak_from_this(), start, session = session_, request = captureRequest(),
                       mainLoop = environment_.mainLoop]() mutable {
    if (start->abandoned) return;
    auto error = configure(*session, std::move(request));
    // Waiting for devices takes time: the camera must not open for a start that a stop has overtaken.
    if (start->abandoned) return;
    if (!error) session->startRunning();
    mainLoop->post([weak, start, error = std::move(error)]() mutable {
      const auto self = weak.lock();
      if (!self || start->abandoned) return;
      if (!error) self->isRunning_ = true;
      self->finish(start, std::move(error));
    });
  });
}

void AVCaptureManager::finish(const std::shared_ptr<Start>& start, std::optional<StartError> error) {
  start_.reset();
  environment_.mainLoop->post([start, error = std::move(error)] { start->completion(error); });
}

void AVCaptureManager::stopSession(std::function<void()> closed) {
  if (start_) std::exchange(start_, nullptr)->abandoned = true;
  ++pendingStops_;
  sessionQueue->async([weak = weak_from_this(), session = session_, mainLoop = environment_.mainLoop,
                       closed = std::move(closed)]() mutable {
    session->stopRunning();
    mainLoop->post([weak, closed = std::move(closed)] {
      if (const auto self = weak.lock()) self->sessionStopped();
      if (closed) closed();
    });
  });
}

void AVCaptureManager::sessionStopped() {
  --pendingStops_;
  if (pendingStops_ == 0 && !start_) {
    environment_.analysisQueue->async([detector = environment_.faceDetector] { detector->release(); });
  }
  if (!isRunning_) return;
  isRunning_ = false;
  useSelection();
}

void AVCaptureManager::switchCamera(std::optional<std::string> id) {
  preferredCameraID_ = std::move(id);
  // A start that is already on the camera queue took the earlier choice with it.
  if (!isRunning_ && !(start_ && start_->onSessionQueue)) return;
  sessionQueue->async([session = session_, request = captureRequest()]() mutable {
    (void)session->configure(std::move(request));  // without a camera no frame comes, which is noticed
  });
}

void AVCaptureManager::useSelection() {
  if (isRunning_) return;
  const auto& selected = settingsRepo_->settings.get().selectedCameraID;
  if (preferredCameraID_ != selected) switchCamera(selected);
}

void AVCaptureManager::startCalibrationSampling(std::function<void(double faceWidth)> handler) {
  sampler_ = std::move(handler);
  if (!analyzer_) setAnalyzer(nullptr);  // it gets one of its own
  setSuspended(false);
  analyzer_->onCalibrationSample = sampler_;
}

void AVCaptureManager::stopCalibrationSampling() {
  sampler_ = nullptr;
  if (analyzer_) analyzer_->onCalibrationSample = nullptr;
}

}  // namespace sentrel
