// SPDX-License-Identifier: Apache-2.0
#include "detection/camera_control.h"

#include <array>
#include <utility>

#include "platform/platform.h"
#include "support/fatal.h"

namespace sentrel {

namespace {

using Kind = CameraFailure::Kind;

struct FailureTexts {
  const char* failure;
  const char* advice;
};

// In the order of the kinds.
constexpr std::array<FailureTexts, 7> texts{{
    {textId("error_no_camera"), textId("advice_no_camera")},
    {textId("error_camera_denied"), textId("advice_camera_denied")},
    {textId("error_camera_busy"), textId("advice_camera_busy")},
    {textId("error_model_missing"), textId("advice_model_missing")},
    {textId("error_no_pipewire"), textId("advice_no_pipewire")},
    {textId("error_analysis_failed"), textId("advice_analysis_failed")},
    {textId("error_no_consent"), textId("advice_no_consent")},
}};

Kind kindOf(CameraError error) {
  if (error == CameraError::permissionDenied) return Kind::cameraDenied;
  return error == CameraError::noCameraAvailable ? Kind::noCamera : Kind::cameraBusy;
}

Kind kindOf(CaptureError::Kind error) {
  // In the order of the errors.
  constexpr std::array kinds{Kind::noCamera, Kind::cameraBusy, Kind::cameraDenied, Kind::noPipeWire};
  return kinds[static_cast<std::size_t>(error)];
}

}  // namespace

const char* textKey(CameraFailure::Kind kind) {
  return texts[static_cast<std::size_t>(kind)].failure;
}

const char* adviceKey(CameraFailure::Kind kind) {
  return texts[static_cast<std::size_t>(kind)].advice;
}

CameraFailure describe(const StartError& error) {
  if (const auto* camera = std::get_if<CameraError>(&error)) return {kindOf(*camera), {}};
  if (const auto* capture = std::get_if<CaptureError>(&error))
    return {kindOf(capture->kind), capture->message};
  return {Kind::modelMissing, std::get<FaceDetectorError>(error).message};
}

CameraControl::CameraControl(Dependencies dependencies) : uses_(std::move(dependencies)) {
  interrupted_ = uses_.captureSession->wasInterrupted.connect([this] {
    if (camera_ != Camera::open) return;
    const auto cause = uses_.captureSession->interruptionCause();
    lose(cause ? describe(*cause) : CameraFailure{Kind::cameraBusy, {}});
  });
  interruptionEnded_ = uses_.captureSession->interruptionEnded.connect([this] {
    // Frames that the detection fails on are no use.
    if (camera_ != Camera::open || !cause_ || failedFrames_ >= mostFailedFrames) return;
    beginToSee(uses_.clock->nowMs());
    publish();
  });
  devicesChanged_ = uses_.captureSession->devicesChanged.connect([this] { retryNow(); });
}

const std::shared_ptr<CameraControl>& CameraControl::shared() {
  static const auto instance = [] {
    const Platform& platform = Platform::current();
    return std::make_shared<CameraControl>(
        Dependencies{platform.mainLoop, platform.clock, AVCaptureManager::shared(),
                     AVCaptureManager::shared()->session(), platform.sessionEvents});
  }();
  return instance;
}

// Wishes and rests.

Registration CameraControl::wish(Wish wish) {
  rests_.erase(Rest::noConsent);
  if (wishes_.empty()) observeSession();
  wishes_.insert(wish);
  // Frames were not analysed for protection so far: their time begins now.
  if (wish == Wish::protection && camera_ == Camera::open) beginToSee(uses_.clock->nowMs());
  update();
  return Registration([weak = weak_from_this(), wish] {
    if (const auto self = weak.lock()) self->endWish(wish);
  });
}

void CameraControl::endWish(Wish wish) {
  wishes_.erase(wishes_.find(wish));
  if (wishes_.empty()) {
    uses_.camera->setAnalyzer(nullptr);
    sessionRegistration_.reset();
    std::erase_if(rests_, [](Rest rest) { return rest != Rest::quitting && rest != Rest::noConsent; });
  } else if (wish == Wish::protection) {
    // Nobody watches them any more.
    for (const Rest rest : {Rest::userPaused, Rest::screenShared, Rest::lowBattery}) rests_.erase(rest);
    if (camera_ == Camera::open) beginToSee(uses_.clock->nowMs());
  }
  update();
}

void CameraControl::setRest(Rest rest, bool holds) {
  if (holds) {
    rests_.insert(rest);
  } else {
    rests_.erase(rest);
  }
  update();
}

std::optional<CameraControl::Rest> CameraControl::rest() const {
  return rests_.empty() ? std::nullopt : std::optional(*rests_.begin());
}

bool CameraControl::isPermitted() const {
  return uses_.captureSession->authorizationStatus() == AuthorizationStatus::authorized;
}

void CameraControl::observeSession() {
  rests_.insert(Rest::sessionUnknown);
  sessionRegistration_ = uses_.sessionEvents->install([this](SessionEvent event) { sessionChanged(event); });
  uses_.sessionEvents->whenKnown([weak = weak_from_this()] {
    if (const auto self = weak.lock()) self->setRest(Rest::sessionUnknown, false);
  });
}

void CameraControl::sessionChanged(SessionEvent event) {
  if (isGoingAway(event)) {
    setRest(Rest::away, true);
    // Also where it was closed before: a sleep waits for the answer.
    uses_.camera->stopSession([events = uses_.sessionEvents] { events->cameraIsClosed(); });
  } else {
    // Who comes back resumes from every pause; the next check of the battery may begin another.
    for (const Rest rest : {Rest::userPaused, Rest::lowBattery}) rests_.erase(rest);
    setRest(Rest::away, false);
  }
}

// Opening and closing.

void CameraControl::update() {
  const bool wanted = !wishes_.empty() && rests_.empty();
  if (!wanted) {
    devices_.reset();
  } else if (!devices_) {
    devices_ = uses_.captureSession->observeDevices();
  }
  if (wanted && camera_ == Camera::closed) open();
  if (!wanted) close();
  uses_.sessionEvents->setResting(rest() == Rest::userPaused || rest() == Rest::screenShared ||
                                  rest() == Rest::lowBattery);
  publish();
}

void CameraControl::open() {
  camera_ = Camera::opening;
  news_ = false;
  timer_.reset();
  uses_.camera->startSession(
      [weak = weak_from_this(), attempt = ++attempt_](const std::optional<StartError>& error) {
        const auto self = weak.lock();
        if (self && attempt == self->attempt_) self->opened(error);
      });
}

void CameraControl::opened(const std::optional<StartError>& error) {
  if (!error) {
    camera_ = Camera::open;
    uses_.camera->setSuspended(false);
    beginToSee(uses_.clock->nowMs());
    publish();
    return;
  }
  camera_ = Camera::failed;
  cause_ = describe(*error);
  const bool refused = uses_.captureSession->authorizationStatus() == AuthorizationStatus::notDetermined;
  if (cause_->kind == Kind::cameraDenied && refused) {
    setRest(Rest::noConsent, true);
    return;
  }
  if (news_) {
    open();
  } else if (cause_->kind != Kind::cameraDenied) {
    retryLater();
  }
  publish();
}

void CameraControl::close() {
  if (camera_ == Camera::closed) return;
  camera_ = Camera::closed;
  ++attempt_;
  timer_.reset();
  cause_.reset();
  uses_.camera->setSuspended(true);
  uses_.camera->stopSession(nullptr);
}

/// Closing resets what is broken in session or detector: it is opened again only once it is closed.
void CameraControl::reopen() {
  camera_ = Camera::closing;
  timer_.reset();
  uses_.camera->stopSession([weak = weak_from_this(), attempt = ++attempt_] {
    const auto self = weak.lock();
    if (self && attempt == self->attempt_) self->open();
  });
}

// Retries.

void CameraControl::retryLater() {
  timer_ = uses_.mainLoop->after(retryMs, [this] { retryDue(); });
}

void CameraControl::retryDue() {
  if (camera_ == Camera::failed) {
    open();
  } else if (uses_.captureSession->interruptionCause()) {
    retryLater();  // the session itself waits for its camera
  } else {
    reopen();
  }
}

void CameraControl::retryNow() {
  news_ = true;
  const bool isDenied = cause_ && cause_->kind == Kind::cameraDenied && !isPermitted();
  const bool isBlind = camera_ == Camera::failed || (camera_ == Camera::open && cause_);
  if (isBlind && !isDenied) retryDue();
}

// What is seen.

void CameraControl::frameAnalysed(std::int64_t timestampMs) {
  if (camera_ != Camera::open) return;
  failedFrames_ = 0;
  const bool isOld = checkedSubtract(uses_.clock->nowMs(), timestampMs) >= frameTimeoutMs;
  // A frame that was under way when the camera was lost does not bring it back.
  if (isOld || timestampMs < sinceMs_) return;
  if (cause_) {
    beginToSee(timestampMs);
    publish();
  } else {
    sinceMs_ = timestampMs;
  }
}

void CameraControl::analysisFailed() {
  if (camera_ != Camera::open || ++failedFrames_ < mostFailedFrames) return;
  lose({Kind::analysisFailed, {}});
}

void CameraControl::lose(CameraFailure failure) {
  if (!std::exchange(cause_, std::move(failure))) {
    sinceMs_ = uses_.clock->nowMs();
    retryLater();
  }
  publish();
}

/// Frames have come, or their timeout begins anew.
void CameraControl::beginToSee(std::int64_t sinceMs) {
  cause_.reset();
  failedFrames_ = 0;
  sinceMs_ = sinceMs;
  timer_.reset();
  if (wishes_.contains(Wish::protection)) watch();
}

void CameraControl::watch() {
  const std::int64_t left = frameTimeoutMs - checkedSubtract(uses_.clock->nowMs(), sinceMs_);
  if (left <= 0) {
    lose({Kind::cameraBusy, textId("detail_no_frame")});
    return;
  }
  timer_ = uses_.mainLoop->after(left, [this] { watch(); });
}

CameraControl::Status CameraControl::derivedStatus() const {
  using Kind = Status::Kind;
  if (wishes_.empty()) return {};
  if (const auto reason = rest()) return {Kind::resting, *reason};
  if (cause_) return {Kind::blind};
  return {camera_ == Camera::open ? Kind::seeing : Kind::opening};
}

void CameraControl::publish() {
  // Each is derived when it is published: an observer of the first may have changed everything.
  const bool isRefused = rest() == Rest::noConsent;
  failure_.assignIfChanged(isRefused ? CameraFailure{Kind::noConsent, {}} : cause_);
  status_.assignIfChanged(derivedStatus());
}

}  // namespace sentrel
