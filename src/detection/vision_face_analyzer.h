// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <utility>

#include "detection/filter_fsm.h"
#include "detection/frame_look.h"
#include "platform/face_detector.h"
#include "support/frame.h"
#include "support/geometry.h"
#include "support/main_loop.h"
#include "support/serial_queue.h"

namespace sentrel {

struct Platform;

/// Whether the face is wide enough to count: narrower ones are too far away to read a screen.
[[nodiscard]] bool counts(const FaceObservation& face);

/// What every analyser of the process shares: one detector, which lives on one queue.
struct AnalysisEnvironment {
  std::shared_ptr<MainLoop> mainLoop;
  std::shared_ptr<Clock> clock;
  std::shared_ptr<SerialQueue> analysisQueue;
  std::shared_ptr<FaceDetector> faceDetector;

  static AnalysisEnvironment of(const Platform& platform);
};

/// An optional callback. Assigned and called on the main thread; any thread may ask whether it is set.
template <class... Args>
class CallbackSlot {
 public:
  using Callback = std::function<void(Args...)>;

  CallbackSlot& operator=(Callback callback) {
    callback_ = callback ? std::make_shared<const Callback>(std::move(callback)) : nullptr;
    isSet_ = callback_ != nullptr;
    return *this;
  }

  explicit operator bool() const { return isSet_; }

  /// Nothing when no callback is set. The callback may replace itself.
  void operator()(Args... args) const {
    if (const auto current = callback_) (*current)(std::move(args)...);
  }

 private:
  std::shared_ptr<const Callback> callback_;
  std::atomic<bool> isSet_ = false;
};

/// Turns camera frames into measurements: drops those that come too soon, has the faces of the others found
/// on the analysis queue, and reports them on the main thread. At most one frame waits, the newest; nothing
/// is allocated for a frame with one face. Letting go of the analyser cancels what is still to be delivered.
class VisionFaceAnalyzer : public std::enable_shared_from_this<VisionFaceAnalyzer> {
 public:
  /// `fpsLimit` is the greatest number of frames analysed in a second; 0 is fatal. To be owned by a shared
  /// pointer.
  VisionFaceAnalyzer(std::int64_t fpsLimit, AnalysisEnvironment environment);
  VisionFaceAnalyzer(const VisionFaceAnalyzer&) = delete;
  VisionFaceAnalyzer& operator=(const VisionFaceAnalyzer&) = delete;

  /// Every analysed frame, also one without faces. With two faces and more, the second says where they are:
  /// those that count, in the detector's order; null otherwise.
  CallbackSlot<DetectionInput, std::shared_ptr<const FaceList>> onResult;
  /// Everything that was found in a frame, just before its result: for somebody who looks at it.
  CallbackSlot<std::int64_t, std::shared_ptr<const FaceDetections>> onDetections;
  /// How the frame of the result looks, just after it: when it was accepted, how many faces count, and what
  /// was measured of a picture that is large enough. Frames are measured only while this is set.
  CallbackSlot<std::int64_t, std::int64_t, std::optional<FrameLook>> onLook;
  /// A frame on which the detection failed: nobody knows what it shows.
  CallbackSlot<> onFailure;
  /// The main face's width as a fraction of the image's width, where there is a face.
  CallbackSlot<double> onCalibrationSample;
  /// The analysed frame and the second widest face's box, where there is one. A frame outlives its analysis
  /// only while this is set.
  CallbackSlot<FrameRef, std::optional<NormalizedRect>> onRetroFrame;

  /// While set, frames are ignored and the throttle keeps its place. Any thread; whoever feeds the analyser
  /// sets it, and wants no frames meanwhile.
  std::atomic<bool> isSuspended = false;

  /// Least time between two analysed frames. Any thread.
  [[nodiscard]] std::int64_t minIntervalMs() const { return minIntervalMs_; }

  /// Takes a frame; returns at once. Camera queue.
  void analyze(const FrameRef& frame);

 private:
  struct Job {
    FrameRef frame;
    std::int64_t timestampMs = 0;
    bool wantsRetro = false;
  };

  void analyzeWaiting();
  void processResults(const FaceList& rectangles, const FaceList& landmarks, std::int64_t timestampMs,
                      FrameRef pixelBuffer, const std::optional<FrameLook>& look);
  [[nodiscard]] std::optional<FrameLook> measureLook(const Frame& frame, const FaceList& faces);

  const AnalysisEnvironment environment_;
  const std::int64_t minIntervalMs_;
  std::int64_t lastAnalysisMs = 0;  // camera queue
  FrameMeter meter_;                // analysis queue
  Latest<Job> waiting_;
};

}  // namespace sentrel
