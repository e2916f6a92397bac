// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "detection/camera_feed_providing.h"
#include "platform/capture_session.h"
#include "support/registration.h"
#include "support/serial_queue.h"

namespace sentrel {

/// Owns the use of the machine's one capture session: asks for the camera, configures, starts, stops and
/// switches it on the camera queue, and feeds an analyser. The device is open only while the session runs and
/// an analyser takes frames. When it is started and stopped is for `CameraControl` to decide. Main thread, to
/// be owned by a shared pointer.
class AVCaptureManager final : public CameraFeedProviding,
                               public std::enable_shared_from_this<AVCaptureManager> {
 public:
  using CameraError = sentrel::CameraError;

  static std::shared_ptr<AVCaptureManager> create(std::shared_ptr<CaptureSession> captureSession,
                                                  std::shared_ptr<SerialQueue> cameraQueue,
                                                  AnalysisEnvironment environment);
  /// The process's manager, over the installed platform.
  static const std::shared_ptr<AVCaptureManager>& shared();

  /// For its signals and for a preview; its configuration is this manager's business.
  [[nodiscard]] const std::shared_ptr<CaptureSession>& session() const { return session_; }

  [[nodiscard]] std::shared_ptr<VisionFaceAnalyzer> analyzer() const override { return analyzer_; }
  /// The detector forgets what it followed when another analyser takes over. A calibration that samples goes
  /// on with the next one, or with one of its own.
  void setAnalyzer(std::shared_ptr<VisionFaceAnalyzer> analyzer) override;

  [[nodiscard]] const Published<bool>& isRunning() const override { return isRunning_; }

  /// The person's camera, used while it is listed; none means the default one. `switchCamera` sets it.
  [[nodiscard]] const std::optional<std::string>& preferredCameraID() const { return preferredCameraID_; }

  /// Whether the camera may be used; asks the person where that is not known yet. `answer` may come at once.
  void requestAccess(std::function<void(bool granted)> answer);

  /// Prepares the detector, configures the session and starts it. Requests that overlap are one. Fails with
  /// `permissionDenied`, `noCameraAvailable` (only while this process has never seen a camera),
  /// `configurationFailed`, the device's error or the detector's. A camera that is busy or away just then is
  /// no failure: the session runs interrupted and recovers by itself.
  void startSession(StartCompletion completion) override;
  using CameraFeedProviding::stopSession;
  void stopSession(std::function<void()> closed) override;

  /// Chooses a camera, at once when the session runs. Reports no errors.
  void switchCamera(std::optional<std::string> id);

  /// Sends face widths to `handler`, replacing an earlier one. The wish of whoever calibrates opens the
  /// camera.
  void startCalibrationSampling(std::function<void(double faceWidth)> handler);
  void stopCalibrationSampling();

 private:
  struct Start;
  /// Who gets the frames, as the camera queue knows it.
  struct FrameRoute {
    std::weak_ptr<VisionFaceAnalyzer> analyzer;
    void captureOutput(const FrameRef& frame) const;
  };

  AVCaptureManager(std::shared_ptr<CaptureSession> captureSession, std::shared_ptr<SerialQueue> cameraQueue,
                   AnalysisEnvironment environment);

  /// What the session is asked for, with the camera of the person's choice.
  [[nodiscard]] CaptureRequest captureRequest() const;
  void updateFrameDemand();
  void prepareDetector(const std::shared_ptr<Start>& start);
  void startOnSessionQueue(const std::shared_ptr<Start>& start);
  void finish(const std::shared_ptr<Start>& start, StartResult result);
  void sessionStopped();
  [[nodiscard]] bool runs() const { return isRunning_ && pendingStops_ == 0; }

  const std::shared_ptr<CaptureSession> session_;
  const std::shared_ptr<SerialQueue> sessionQueue;
  const AnalysisEnvironment environment_;
  const std::shared_ptr<FrameRoute> route_ = std::make_shared<FrameRoute>();

  std::shared_ptr<VisionFaceAnalyzer> analyzer_;
  std::optional<std::string> preferredCameraID_;
  std::function<void(double faceWidth)> sampler_;  // of a calibration, or none
  Published<bool> isRunning_{false};
  std::shared_ptr<Start> start_;  // the one under way, or none
  int pendingStops_ = 0;          // asked for, not yet in effect
  FrameDemand demand_;
  Registration suspensionRegistration_;
};

}  // namespace sentrel
