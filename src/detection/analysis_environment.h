// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>

#include "platform/face_detector.h"
#include "support/main_loop.h"
#include "support/serial_queue.h"

namespace sentrel {

struct Platform;

/// What every analyser of the process shares: one detector, which lives on one queue.
struct AnalysisEnvironment {
  std::shared_ptr<MainLoop> mainLoop;
  std::shared_ptr<Clock> clock;
  std::shared_ptr<SerialQueue> analysisQueue;
  std::shared_ptr<FaceDetector> faceDetector;

  static AnalysisEnvironment of(const Platform& platform);
};

}  // namespace sentrel
