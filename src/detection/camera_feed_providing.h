// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <memory>

#include "detection/camera_error.h"
#include "detection/vision_face_analyzer.h"
#include "support/published.h"

namespace sentrel {

/// The camera as the service sees it. Main thread.
class CameraFeedProviding {
 public:
  virtual ~CameraFeedProviding() = default;

  /// Who gets the frames, or none.
  [[nodiscard]] virtual std::shared_ptr<VisionFaceAnalyzer> analyzer() const = 0;
  virtual void setAnalyzer(std::shared_ptr<VisionFaceAnalyzer> analyzer) = 0;

  /// Turns true and false when a start and a stop have taken effect, a while after they were asked for.
  [[nodiscard]] virtual const Published<bool>& isRunning() const = 0;

  /// Starts the session; `completion` is called once, in a later turn.
  virtual void startSession(StartCompletion completion) = 0;
  /// Stops the session, and wins over a start that is under way. Returns at once; `closed` is called in a
  /// later turn, when the device is closed.
  virtual void stopSession(std::function<void()> closed) = 0;
  void stopSession() {
    stopSession([] {});
  }
};

}  // namespace sentrel
