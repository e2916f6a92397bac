// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

#include "support/frame.h"
#include "support/geometry.h"

namespace sentrel {

/// The first points of three regions of one face, normalised to its bounding box, origin at the bottom left.
/// A region that was not found is absent.
struct FaceLandmarks {
  std::optional<Point> leftEye;
  std::optional<Point> rightEye;
  std::optional<Point> nose;
  bool operator==(const FaceLandmarks&) const = default;
};

/// One face in one frame.
struct FaceObservation {
  NormalizedRect boundingBox;
  std::optional<double> yaw;  ///< radians; positive when the face turns to the image's right
  std::optional<FaceLandmarks> landmarks;
  /// For how long nothing has moved there in the picture, as far as that can be told; 0 where it cannot.
  std::int64_t stillMs = 0;
  bool operator==(const FaceObservation&) const = default;
};

/// A list of at most `capacity` faces that never allocates. The detector drops the narrowest of more.
class FaceList {
 public:
  static constexpr std::size_t capacity = 16;

  [[nodiscard]] std::size_t size() const { return size_; }
  [[nodiscard]] bool empty() const { return size_ == 0; }
  [[nodiscard]] bool full() const { return size_ == capacity; }
  void clear() { size_ = 0; }
  void push(const FaceObservation& face) {
    if (!full()) faces_[size_++] = face;
  }
  FaceObservation& operator[](std::size_t i) { return faces_[i]; }
  const FaceObservation& operator[](std::size_t i) const { return faces_[i]; }
  [[nodiscard]] const FaceObservation* begin() const { return faces_.data(); }
  [[nodiscard]] const FaceObservation* end() const { return faces_.data() + size_; }

 private:
  std::array<FaceObservation, capacity> faces_;
  std::size_t size_ = 0;
};

/// What one frame shows: every face as a rectangle, and the faces whose pose or landmarks were read.
struct FaceDetections {
  FaceList rectangles;
  FaceList landmarks;
};

/// How the person wants faces to be read.
struct FaceTuning {
  int sensitivity = 3;  ///< 1 (slow, smooth) to 5 (no smoothing)
  bool glasses = true;  ///< reflections are not faces, eye points are damped
  /// Faces beside the person's own are read as well: rectangles have a yaw, and it is known whether they
  /// move. That costs.
  bool others = false;
  bool operator==(const FaceTuning&) const = default;
};

/// Why faces cannot be found at all.
struct FaceDetectorError {
  std::string message;  ///< for a log line: in the person's language, with the file
};

/// Finds faces in frames. One for the process; every call on the analysis queue.
class FaceDetector {
 public:
  virtual ~FaceDetector() = default;

  /// Loads the models, at the first call; later calls give the first answer again, and try anew after a
  /// failure.
  [[nodiscard]] virtual std::optional<FaceDetectorError> prepare() = 0;

  /// Faces of one frame, or nothing when the detection failed, which is not the same as an empty room.
  /// `timestampMs` grows from frame to frame.
  [[nodiscard]] virtual std::optional<FaceDetections> detect(const Frame& frame,
                                                             std::int64_t timestampMs) = 0;

  /// Forgets everything that was carried over from earlier frames.
  virtual void restartTracking() = 0;

  /// Gives back the memory of the models and overwrites what is left of frames. `prepare` loads again.
  virtual void release() = 0;

  virtual void tune(const FaceTuning& tuning) = 0;
};

}  // namespace sentrel
