// SPDX-License-Identifier: Apache-2.0
#include "vision/primary_face_reader.h"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <utility>

namespace sentrel::vision {
namespace {

// Boxes of one face in frames a tenth of a second apart overlap at least so much.
constexpr double sameFaceOverlap = 0.2;
// Beyond this yaw the mesh is often lost, and a head that went there has not come back by being lost.
constexpr double turnedAway = std::numbers::pi / 6;

Point middle(const Vector3& a, const Vector3& b) {
  return {(a.x + b.x) / 2, (a.y + b.y) / 2};
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
                      middle(mesh_.points[rightEyeOuter], mesh_.points[rightEyeInner]), boundingBox(mesh_)};
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

}  // namespace sentrel::vision
