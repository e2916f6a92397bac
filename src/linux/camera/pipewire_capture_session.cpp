// SPDX-License-Identifier: Apache-2.0
#include "linux/camera/pipewire_capture_session.h"

#include <fcntl.h>
#include <unistd.h>

#include <string>
#include <system_error>
#include <utility>

namespace sentrel {

bool mayReadVideoDevices(const std::filesystem::path& folder) {
  bool found = false;
  std::error_code error;
  for (std::filesystem::directory_iterator entry(folder, error), end; !error && entry != end;
       entry.increment(error)) {
    const std::string name = entry->path().filename().string();
    if (!name.starts_with("video") || name.size() < 6 || name[5] < '0' || name[5] > '9') continue;
    if (faccessat(AT_FDCWD, entry->path().c_str(), R_OK, AT_EACCESS) == 0) return true;
    found = true;
  }
  return !found;
}

PipeWireCaptureSession::PipeWireCaptureSession(std::shared_ptr<MainLoop> mainLoop,
                                               std::shared_ptr<SerialQueue> cameraQueue,
                                               std::shared_ptr<CameraConsent> consent)
    : mainLoop_(std::move(mainLoop)),
      cameraQueue_(std::move(cameraQueue)),
      consent_(std::move(consent)),
      self_(std::make_shared<PipeWireCaptureSession*>(this)) {
  engine_ = std::make_shared<CaptureEngine>(
      cameraQueue_,
      CaptureEngine::Events{.interrupted = emitter(&CaptureSession::wasInterrupted, true),
                            .interruptionEnded = emitter(&CaptureSession::interruptionEnded, true),
                            .devicesChanged = emitter(&CaptureSession::devicesChanged, false)});
  engine_->start();
}  // NOLINT(clang-analyzer-cplusplus.NewDeleteLeaks): the analyser loses track of what std::function owns

PipeWireCaptureSession::~PipeWireCaptureSession() {
  engine_->shutDown();
}

std::function<void()> PipeWireCaptureSession::emitter(Signal<> CaptureSession::*signal, bool onlyWhileOpen) {
  // The engine may outlive this object by a delivery that is under way, hence weakly.
  return [loop = mainLoop_, self = std::weak_ptr(self_), signal, onlyWhileOpen] {
    loop->post([self, signal, onlyWhileOpen] {
      const auto session = self.lock();
      // A report that was under way when the camera was closed is of no interest any more.
      if (session && (!onlyWhileOpen || (*session)->engine_->isOpen())) ((*session)->*signal).emit();
    });
  };
}

AuthorizationStatus PipeWireCaptureSession::authorizationStatus() const {
  if (consent_ && !consent_->isGiven()) return AuthorizationStatus::notDetermined;
  return mayReadVideoDevices() ? AuthorizationStatus::authorized : AuthorizationStatus::denied;
}

void PipeWireCaptureSession::requestAccess(std::function<void(bool granted)> answer) {
  auto tell = [loop = mainLoop_, answer = std::move(answer)](bool given) {
    const bool granted = given && mayReadVideoDevices();
    loop->post([answer, granted] { answer(granted); });
  };
  if (consent_) {
    consent_->request(std::move(tell));
  } else {
    tell(true);
  }
}

std::optional<CaptureError> PipeWireCaptureSession::awaitDevices(std::chrono::milliseconds timeout) {
  if (engine_->directory().awaitFirst(timeout)) return std::nullopt;
  return engine_->missingCamera();
}

std::vector<CameraDevice> PipeWireCaptureSession::devices() const {
  return engine_->directory().listing().devices;
}

std::optional<CaptureError> PipeWireCaptureSession::interruptionCause() const {
  return engine_->interruptionCause();
}

std::optional<CaptureError> PipeWireCaptureSession::configure(CaptureRequest request) {
  if (authorizationStatus() == AuthorizationStatus::denied) {
    engine_->setRequest(std::nullopt);
    return CaptureError{CaptureError::Kind::accessDenied, "no video device may be opened by this user"};
  }
  // A camera that is away for now is waited for; one that never was may be a leftover of the settings.
  if (request.deviceID && !engine_->directory().hasSeen(*request.deviceID)) request.deviceID.reset();
  engine_->setRequest(std::move(request));
  return std::nullopt;
}

void PipeWireCaptureSession::startRunning() {
  engine_->setRunning(true);
}

void PipeWireCaptureSession::stopRunning() {
  engine_->setRunning(false);
}

void PipeWireCaptureSession::setFrameDemand(FrameDemand demand) {
  cameraQueue_->async([engine = std::weak_ptr(engine_), demand] {
    if (const auto live = engine.lock()) live->setDemand(demand);
  });
}

void PipeWireCaptureSession::setPreviewTap(std::function<void(const FrameRef&)> onFrame) {
  cameraQueue_->async([engine = std::weak_ptr(engine_), onFrame = std::move(onFrame)]() mutable {
    if (const auto live = engine.lock()) live->setPreviewTap(std::move(onFrame));
  });
}

std::optional<CameraDevice> PipeWireCaptureSession::currentDevice() const {
  return engine_->currentDevice();
}

}  // namespace sentrel
