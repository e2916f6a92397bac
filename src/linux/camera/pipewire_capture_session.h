// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <filesystem>
#include <memory>

#include "linux/camera/capture_engine.h"
#include "platform/capture_session.h"
#include "support/main_loop.h"
#include "support/serial_queue.h"

namespace sentrel {

/// False when `folder` holds video device files and this process may read none of them. Opens nothing: that
/// would wake a camera. Any thread.
[[nodiscard]] bool mayReadVideoDevices(const std::filesystem::path& folder = "/dev");

/// The capture session on PipeWire. A picture of another size than the one asked for is cut to its shape
/// about the centre and scaled. Made and destroyed on the main thread.
class PipeWireCaptureSession final : public CaptureSession {
 public:
  /// Without `consent` the person is not asked.
  PipeWireCaptureSession(std::shared_ptr<MainLoop> mainLoop, std::shared_ptr<SerialQueue> cameraQueue,
                         std::shared_ptr<CameraConsent> consent = nullptr);
  /// Closes the camera and returns once its thread has ended.
  ~PipeWireCaptureSession() override;
  PipeWireCaptureSession(const PipeWireCaptureSession&) = delete;
  PipeWireCaptureSession& operator=(const PipeWireCaptureSession&) = delete;

  [[nodiscard]] AuthorizationStatus authorizationStatus() const override;
  void requestAccess(std::function<void(bool granted)> answer) override;

  [[nodiscard]] std::optional<CaptureError> awaitDevices(std::chrono::milliseconds timeout) override;
  [[nodiscard]] std::vector<CameraDevice> devices() const override;
  [[nodiscard]] std::optional<CaptureError> interruptionCause() const override;

  [[nodiscard]] std::optional<CaptureError> configure(CaptureRequest request) override;
  void startRunning() override;
  void stopRunning() override;

  void setFrameDemand(FrameDemand demand) override;
  void setPreviewTap(std::function<void(const FrameRef&)> onFrame) override;
  [[nodiscard]] std::optional<CameraDevice> currentDevice() const override;

  /// Frames dropped so far because they could not be trusted or read. Any thread.
  [[nodiscard]] std::int64_t brokenFrames() const { return engine_->brokenFrames(); }

 private:
  /// What the engine calls on its thread: emits `signal` in a later turn of the main loop.
  [[nodiscard]] std::function<void()> emitter(Signal<> CaptureSession::*signal, bool onlyWhileOpen);

  std::shared_ptr<MainLoop> mainLoop_;
  std::shared_ptr<SerialQueue> cameraQueue_;
  std::shared_ptr<CameraConsent> consent_;
  std::shared_ptr<PipeWireCaptureSession*> self_;  // what posted tasks hold weakly
  std::shared_ptr<CaptureEngine> engine_;
};

}  // namespace sentrel
