// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <optional>
#include <vector>

#include "platform/face_detector.h"

namespace sentrel::test {

/// A detector that finds what the test put there. Its fields are for the analysis queue, and for the test
/// while that queue is idle.
class ScriptedDetector final : public FaceDetector {
 public:
  std::optional<FaceDetectorError> prepareError;
  std::optional<FaceDetections> next = FaceDetections{};
  std::function<void()> whilePreparing;
  std::function<void()> whileDetecting;
  std::vector<std::int64_t> timestamps;
  std::vector<FaceTuning> tunings;
  int preparations = 0;
  int restarts = 0;

  [[nodiscard]] std::optional<FaceDetectorError> prepare() override {
    ++preparations;
    if (whilePreparing) whilePreparing();
    return prepareError;
  }
  [[nodiscard]] std::optional<FaceDetections> detect(const Frame&, std::int64_t timestampMs) override {
    timestamps.push_back(timestampMs);
    if (whileDetecting) whileDetecting();
    return next;
  }
  void restartTracking() override { ++restarts; }
  void release() override {}
  void tune(const FaceTuning& tuning) override { tunings.push_back(tuning); }
};

/// A face `width` of the image wide, at `x`.
inline FaceObservation faceOf(double width, double x = 0.1, std::optional<double> yaw = 0.0) {
  return {{x, 0.2, width, width * 1.3}, yaw, std::nullopt};
}

inline FaceDetections detectionsOf(std::initializer_list<FaceObservation> rectangles,
                                   std::initializer_list<FaceObservation> landmarks) {
  FaceDetections detections;
  for (const auto& face : rectangles) detections.rectangles.push(face);
  for (const auto& face : landmarks) detections.landmarks.push(face);
  return detections;
}

}  // namespace sentrel::test
