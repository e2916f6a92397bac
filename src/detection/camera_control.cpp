// SPDX-License-Identifier: Apache-2.0
#include "detection/camera_control.h"

#include <algorithm>
#include <utility>

#include "detection/av_capture_manager.h"
#include "platform/platform.h"
#include "support/fatal.h"

namespace sentrel {

namespace {

template <class T>
void assignIfChanged(Published<T>& published, T value) {
  if (published.get() != value) published = std::move(value);
}

}  // namespace

CameraControl::CameraControl(Parts parts) : parts_(std::move(parts)) {}

std::shared_ptr<CameraControl> CameraControl::create(Parts parts) {
  // The constructor is private, which make_shared cannot reach.
  std::shared_ptr<CameraControl> control(new CameraControl(std::move(parts)));
  control->observe();
  return control;
}

const std::shared_ptr<CameraControl>& CameraControl::shared() {
  static const auto instance = [] {
    const Platform& platform = Platform::current();
    return create({platform.mainLoop, platform.clock, AVCaptureManager::shared(),
                   AVCaptureManager::shared()->session(), platform.sessionEvents});
  }();
  return instance;
}

// Wishes, and what speaks against them.

Registration CameraControl::wish(Wish wish) {
  holds(Rest::noConsent) = false;
  const bool first = !isWished();
  ++wishes_[static_cast<std::size_t>(wish)];
  if (first) observeSession();
  // Nobody has looked at the frames so far.
  if (wish == Wish::protection && camera_ == Camera::open) beginToSee(parts_.clock->nowMs());
  update();
  return Registration([weak = weak_from_this(), wish] {
    if (const auto self = weak.lock()) self->endWish(wish);
  });
}

void CameraControl::endWish(Wish wish) {
  --wishes_[static_cast<std::size_t>(wish)];
  if (!isWished()) {
    parts_.camera->setAnalyzer(nullptr);
    sessionRegistration_.reset();
    for (const Rest rest : {Rest::away, Rest::lowBattery, Rest::sessionUnknown}) {
      holds(rest) = false;
    }
  } else if (wish == Wish::protection) {
    holds(Rest::lowBattery) = false;  // nobody watches it any more
    if (camera_ == Camera::open) beginToSee(parts_.clock->nowMs());
  }
  update();
}

void CameraControl::setRest(Rest rest, bool now) {
  holds(rest) = now;
  update();
}

std::optional<CameraControl::Rest> CameraControl::rest() const {
  const auto first = std::ranges::find(rests_, true);
  return first == rests_.end() ? std::nullopt
                               : std::optional(static_cast<Rest>(std::distance(rests_.begin(), first)));
}

bool CameraControl::isPermitted() const {
  return parts_.captureSession->authorizationStatus() == AuthorizationStatus::authorized;
}

bool CameraControl::isWished() const {
  return isWished(Wish::protection) || isWished(Wish::calibration);
}

void CameraControl::observeSession() {
  holds(Rest::sessionUnknown) = true;
  sessionRegistration_ = parts_.sessionEvents->install([weak = weak_from_this()](SessionEvent event) {
    if (const auto self = weak.lock()) self->sessionChanged(event);
  });
  parts_.sessionEvents->whenKnown([weak = weak_from_this()] {
    if (const auto self = weak.lock()) self->setRest(Rest::sessionUnknown, false);
  });
}

void CameraControl::sessionChanged(SessionEvent event) {
  holds(Rest::away) = isGoingAway(event);
  if (isGoingAway(event)) {
    close();
    // Also where it was closed before: a sleep waits for the word.
    parts_.camera->stopSession([events = parts_.sessionEvents] { events->cameraIsClosed(); });
  } else {
    // Who comes back resumes from every pause; the next check of the battery may begin another.
    holds(Rest::lowBattery) = false;
  }
  update();
}

// Opening and closing.

void CameraControl::update() {
  const bool wanted = isWished() && !rest();
  if (wanted && camera_ == Camera::closed) open();
  if (!wanted) close();
  parts_.sessionEvents->setResting(rest() == Rest::lowBattery);
  publish();
}

void CameraControl::open() {
  camera_ = Camera::opening;
  news_ = false;
  timer_.reset();
  opening_ = std::make_shared<Opening>();
  parts_.camera->startSession(
      [weak = weak_from_this(), opening = std::weak_ptr(opening_)](const StartResult& result) {
        const auto self = weak.lock();
        if (self && opening.lock()) self->opened(result);
      });
}

void CameraControl::opened(const StartResult& result) {
  opening_.reset();
  if (!result.error) {
    camera_ = Camera::open;
    if (const auto analyzer = parts_.camera->analyzer()) analyzer->isSuspended = false;
    beginToSee(parts_.clock->nowMs());
    publish();
    return;
  }
  camera_ = Camera::failed;
  cause_ = describe(*result.error);
  const bool refused = parts_.captureSession->authorizationStatus() == AuthorizationStatus::notDetermined;
  if (cause_->kind == CameraFailure::Kind::cameraDenied && refused) {
    setRest(Rest::noConsent, true);
    return;
  }
  if (news_) {
    open();
  } else if (cause_->kind != CameraFailure::Kind::cameraDenied) {
    retryLater();
  }
  publish();
}

void CameraControl::close() {
  if (camera_ == Camera::closed) return;
  camera_ = Camera::closed;
  opening_.reset();
  timer_.reset();
  cause_.reset();
  if (const auto analyzer = parts_.camera->analyzer()) analyzer->isSuspended = true;
  parts_.camera->stopSession();
}

/// What is broken in the chain goes with its closing: it is opened again only once that has happened.
void CameraControl::reopen() {
  camera_ = Camera::closing;
  timer_.reset();
  opening_ = std::make_shared<Opening>();
  parts_.camera->stopSession([weak = weak_from_this(), opening = std::weak_ptr(opening_)] {
    const auto self = weak.lock();
    if (self && opening.lock()) self->open();
  });
}

// Retries.

void CameraControl::retryLater() {
  timer_ = parts_.mainLoop->after(retryMs, [weak = weak_from_this()] {
    if (const auto self = weak.lock()) self->retryDue();
  });
}

void CameraControl::retryDue() {
  if (camera_ == Camera::failed) {
    open();
  } else if (parts_.captureSession->interruptionCause()) {
    retryLater();  // the session itself waits for its camera
  } else {
    reopen();
  }
}

void CameraControl::retryNow() {
  news_ = true;
  const bool isDenied = cause_ && cause_->kind == CameraFailure::Kind::cameraDenied && !isPermitted();
  const bool isBlind = camera_ == Camera::failed || (camera_ == Camera::open && cause_);
  if (isBlind && !isDenied) retryDue();
}

// What is seen.

void CameraControl::observe() {
  interrupted_ = parts_.captureSession->wasInterrupted.connect([this] {
    if (camera_ != Camera::open) return;
    const auto cause = parts_.captureSession->interruptionCause();
    lose(cause ? describe(*cause) : CameraFailure{CameraFailure::Kind::cameraBusy, {}});
  });
  interruptionEnded_ = parts_.captureSession->interruptionEnded.connect([this] {
    // Frames that the detection fails on are no use.
    if (camera_ != Camera::open || !cause_ || failedFrames_ >= mostFailedFrames) return;
    beginToSee(parts_.clock->nowMs());
    publish();
  });
  devicesChanged_ = parts_.captureSession->devicesChanged.connect([this] { retryNow(); });
}

void CameraControl::frameAnalysed(std::int64_t timestampMs) {
  if (camera_ != Camera::open) return;
  failedFrames_ = 0;
  const bool isOld = checkedSubtract(parts_.clock->nowMs(), timestampMs) >= patienceMs;
  // One that was under way when the camera was lost does not bring it back.
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
  lose({CameraFailure::Kind::analysisFailed, "the detection failed on every frame"});
}

void CameraControl::lose(CameraFailure failure) {
  if (!std::exchange(cause_, std::move(failure))) {
    sinceMs_ = parts_.clock->nowMs();
    retryLater();
  }
  publish();
}

/// Frames have come, or have all their time to come.
void CameraControl::beginToSee(std::int64_t sinceMs) {
  cause_.reset();
  failedFrames_ = 0;
  sinceMs_ = sinceMs;
  timer_.reset();
  if (isWished(Wish::protection)) watch();
}

void CameraControl::watch() {
  const std::int64_t left = patienceMs - checkedSubtract(parts_.clock->nowMs(), sinceMs_);
  if (left <= 0) {
    lose({CameraFailure::Kind::cameraBusy, "no frame was analysed"});
    return;
  }
  timer_ = parts_.mainLoop->after(left, [weak = weak_from_this()] {
    if (const auto self = weak.lock()) self->watch();
  });
}

CameraControl::Status CameraControl::derivedStatus() const {
  using Kind = Status::Kind;
  if (!isWished()) return {};
  if (const auto reason = rest()) return {Kind::resting, *reason};
  if (cause_) return {Kind::blind};
  return {camera_ == Camera::open ? Kind::seeing : Kind::opening};
}

void CameraControl::publish() {
  // Each is derived at its own turn: who hears of the first may have changed everything.
  const bool isRefused = rest() == Rest::noConsent;
  assignIfChanged(failure_,
                  isRefused ? std::optional(CameraFailure{CameraFailure::Kind::cameraDenied, {}}) : cause_);
  assignIfChanged(status_, derivedStatus());
}

}  // namespace sentrel
