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
// A user who looks ahead, in radians and radians a frame, is read in every other frame while little of the
// face moves.
constexpr double ahead = 0.3;
constexpr double slowTurn = 0.05;
constexpr double swayingShare = 0.6;
constexpr std::int64_t waitMs = 150;

/// A face that moved and grew as a box did.
Candidate moved(Candidate face, const Region& from, const Region& to) {
  const double scaleX = to.width / from.width;
  const double scaleY = to.height / from.height;
  face.box = {to.x + (face.box.x - from.x) * scaleX, to.y + (face.box.y - from.y) * scaleY,
              face.box.width * scaleX, face.box.height * scaleY};
  for (Point& point : face.keypoints)
    point = {to.x + (point.x - from.x) * scaleX, to.y + (point.y - from.y) * scaleY};
  return face;
}

Point middle(const Vector3& a, const Vector3& b) {
  return {(a.x + b.x) / 2, (a.y + b.y) / 2};
}

constexpr InputSize coarseSize{160, 192};
constexpr InputSize fineSize{Tile::fullHeight, Tile::fullWidth};
// A candidate is worth a closer look from here: what is small, and in a scan at full resolution, much sooner
// than what the coarse pass sees, as a close look adds little to that.
constexpr double coarseCandidateScore = 0.3;
constexpr double fineCandidateScore = 0.12;
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
  return {tile.x * scale, tile.y * scale, tile.width * scale, tile.height * scale};
}

}  // namespace

PrimaryFaceReader::PrimaryFaceReader(MeshFinder& finder, CanonicalFace canonical)
    : finder_(&finder), canonical_(std::move(canonical)) {
  mesh_.points.reserve(canonical_.points.size());
}

void PrimaryFaceReader::restart() {
  hasMesh_ = false;
  lastYaw_ = 0;
}

std::optional<FaceReading> PrimaryFaceReader::readMesh(const Frame& frame, const TurnedSquare& place,
                                                       const Region& box) {
  // A mesh that slid off the face onto something else must not be believed.
  hasMesh_ =
      finder_->find(frame, place, mesh_) && intersectionOverUnion(boundingBox(mesh_), box) > sameFaceOverlap;
  const auto pose = hasMesh_ ? fitHeadPose(mesh_, canonical_) : std::nullopt;
  hasMesh_ = pose.has_value();
  if (!hasMesh_) return std::nullopt;
  lastYaw_ = pose->yaw;
  return FaceReading{
      pose->yaw,
      FaceReading::Detail{pose->pitch, middle(mesh_.points[leftEyeOuter], mesh_.points[leftEyeInner]),
                          middle(mesh_.points[rightEyeOuter], mesh_.points[rightEyeInner])}};
}

std::optional<FaceReading> PrimaryFaceReader::follow(const Frame& frame, Candidate& face) {
  if (!hasMesh_) return std::nullopt;
  const Region before = boundingBox(mesh_);
  const auto reading = readMesh(frame, meshRegion(mesh_), face.box);
  if (reading) face = moved(face, before, boundingBox(mesh_));
  return reading;
}

FaceReading PrimaryFaceReader::read(const Frame& frame, const Candidate& face, bool sameFace) {
  if (const auto reading = readMesh(frame, meshRegion(face), face.box)) return *reading;
  double yaw = yawFromKeypoints(face, shallowKeypointDepth);
  if (sameFace && std::abs(lastYaw_) >= turnedAway)
    yaw = std::copysign(std::max(std::abs(yaw), std::abs(lastYaw_)), lastYaw_);
  lastYaw_ = yaw;
  return {yaw, {}};
}

