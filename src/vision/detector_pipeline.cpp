// SPDX-License-Identifier: Apache-2.0
#include "vision/detector_pipeline.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <numbers>
#include <utility>

#include "vision/head_pose.h"

namespace sentrel::vision {
namespace {

// Boxes of one face in frames a tenth of a second apart overlap at least so much.
constexpr double sameFaceOverlap = 0.2;
// Beyond this yaw the mesh is often lost. A head that turned so far counts as turned until a mesh is found.
constexpr double turnedAway = std::numbers::pi / 6;

Point middle(const Vector3& a, const Vector3& b) {
  return {(a.x + b.x) / 2, (a.y + b.y) / 2};
}

constexpr InputSize coarseSize{160, 192};
constexpr InputSize fineSize{Tile::height, Tile::width};
// A candidate is worth a closer look from here.
constexpr double candidateScore = 0.3;
// More than can be told apart in one frame; beyond it the frame shows a pattern, not a crowd.
constexpr std::size_t maxCandidates = 512;
// The network's boxes are wider than a face's tight box: 1.24 times in the coarse pass, which looks from
// farther away, and 1.15 times elsewhere.
constexpr double coarseToFine = 1.15 / 1.24;
constexpr double tightness = 0.87;

std::vector<std::unique_ptr<NetworkRunner>> prepare(InferenceEngine& engine, const Models& models) {
  auto runners = engine.prepare(models.detection, std::array{coarseSize, fineSize, FaceTracker::inputSize});
  for (auto& runner : engine.prepare(models.mesh, std::array{InputSize{meshSide, meshSide}})) {
    runners.push_back(std::move(runner));
  }
  return runners;
}

/// The region of the network's proportions that holds the whole frame.
Region wholeFrame(const Frame& frame, InputSize size) {
  const double scale = std::max(static_cast<double>(frame.width()) / size.width,
                                static_cast<double>(frame.height()) / size.height);
  const double width = scale * size.width;
  const double height = scale * size.height;
  return {(frame.width() - width) / 2, (frame.height() - height) / 2, width, height};
}

Region tileRegion(const Frame& frame, const Tile& tile) {
  const double scale = fieldScale(frame);
  return {tile.x * scale, tile.y * scale, Tile::width * scale, Tile::height * scale};
}

}  // namespace

PrimaryFaceReader::PrimaryFaceReader(MeshFinder finder, CanonicalFace canonical)
    : finder_(std::move(finder)), canonical_(std::move(canonical)) {
  mesh_.points.reserve(canonical_.points.size());
}

void PrimaryFaceReader::restart() {
  hasMesh_ = false;
  lastBox_.reset();
  lastYaw_ = 0;
}

bool PrimaryFaceReader::findMesh(const Frame& frame, const Candidate& face, bool sameFace) {
  // A mesh that slid off the face onto something else must not be believed.
  const auto onFace = [&] { return intersectionOverUnion(boundingBox(mesh_), face.box) > sameFaceOverlap; };
  if (sameFace && hasMesh_ && finder_.find(frame, meshRegion(mesh_), mesh_) && onFace()) return true;
  return finder_.find(frame, meshRegion(face), mesh_) && onFace();
}

FaceReading PrimaryFaceReader::read(const Frame& frame, const Candidate& face) {
  const bool sameFace = lastBox_ && intersectionOverUnion(*lastBox_, face.box) > sameFaceOverlap;
  lastBox_ = face.box;
  hasMesh_ = findMesh(frame, face, sameFace);
  const std::optional<HeadPose> pose = hasMesh_ ? fitHeadPose(mesh_, canonical_) : std::nullopt;
  FaceReading reading;
  if (pose) {
    reading.yaw = pose->yaw;
    reading.detail = {pose->pitch, middle(mesh_.points[leftEyeOuter], mesh_.points[leftEyeInner]),
                      middle(mesh_.points[rightEyeOuter], mesh_.points[rightEyeInner])};
  } else {
    hasMesh_ = false;
    reading.yaw = yawFromKeypoints(face);
    if (sameFace && std::abs(lastYaw_) >= turnedAway) {
      reading.yaw = std::copysign(std::max(std::abs(reading.yaw), std::abs(lastYaw_)), lastYaw_);
    }
  }
  lastYaw_ = reading.yaw;
  return reading;
}

DetectorPipeline::DetectorPipeline(const Models& models, MakeEngine makeEngine)
    : engine_(makeEngine()),
      runners_(prepare(*engine_, models)),
      coarse_(std::move(runners_[0]), coarseSize, sampler_),
      fine_(std::move(runners_[1]), fineSize, sampler_),
      tracker_(FaceSearch(std::move(runners_[2]), FaceTracker::inputSize, sampler_)),
      reader_(MeshFinder(std::move(runners_[3]), models.face.points.size()), models.face) {
  candidates_.reserve(maxCandidates);
}

void DetectorPipeline::analyse(const Frame& taken, std::int64_t timestampMs) {
  if (taken.width() != frameWidth_ || taken.height() != frameHeight_)
    restart();  // every position was in the old size
  frameWidth_ = taken.width();
  frameHeight_ = taken.height();
  const Frame& frame = noise_.steady(taken);
  candidates_.clear();
  gate_.observe(frame, timestampMs);
  if (gate_.takeWhole(tracker_.unsure())) {
    coarse_.find(frame, wholeFrame(frame, coarse_.size()), candidateScore, candidates_);
    for (Candidate& candidate : candidates_) candidate.box = scaledAboutCentre(candidate.box, coarseToFine);
  }
  if (const auto tile = gate_.takeTile()) {
    fine_.find(frame, tileRegion(frame, tiles[*tile]), candidateScore, candidates_);
  }
  suppressOverlaps(candidates_);
  tracker_.follow(frame);
  tracker_.confirm(frame, candidates_, noise_.isActive());
  primary_.reset();
  if (!tracker_.faces().empty()) primary_ = reader_.read(frame, tracker_.faces().front().face);
}

void DetectorPipeline::restart() {
  tracker_.restart();
  reader_.restart();
  gate_.restart();
  noise_.restart();
  primary_.reset();
}

Region DetectorPipeline::tightBox(const Candidate& face) {
  return scaledAboutCentre(face.box, tightness);
}

}  // namespace sentrel::vision
