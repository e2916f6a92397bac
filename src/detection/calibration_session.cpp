// SPDX-License-Identifier: Apache-2.0
#include "detection/calibration_session.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "platform/platform.h"
#include "support/fatal.h"

namespace sentrel {

namespace {

constexpr std::int64_t countdownSeconds = 3;
constexpr std::int64_t secondMs = 1000;
constexpr std::int64_t measuringMs = 3000;
constexpr std::size_t fewestSamples = 3;
constexpr const char* restingCamera =
    textId("La caméra reste fermée tant que la session est verrouillée, en veille ou en pause.");
constexpr const char* noFace = textId("Aucun visage détecté. Assurez-vous d'être bien en face de la caméra.");

/// A pinhole camera: a face of usual width, seen in a frame 1280 pixels wide.
constexpr double widthTimesDistance = 12600;
constexpr double frameWidth = 1280;
constexpr std::int64_t nearestCm = 30;
constexpr std::int64_t farthestCm = 200;

std::int64_t distanceFor(double faceWidth) {
  const double cm = std::round(widthTimesDistance / (faceWidth * frameWidth));
  // More than any camera can see, and still a number.
  constexpr double bound = 9e15;
  if (!(std::abs(cm) < bound)) fatal("a measured face has no width");
  return std::clamp(static_cast<std::int64_t>(cm), nearestCm, farthestCm);
}

}  // namespace

CalibrationSession::CalibrationSession(Dependencies dependencies) : uses_(std::move(dependencies)) {}

CalibrationSession::~CalibrationSession() {
  end();
}

std::shared_ptr<CalibrationSession> CalibrationSession::create() {
  return std::make_shared<CalibrationSession>(
      Dependencies{Platform::current().mainLoop, Platform::current().clock, AVCaptureManager::shared(),
                   CameraControl::shared(), SettingsRepository::shared()});
}

void CalibrationSession::start() {
  if (phase_.get().kind != Phase::Kind::idle) return;
  samples.clear();
  measureStart.reset();
  cameraWish_ = uses_.cameraControl->wish(CameraControl::Wish::calibration);
  if (cameraRests()) {
    fail(restingCamera);
    return;
  }
  cameraStatus_ = uses_.cameraControl->status().onChange([this](const CameraControl::Status&) {
    if (cameraRests()) fail(restingCamera);
  });
  startCountdown(countdownSeconds);
}

bool CalibrationSession::cameraRests() const {
  const auto rest = uses_.cameraControl->rest();
  return rest && *rest != CameraControl::Rest::sessionUnknown;
}

void CalibrationSession::fail(const char* message) {
  const auto failure = uses_.cameraControl->failure().get();
  end();
  phase_ = Phase::failed(message, failure ? textKey(failure->kind) : "");
}

void CalibrationSession::startCountdown(std::int64_t remaining) {
  countdownTask = uses_.mainLoop->after(secondMs, [weak = weak_from_this(), remaining] {
    const auto self = weak.lock();
    if (!self) return;
    if (remaining > 1) {
      self->startCountdown(remaining - 1);
    } else {
      self->beginMeasuring();
    }
  });
  phase_ = Phase::counting(remaining);
}

void CalibrationSession::beginMeasuring() {
  countdownTask.reset();
  measureStart = uses_.clock->nowMs();
  uses_.camera->startCalibrationSampling([weak = weak_from_this()](double width) {
    if (const auto self = weak.lock()) self->samples.push_back(width);
  });
  pollTask = uses_.mainLoop->after(measuringMs, [weak = weak_from_this()] {
    if (const auto self = weak.lock()) self->finalizeMeasurement();
  });
  phase_ = Phase::measuring();
}

void CalibrationSession::finalizeMeasurement() {
  if (samples.size() < fewestSamples) return fail(noFace);
  end();
  std::ranges::sort(samples);
  phase_ = Phase::done(distanceFor(samples[samples.size() / 2]));
}

void CalibrationSession::end() {
  countdownTask.reset();
  pollTask.reset();
  cameraStatus_.reset();
  if (cameraWish_) uses_.camera->stopCalibrationSampling();
  cameraWish_.reset();
}

void CalibrationSession::cancel() {
  end();
  phase_ = Phase::idle();
}

void CalibrationSession::accept(std::int64_t distanceCm) {
  FilterSettings next = uses_.settingsRepo->settings;
  next.calibrationDistanceCm = distanceCm;
  next.isCalibrated = true;
  uses_.settingsRepo->save(next);
  cancel();
}

}  // namespace sentrel
