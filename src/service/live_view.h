// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include "detection/filter_fsm.h"
#include "detection/onlooker_filter.h"
#include "detection/vision_face_analyzer.h"
#include "support/published.h"
#include "support/registration.h"

namespace sentrel {

/// What protection made of one frame, for somebody who wants to see it. It holds no picture.
struct LiveFrame {
  struct Face {
    NormalizedRect box;
    std::optional<double> yaw;  ///< radians; positive when the face turns to the image's right
    FaceRole role = FaceRole::person;
    bool operator==(const Face&) const = default;
  };

  std::int64_t timestampMs = 0;  ///< when the frame was accepted
  std::vector<Face> faces;
  std::vector<FilterFsm::Timer> timers;  ///< that lead to another state
};

/// Publishes what was found in each frame and what it was taken for, while somebody looks; nothing is kept or
/// copied otherwise. Main thread.
class LiveView {
 public:
  /// Calls `onFrame` for every frame that is analysed for protection, until the registration ends.
  [[nodiscard]] Registration watch(std::function<void(const LiveFrame& frame)> onFrame);

  /// Whoever analyses frames now, or null.
  void follow(const std::shared_ptr<VisionFaceAnalyzer>& analyzer);
  /// The frame was judged, and the machine has heard of it.
  void judged(std::int64_t timestampMs, const OnlookerFilter::Frame& frame, const OnlookerFilter& filter,
              const FilterFsm& fsm);

 private:
  void attach();

  const std::shared_ptr<const bool> alive_ = std::make_shared<const bool>(true);
  Signal<LiveFrame> frames_;
  std::weak_ptr<VisionFaceAnalyzer> analyzer_;
  std::int64_t foundMs_ = 0;                     // the frame that is to be judged next
  std::shared_ptr<const FaceDetections> found_;  // in it
};

}  // namespace sentrel
