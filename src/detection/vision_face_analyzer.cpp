// SPDX-License-Identifier: Apache-2.0
#include "detection/vision_face_analyzer.h"

#include <algorithm>
#include <numbers>
#include <utility>

#include "platform/platform.h"
#include "support/fatal.h"

namespace sentrel {

namespace {

// Faces narrower than this fraction of the image are too far away to read a screen. Single precision, so that
// a width that was stored as a float compares equal.
constexpr double minimumFaceWidth = 0.02F;

std::int64_t intervalOf(std::int64_t fpsLimit) {
  if (fpsLimit == 0) fatal("the analysis rate is 0");
  return 1000 / fpsLimit;
}

double widthOf(const FaceObservation& face) {
  return face.boundingBox.width;
}

/// The widest face that counts, except `other`; the first of equals, or none.
const FaceObservation* widest(const FaceList& faces, const FaceObservation* other = nullptr) {
  const FaceObservation* best = nullptr;
  for (const FaceObservation& face : faces) {
    if (&face == other || !counts(face)) continue;
    if (best == nullptr || widthOf(face) > widthOf(*best)) best = &face;
  }
  return best;
}

/// Those that count, where there are others than the person.
std::shared_ptr<const FaceList> several(const FaceList& faces) {
  if (std::ranges::count_if(faces, counts) < 2) return nullptr;
  const auto list = std::make_shared<FaceList>();
  for (const FaceObservation& face : faces) {
    if (counts(face)) list->push(face);
  }
  return list;
}

/// How far the nose lies from the height of the eyes, scaled to read like degrees of pitch.
float estimatePitch(const FaceObservation& face) {
  if (!face.landmarks) return 0;
  const auto& [leftEye, rightEye, nose] = *face.landmarks;
  if (!leftEye || !rightEye || !nose) return 0;
  return static_cast<float>((nose->y + (leftEye->y + rightEye->y) * -0.5) * 180.0);
}

FaceData measure(const FaceObservation& face) {
  return {
      .eulerY = static_cast<float>(face.yaw.value_or(0) * 180.0 / std::numbers::pi),
      .eulerX = estimatePitch(face),
      .boundingBoxRatio = static_cast<float>(widthOf(face)),
  };
}

}  // namespace

bool counts(const FaceObservation& face) {
  return widthOf(face) >= minimumFaceWidth;
}

AnalysisEnvironment AnalysisEnvironment::of(const Platform& platform) {
  return {platform.mainLoop, platform.clock, platform.analysisQueue, platform.faceDetector};
}

VisionFaceAnalyzer::VisionFaceAnalyzer(std::int64_t fpsLimit, AnalysisEnvironment environment)
    : environment_(std::move(environment)), minIntervalMs_(intervalOf(fpsLimit)) {}

void VisionFaceAnalyzer::analyze(const FrameRef& frame) {
  if (isSuspended) return;
  const std::int64_t now = environment_.clock->nowMs();
  if (checkedSubtract(now, lastAnalysisMs) < minIntervalMs_) return;
  lastAnalysisMs = now;  // an empty frame uses up its turn too
  if (!frame || frame->empty()) return;
  const bool wakes = waiting_.put({frame, now, static_cast<bool>(onRetroFrame)});
  if (!wakes) return;  // the task that was queued for the replaced frame takes this one
  environment_.analysisQueue->async([weak = weak_from_this()] {
    if (const auto self = weak.lock()) self->analyzeWaiting();
  });
}

void VisionFaceAnalyzer::analyzeWaiting() {
  auto job = waiting_.take();
  if (!job) return;
  const auto found = environment_.faceDetector->detect(*job->frame, job->timestampMs);
  const auto look = found && onLook ? measureLook(*job->frame, found->rectangles) : std::nullopt;
  if (!job->wantsRetro) job->frame.reset();
  if (found && onDetections) {
    environment_.mainLoop->post([weak = weak_from_this(), timestampMs = job->timestampMs,
                                 all = std::make_shared<const FaceDetections>(*found)] {
      if (const auto self = weak.lock()) self->onDetections(timestampMs, all);
    });
  }
  if (found) {
    return processResults(found->rectangles, found->landmarks, job->timestampMs, std::move(job->frame), look);
  }
  environment_.mainLoop->post([weak = weak_from_this()] {
    if (const auto self = weak.lock()) self->onFailure();
  });
}

std::optional<FrameLook> VisionFaceAnalyzer::measureLook(const Frame& frame, const FaceList& faces) {
  const FaceObservation* main = widest(faces);
  return meter_.measure(frame, main != nullptr ? &main->boundingBox : nullptr);
}

void VisionFaceAnalyzer::processResults(const FaceList& rectangles, const FaceList& landmarks,
                                        std::int64_t timestampMs, FrameRef pixelBuffer,
                                        const std::optional<FrameLook>& look) {
  DetectionInput input{timestampMs, std::ranges::count_if(rectangles, counts), std::nullopt};
  const FaceObservation* primary = widest(landmarks);
  if (primary != nullptr) input.primaryFace = measure(*primary);

  const FaceObservation* first = widest(rectangles);
  const FaceObservation* sampled = primary != nullptr ? primary : first;
  const auto sample = sampled != nullptr ? std::optional(widthOf(*sampled)) : std::nullopt;

  const FaceObservation* second = widest(rectangles, first);
  const auto secondBox = second != nullptr ? std::optional(second->boundingBox) : std::nullopt;

  environment_.mainLoop->post([weak = weak_from_this(), input, faces = several(rectangles), sample, secondBox,
                               frame = std::move(pixelBuffer), look] {
    const auto self = weak.lock();
    if (!self) return;
    self->onResult(input, faces);
    self->onLook(input.timestampMs, input.faceCount, look);
    if (sample) self->onCalibrationSample(*sample);
    if (frame) self->onRetroFrame(frame, secondBox);
  });
}

}  // namespace sentrel
