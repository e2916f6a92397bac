// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>

#include "platform/face_detector.h"
#include "support/frame.h"
#include "vision/inference.h"

namespace sentrel::vision {

/// Finds faces with two small convolutional networks: one that detects, one that reads the primary face's
/// mesh.
///
/// `yaw` is positive when the face turns to the image's right. Of the landmark regions, `leftEye` and
/// `rightEye` (the person's own) are the centres between the corners of the eye. `nose` is a virtual point:
/// the middle of the eyes raised by 0.30 x sin(pitch) of the box's height, where a real nose would be seen
/// from the head's own axis. A face that looks at the camera therefore has it level with the eyes, and (nose
/// - eyes) x 180 passes 25 where the head looks 25 degrees up.
///
/// The pitch is relative to the neutral pitch of the person (NeutralPitch), and yaw and pitch are smoothed as
/// the sensitivity asks.
///
/// The widest face is the primary one. It alone stands in the list of landmarks, as long as its box is
/// confirmed; while its mesh cannot be read it has a yaw and no points.
class NeuralFaceDetector final : public FaceDetector {
 public:
  /// `modelFolder` holds the files of models/SHA256SUMS; it is read by `prepare`.
  explicit NeuralFaceDetector(std::filesystem::path modelFolder, MakeEngine makeEngine = makeInferenceEngine);
  ~NeuralFaceDetector() override;

  [[nodiscard]] std::optional<FaceDetectorError> prepare() override;
  [[nodiscard]] std::optional<FaceDetections> detect(const Frame& frame, std::int64_t timestampMs) override;
  void restartTracking() override;
  void release() override;
  void tune(const FaceTuning& tuning) override;

 private:
  class State;
  std::filesystem::path modelFolder_;
  MakeEngine makeEngine_;
  FaceTuning tuning_;
  std::unique_ptr<State> state_;
};

}  // namespace sentrel::vision
