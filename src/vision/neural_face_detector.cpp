// SPDX-License-Identifier: Apache-2.0
#include "vision/neural_face_detector.h"

#include <malloc.h>

#include <QString>
#include <algorithm>
#include <cmath>
#include <new>
#include <utility>

#include "vision/detector_pipeline.h"
#include "vision/face_search.h"
#include "vision/head_pose.h"
#include "vision/models.h"
#include "vision/network.h"

namespace sentrel::vision {
namespace {

constexpr double noseLift = 0.30;
// With glasses: how much of a face must lie in the primary one's box to be its reflection.
constexpr double reflectionShare = 0.60;
// With glasses: an eye that moves farther than this share of the box between two frames was misread half the
// time.
constexpr double eyeJump = 0.04;
constexpr double jumpDamping = 0.4;

NormalizedRect normalized(const Region& box, const Frame& frame) {
  const auto share = [](double value, int size) { return std::clamp(value / size, 0.0, 1.0); };
  const double left = share(box.x, frame.width());
  const double right = share(box.x + box.width, frame.width());
  const double top = share(box.y, frame.height());
  const double bottom = share(box.y + box.height, frame.height());
  return {left, 1 - bottom, right - left, bottom - top};
}

}  // namespace

/// The pipeline, and what makes its readings into observations.
class NeuralFaceDetector::State {
 public:
  State(const Models& models, MakeEngine makeEngine) : pipeline_(models, makeEngine) {}

  FaceDetections detect(const Frame& frame, std::int64_t timestampMs, const FaceTuning& tuning) {
    pipeline_.analyse(frame, timestampMs, tuning.others);
    FaceDetections detections;
    const auto faces = pipeline_.faces();
    if (faces.empty()) return detections;
    const Region primaryBox = DetectorPipeline::tightBox(faces.front().face);
    for (const TrackedFace& tracked : faces) {
      const Region box = DetectorPipeline::tightBox(tracked.face);
      const bool first = tracked.id == faces.front().id;
      if (tuning.glasses && !first && containedShare(box, primaryBox) > reflectionShare) continue;
      FaceObservation observation;
      observation.boundingBox = normalized(box, frame);
      if (tuning.others && !first) {
        observation.yaw = pipeline_.yawOf(tracked);
        observation.stillMs = pipeline_.stillMs(tracked);
      }
      detections.rectangles.push(observation);
    }
    if (!pipeline_.primary()) return detections;
    if (faces.front().id != primaryId_) restartReadings();
    primaryId_ = faces.front().id;
    FaceObservation observation = detections.rectangles[0];
    const FaceReading& reading = *pipeline_.primary();
    const double constantMs = smoothingConstantMs(tuning.sensitivity);
    observation.yaw = yaw_.update(reading.yaw, timestampMs, constantMs);
    if (reading.detail) {
      const double neutral = neutral_.update({reading.yaw, reading.detail->pitch}, timestampMs);
      const double pitch = pitch_.update(reading.detail->pitch - neutral, timestampMs, constantMs);
      observation.landmarks = landmarks(*reading.detail, primaryBox, pitch, tuning.glasses);
    }
    detections.landmarks.push(observation);
    return detections;
  }

  void restart() {
    pipeline_.restart();
    neutral_.restart();
    restartReadings();
  }

 private:
  void restartReadings() {
    yaw_.restart();
    pitch_.restart();
    eyes_.reset();
  }

  FaceLandmarks landmarks(const FaceReading::Detail& detail, const Region& box, double pitch, bool damp) {
    const auto place = [&](const Point& point) {
      return Point{(point.x - box.x) / box.width, 1 - (point.y - box.y) / box.height};
    };
    Eyes eyes{place(detail.leftEye), place(detail.rightEye)};
    if (damp && eyes_) {
      eyes.left = damped(eyes_->left, eyes.left);
      eyes.right = damped(eyes_->right, eyes.right);
    }
    eyes_ = eyes;
    FaceLandmarks result;
    result.leftEye = eyes.left;
    result.rightEye = eyes.right;
    result.nose = Point{(eyes.left.x + eyes.right.x) / 2,
                        (eyes.left.y + eyes.right.y) / 2 + noseLift * std::sin(pitch)};
    return result;
  }

  static Point damped(const Point& last, const Point& now) {
    const double jump = std::hypot(now.x - last.x, now.y - last.y);
    const double follow = jump > eyeJump ? jumpDamping : 1;
    return {last.x + follow * (now.x - last.x), last.y + follow * (now.y - last.y)};
  }

  struct Eyes {
    Point left;
    Point right;
  };

  DetectorPipeline pipeline_;
  NeutralPitch neutral_;
  TimeSmoother yaw_;
  TimeSmoother pitch_;
  std::optional<Eyes> eyes_;  // of the last frame, in its face's box
  std::uint64_t primaryId_ = 0;
};

NeuralFaceDetector::NeuralFaceDetector(std::filesystem::path modelFolder, MakeEngine makeEngine)
    : modelFolder_(std::move(modelFolder)), makeEngine_(makeEngine) {}
NeuralFaceDetector::~NeuralFaceDetector() = default;

std::optional<FaceDetectorError> NeuralFaceDetector::prepare() {
  if (state_) return std::nullopt;
  try {
    state_ = std::make_unique<State>(readModels(modelFolder_), makeEngine_);
    return std::nullopt;
  } catch (const ModelError& error) {
    return FaceDetectorError{error.what()};
  } catch (const std::bad_alloc&) {
    return FaceDetectorError{qtTrId("detail_model_memory").toStdString()};
  }
}

std::optional<FaceDetections> NeuralFaceDetector::detect(const Frame& frame, std::int64_t timestampMs) {
  if (!state_ || frame.empty()) return std::nullopt;
  try {
    return state_->detect(frame, timestampMs, tuning_);
  } catch (const InferenceFailure&) {
    state_->restart();  // this frame has left its tracking half done
    return std::nullopt;
  }
}

void NeuralFaceDetector::restartTracking() {
  if (state_) state_->restart();
}

void NeuralFaceDetector::release() {
  state_.reset();
#ifdef __GLIBC__
  malloc_trim(0);  // the models are most of what the program holds
#endif
}

void NeuralFaceDetector::tune(const FaceTuning& tuning) {
  tuning_ = tuning;
}

}  // namespace sentrel::vision
