// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <variant>

#include "detection/vision_face_analyzer.h"
#include "platform/capture_session.h"
#include "platform/face_detector.h"
#include "settings/settings_repository.h"
#include "support/published.h"
#include "support/registration.h"
#include "support/serial_queue.h"

namespace sentrel {

/// The camera's failures; they carry no text.
enum class CameraError { permissionDenied, noCameraAvailable, configurationFailed, interrupted };

/// Why a session did not start: the camera's own failure, the device's as it was given, or the detector's.
using StartError = std::variant<CameraError, CaptureError, FaceDetectorError>;

/// How a request to start ended: none where the session runs, perhaps still without frames.
using StartCompletion = std::function<void(const std::optional<StartError>& error)>;

/// The camera as the service sees it. Main thread.
class CameraFeedProviding {
 public:
  virtual ~CameraFeedProviding() = default;

  /// Who gets the frames, or none.
  [[nodiscard]] virtual std::shared_ptr<VisionFaceAnalyzer> analyzer() const = 0;
  virtual void setAnalyzer(std::shared_ptr<VisionFaceAnalyzer> analyzer) = 0;
  /// Whether the present analyser ignores frames; while it does, the device stays closed.
  virtual void setSuspended(bool suspended) = 0;

  /// Turns true and false when a start and a stop have taken effect, a while after they were asked for.
  [[nodiscard]] virtual const Published<bool>& isRunning() const = 0;

  /// Starts the session; `completion` is called once, in a later turn, unless a stop or another start comes
  /// before.
  virtual void startSession(StartCompletion completion) = 0;
  /// Stops the session, and wins over a start that is under way. Returns at once; `closed`, where there is
  /// one, is called in a later turn, when the device is closed.
  virtual void stopSession(std::function<void()> closed) = 0;
};

/// Owns the use of the machine's one capture session: asks for the camera, configures, starts, stops and
/// switches it on the camera queue, and feeds an analyser. The device is open only while the session runs and
/// an analyser takes frames. When it is started and stopped is for `CameraControl` to decide. Main thread, to
/// be owned by a shared pointer.
class AVCaptureManager final : public CameraFeedProviding,
                               public std::enable_shared_from_this<AVCaptureManager> {
 public:
  using CameraError = sentrel::CameraError;

  /// While the session is stopped, the preferred camera is the stored one, so that every start uses the
  /// person's choice. Whoever edits the choice switches a running camera.
  AVCaptureManager(std::shared_ptr<CaptureSession> captureSession, std::shared_ptr<SerialQueue> cameraQueue,
                   AnalysisEnvironment environment, std::shared_ptr<SettingsRepository> settingsRepo);
  /// The process's manager, over the installed platform and the shared settings.
  static const std::shared_ptr<AVCaptureManager>& shared();

  /// For its signals and for a preview; its configuration is this manager's business.
  [[nodiscard]] const std::shared_ptr<CaptureSession>& session() const { return session_; }

  [[nodiscard]] std::shared_ptr<VisionFaceAnalyzer> analyzer() const override { return analyzer_; }
  /// The detector forgets what it followed when another analyser takes over. A calibration that samples goes
  /// on with the next one, or with one of its own.
  void setAnalyzer(std::shared_ptr<VisionFaceAnalyzer> analyzer) override;
  void setSuspended(bool suspended) override;

  [[nodiscard]] const Published<bool>& isRunning() const override { return isRunning_; }

  /// The person's camera, used while it is listed; none means the default one. `switchCamera` sets it.
  [[nodiscard]] const std::optional<std::string>& preferredCameraID() const { return preferredCameraID_; }

  /// Whether the camera may be used; asks the person where that is not known yet. `answer` may come at once.
  void requestAccess(std::function<void(bool granted)> answer);

  /// Waits for the first listing of cameras, 3 s at most, and tells in a later turn why there is none, or
  /// nothing where there is one. Opens none.
  void findCameras(std::function<void(const std::optional<CaptureError>& missing)> told) const;

  /// Prepares the detector, configures the session and starts it. Fails with `permissionDenied`,
  /// `noCameraAvailable` (only while this process has never seen a camera), `configurationFailed`, the
  /// device's error or the detector's. A camera that is busy or away just then is no failure: the session
  /// runs interrupted and recovers by itself.
  void startSession(StartCompletion completion) override;
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
    void captureOutput(const FrameRef& frame) const {
      if (const auto current = analyzer.lock()) current->analyze(frame);
    }
  };

  /// What the session is asked for, with the camera of the person's choice.
  [[nodiscard]] CaptureRequest captureRequest() const;
  void updateFrameDemand();
  void prepareDetector(const std::shared_ptr<Start>& start);
  void startOnSessionQueue(const std::shared_ptr<Start>& start);
  void finish(const std::shared_ptr<Start>& start, std::optional<StartError> error);
  void sessionStopped();
  void useSelection();
  [[nodiscard]] bool runs() const { return isRunning_ && pendingStops_ == 0; }

  const std::shared_ptr<CaptureSession> session_;
  const std::shared_ptr<SerialQueue> sessionQueue;
  const AnalysisEnvironment environment_;
  const std::shared_ptr<SettingsRepository> settingsRepo_;
  const std::shared_ptr<FrameRoute> route_ = std::make_shared<FrameRoute>();

  std::shared_ptr<VisionFaceAnalyzer> analyzer_;
  std::optional<std::string> preferredCameraID_;
  std::function<void(double faceWidth)> sampler_;  // of a calibration, or none
  Published<bool> isRunning_{false};
  std::shared_ptr<Start> start_;  // the one under way, or none
  int pendingStops_ = 0;          // asked for, not yet in effect
  FrameDemand demand_;
  Registration settingsRegistration_;
};

}  // namespace sentrel
