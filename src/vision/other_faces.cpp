// SPDX-License-Identifier: Apache-2.0
#include "vision/other_faces.h"

#include <algorithm>
#include <utility>

#include "vision/detector_pipeline.h"
#include "vision/motion_gate.h"

namespace sentrel::vision {
namespace {

// In units of the field.
constexpr double narrowestWithMesh = 40;
constexpr double onTheFace = 0.2;  // how far the mesh's box must overlap the face's
constexpr std::size_t most = 64;

bool hasMesh(const Frame& frame, const Candidate& face) {
  return DetectorPipeline::tightBox(face).width >= narrowestWithMesh * fieldScale(frame);
}

}  // namespace

OtherFaceReader::OtherFaceReader(MeshFinder& finder, CanonicalFace canonical)
    : finder_(&finder), canonical_(std::move(canonical)) {
  mesh_.points.reserve(canonical_.points.size());
  readings_.reserve(most);
}

OtherFaceReader::Reading& OtherFaceReader::readingOf(const TrackedFace& face) {
  const auto known = std::ranges::find(readings_, face.id, &Reading::id);
  if (known != readings_.end()) return *known;
  readings_.push_back({face.id, {}, {}});
  return readings_.back();
}

void OtherFaceReader::read(const Frame& frame, std::span<const TrackedFace> faces, std::int64_t timestampMs) {
  std::erase_if(readings_, [faces](const Reading& reading) {
    return std::ranges::find(faces, reading.id, &TrackedFace::id) == faces.end();
  });
  for (const TrackedFace& face : faces.first(std::min(faces.size(), most))) {
    Reading& reading = readingOf(face);
    // Who sits still has a close look only now and then. The first meshes are not waited for.
    const bool isAwaited = !reading.yaws.yaw() && hasMesh(frame, face.face);
    if (face.lookedMs != timestampMs && !isAwaited) continue;
    reading.yaws.add(readYaw(frame, face.face, reading.place));
  }
}

double OtherFaceReader::readYaw(const Frame& frame, const Candidate& face,
                                std::optional<TurnedSquare>& place) {
  if (hasMesh(frame, face)) {
    // The detector's box is a rough place, from which a turned head is read too little turned. A second look
    // where the first one saw the mesh mends that.
    if (!place && finder_->find(frame, meshRegion(face), mesh_)) place = meshRegion(mesh_);
    const bool found = place && finder_->find(frame, *place, mesh_) &&
                       intersectionOverUnion(boundingBox(mesh_), face.box) > onTheFace;
    const auto pose = found ? fitHeadPose(mesh_, canonical_) : std::nullopt;
    if (pose) {
      place = meshRegion(mesh_);
      return pose->yaw;
    }
  }
  place.reset();
  return yawFromKeypoints(face, keypointDepth);
}

std::optional<double> OtherFaceReader::yaw(const TrackedFace& face) const {
  const auto known = std::ranges::find(readings_, face.id, &Reading::id);
  return known != readings_.end() ? known->yaws.yaw() : std::nullopt;
}

}  // namespace sentrel::vision