DetectorPipeline::DetectorPipeline(const Models& models, MakeEngine makeEngine)
    : engine_(makeEngine()),
      runners_(prepare(*engine_, models)),
      coarse_(std::move(runners_[0]), coarseSize, sampler_),
      fine_(std::move(runners_[1]), fineSize, sampler_),
      mesh_(std::move(runners_[3]), models.face.points.size()),
      tracker_(FaceSearch(std::move(runners_[2]), FaceTracker::inputSize, sampler_), mesh_),
      reader_(mesh_, models.face),
      others_(mesh_, models.face) {
  candidates_.reserve(maxCandidates);
}

void DetectorPipeline::analyse(const Frame& taken, std::int64_t timestampMs, bool others) {
  if (taken.width() != frameWidth_ || taken.height() != frameHeight_)
    restart();  // every position was in the old size
  frameWidth_ = taken.width();
  frameHeight_ = taken.height();
  const Frame& frame = noise_.steady(taken);
  std::optional<Region> user;
  if (!tracker_.faces().empty()) user = tracker_.faces().front().face.box;
  gate_.observe(frame, timestampMs, user);
  const bool followed = followPrimary(frame, timestampMs);
  tracker_.follow(frame, gate_, timestampMs);
  scan(frame);
  tracker_.confirm(frame, gate_, timestampMs, candidates_, noise_.isActive());
  readPrimary(frame, timestampMs, followed);
  const auto faces = tracker_.faces();
  others_.read(frame, others && !faces.empty() ? faces.subspan(1) : faces.first(0), timestampMs);
}

bool DetectorPipeline::canWait(const TrackedFace& first, std::int64_t timestampMs) const {
  // A face that looks ahead, turns slowly if at all, and moves no more than a swaying head: it cannot look
  // away by the next frame.
  return std::abs(primary_->yaw) < ahead && std::abs(yawStep_) < slowTurn && timestampMs - readMs_ < waitMs &&
         gate_.movedShare(first.face.box) < swayingShare;
}

bool DetectorPipeline::followPrimary(const Frame& frame, std::int64_t timestampMs) {
  if (tracker_.faces().empty() || !primary_ || !primary_->detail) return false;
  const TrackedFace& first = tracker_.faces().front();
  if (first.id != readId_ || first.misses > 0) return false;
  if (timestampMs - readMs_ < FaceTracker::holdMs && FaceTracker::isCalm(first, gate_)) return true;
  Candidate face = first.face;
  if (!canWait(first, timestampMs)) {
    const auto reading = reader_.follow(frame, face);
    if (!reading) return false;
    yawStep_ = reading->yaw - primary_->yaw;
    primary_ = reading;
    readMs_ = timestampMs;
  }
  tracker_.carry(face, timestampMs);
  return true;
}

void DetectorPipeline::scan(const Frame& frame) {
  candidates_.clear();
  if (gate_.takeWhole(tracker_.unsure())) {
    coarse_.find(frame, wholeFrame(frame, coarse_.size()), coarseCandidateScore, candidates_);
    for (Candidate& candidate : candidates_) candidate.box = scaledAboutCentre(candidate.box, coarseToFine);
  }
  if (const auto tile = gate_.takeTile()) {
    fine_.find(frame, tileRegion(frame, *tile), fineCandidateScore, candidates_);
  }
  suppressOverlaps(candidates_);
}

void DetectorPipeline::readPrimary(const Frame& frame, std::int64_t timestampMs, bool followed) {
  if (tracker_.faces().empty()) {
    primary_.reset();
    return;
  }
  const TrackedFace& first = tracker_.faces().front();
  if (followed && first.id == readId_) return;
  primary_ = reader_.read(frame, first.face, first.id == readId_);
  yawStep_ = 0;
  readId_ = first.id;
  readMs_ = timestampMs;
}

void DetectorPipeline::restart() {
  tracker_.restart();
  reader_.restart();
  others_.restart();
  gate_.restart();
  noise_.restart();
  primary_.reset();
}

Region DetectorPipeline::tightBox(const Candidate& face) {
  return scaledAboutCentre(face.box, tightness);
}

}  // namespace sentrel::vision
