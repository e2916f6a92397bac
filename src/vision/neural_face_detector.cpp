// SPDX-License-Identifier: Apache-2.0
#include "vision/neural_face_detector.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <new>
#include <utility>
#include <vector>

#include "vision/candidate.h"
#include "vision/face_search.h"
#include "vision/inference.h"
#include "vision/model_error.h"
#include "vision/model_files.h"
#include "vision/primary_face_reader.h"

namespace sentrel::vision {
namespace {

constexpr InputSize coarseSize{160, 192};
constexpr double coarseAccept = 0.6;
// The network's boxes are wider than a face's tight box.
constexpr double coarseTightness = 0.81;
// More than can be told apart in one frame; beyond it the frame shows a pattern, not a crowd.
constexpr std::size_t maxCandidates = 512;
constexpr double noseLift = 0.30;

/// The region of the network's proportions that holds the whole frame.
Region wholeFrame(const Frame& frame, InputSize size) {
  const double scale = std::max(static_cast<double>(frame.width()) / size.width,
                                static_cast<double>(frame.height()) / size.height);
  const double width = scale * size.width;
  const double height = scale * size.height;
  return {(frame.width() - width) / 2, (frame.height() - height) / 2, width, height};
}

NormalizedRect normalized(const Region& box, const Frame& frame) {
  const auto share = [](double value, int size) { return std::clamp(value / size, 0.0, 1.0); };
  const double left = share(box.x, frame.width());
  const double right = share(box.x + box.width, frame.width());
  const double top = share(box.y, frame.height());
  const double bottom = share(box.y + box.height, frame.height());
  return {left, 1 - bottom, right - left, bottom - top};
}

FaceLandmarks landmarks(const FaceReading::Detail& detail, const Region& box) {
  const auto place = [&](const Point& point) {
    return Point{(point.x - box.x) / box.width, 1 - (point.y - box.y) / box.height};
  };
  FaceLandmarks result;
  result.leftEye = place(detail.leftEye);
  result.rightEye = place(detail.rightEye);
  result.nose = Point{(result.leftEye->x + result.rightEye->x) / 2,
                      (result.leftEye->y + result.rightEye->y) / 2 + noseLift * std::sin(detail.pitch)};
  return result;
}

}  // namespace

class NeuralFaceDetector::Networks {
 public:
  explicit Networks(const Models& models)
      : engine_(makeInferenceEngine()),
        coarse_(prepare(models.detection, coarseSize), coarseSize, sampler_),
        primary_(MeshFinder(prepare(models.mesh, {meshSide, meshSide}), models.face.points.size()),
                 models.face) {
    candidates_.reserve(maxCandidates);
  }

  FaceDetections detect(const Frame& frame) {
    candidates_.clear();
    coarse_.find(frame, wholeFrame(frame, coarse_.size()), coarseAccept, candidates_);
    suppressOverlaps(candidates_);
    std::sort(candidates_.begin(), candidates_.end(),
              [](const Candidate& a, const Candidate& b) { return a.box.width > b.box.width; });
    FaceDetections detections;
    for (const Candidate& face : candidates_) {
      FaceObservation observation;
      observation.boundingBox = normalized(scaledAboutCentre(face.box, coarseTightness), frame);
      detections.rectangles.push(observation);
    }
    if (candidates_.empty()) return detections;
    const FaceReading reading = primary_.read(frame, candidates_.front());
    FaceObservation observation = detections.rectangles[0];
    observation.yaw = reading.yaw;
    if (reading.detail) {
      observation.landmarks =
          landmarks(*reading.detail, scaledAboutCentre(candidates_.front().box, coarseTightness));
    }
    detections.landmarks.push(observation);
    return detections;
  }

  void restart() { primary_.restart(); }

 private:
  std::unique_ptr<NetworkRunner> prepare(const Network& network, InputSize size) {
    return std::move(engine_->prepare(network, std::array{size}).front());
  }

  std::unique_ptr<InferenceEngine> engine_;
  RegionSampler sampler_;
  FaceSearch coarse_;
  PrimaryFaceReader primary_;
  std::vector<Candidate> candidates_;
};

NeuralFaceDetector::NeuralFaceDetector(std::filesystem::path modelFolder)
    : modelFolder_(std::move(modelFolder)) {}
NeuralFaceDetector::~NeuralFaceDetector() = default;

std::optional<FaceDetectorError> NeuralFaceDetector::prepare() {
  if (networks_) return std::nullopt;
  try {
    networks_ = std::make_unique<Networks>(readModels(modelFolder_));
    return std::nullopt;
  } catch (const ModelError& error) {
    return FaceDetectorError{error.what()};
  } catch (const std::bad_alloc&) {
    return FaceDetectorError{"there is not enough memory for the face models in " + modelFolder_.string()};
  }
}

std::optional<FaceDetections> NeuralFaceDetector::detect(const Frame& frame, std::int64_t /*timestampMs*/) {
  if (!networks_ || frame.empty()) return std::nullopt;
  return networks_->detect(frame);
}

void NeuralFaceDetector::restartTracking() {
  if (networks_) networks_->restart();
}

void NeuralFaceDetector::tune(const FaceTuning& tuning) {
  tuning_ = tuning;
}

}  // namespace sentrel::vision
