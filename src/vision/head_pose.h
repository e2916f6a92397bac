// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>

#include "vision/candidate.h"
#include "vision/canonical_face.h"
#include "vision/face_mesh.h"

namespace sentrel::vision {

/// Where a head faces, in radians: `yaw` is positive when it turns to the image's right, `pitch` when it
/// looks up. Both are 0 for a head that faces the viewer.
struct HeadPose {
  double yaw = 0;
  double pitch = 0;
};

/// The pose of the rigid head whose points lie closest to the mesh, by weighted Procrustes analysis (the
/// rotation of Kabsch's and Umeyama's least-squares fit). None when the mesh is degenerate.
[[nodiscard]] std::optional<HeadPose> fitHeadPose(const FaceMesh& mesh, const CanonicalFace& canonical);

/// A rough yaw in radians from where the nose stands between the ears: for faces whose mesh cannot be read.
[[nodiscard]] double yawFromKeypoints(const Candidate& face);

}  // namespace sentrel::vision
