// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QCoreApplication>
#include <chrono>
#include <functional>
#include <memory>

#include "detection/av_capture_manager.h"
#include "linux/camera/pipewire_capture_session.h"
#include "linux/desktop/qt_main_loop.h"
#include "linux/desktop/system_clock.h"
#include "platform/face_detector.h"
#include "stage/headless_desktop.h"
#include "support/serial_queue.h"

namespace sentrel::test {

/// The real road of a frame in this process: capture, camera manager and detector with its models, on the
/// real event loop and a private desktop. Main thread.
class DetectionLine {
  // They come before everything that uses them.
  HeadlessDesktop desktop_{{.pipeWire = true}};
  std::unique_ptr<QCoreApplication> application_;

 public:
  /// `wrap` may put something around the detector.
  using Wrap = std::function<std::shared_ptr<FaceDetector>(std::shared_ptr<FaceDetector>)>;

  explicit DetectionLine(const Wrap& wrap = {});
  ~DetectionLine();
  DetectionLine(const DetectionLine&) = delete;
  DetectionLine& operator=(const DetectionLine&) = delete;

  /// Runs the event loop until the condition holds; false when the time is over.
  [[nodiscard]] bool runUntil(const std::function<bool()>& condition,
                              std::chrono::milliseconds timeout) const;

  const std::shared_ptr<QtMainLoop> mainLoop;
  const std::shared_ptr<SystemClock> clock;
  const std::shared_ptr<SerialQueue> cameraQueue;
  const std::shared_ptr<SerialQueue> analysisQueue;
  const std::shared_ptr<PipeWireCaptureSession> captureSession;
  const AnalysisEnvironment environment;
  const std::shared_ptr<AVCaptureManager> camera;
};

}  // namespace sentrel::test
