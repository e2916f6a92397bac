// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <memory>
#include <vector>

#include "support/frame.h"
#include "vision/face_search.h"
#include "vision/inference.h"
#include "vision/models.h"
#include "vision/region_sampler.h"

namespace sentrel::vision {

constexpr int meshSide = 192;

/// Points of the mesh that are used by number. Left and right are the person's own.
enum MeshPoint : std::size_t {
  noseTipPoint = 1,
  rightEyeOuter = 33,
  rightEyeInner = 133,
  leftEyeOuter = 263,
  leftEyeInner = 362,
};

/// The points of one face in a frame: x and y in pixels from the top left, z in the same unit away from the
/// viewer.
struct FaceMesh {
  std::vector<Vector3> points;
};

/// The mesh network. One thread.
class MeshFinder {
 public:
  /// Throws ModelError when the runner's outputs are not `pointCount` points and a score.
  MeshFinder(std::unique_ptr<NetworkRunner> runner, std::size_t pointCount);

  /// Fills `mesh` with the face inside the square; false when there is none. Allocates nothing once `mesh`
  /// has its room. Throws InferenceFailure.
  [[nodiscard]] bool find(const Frame& frame, const TurnedSquare& square, FaceMesh& mesh);

  /// The network's own logit for "a face is inside the square". Throws InferenceFailure.
  [[nodiscard]] float presence(const Frame& frame, const TurnedSquare& square);

 private:
  std::unique_ptr<NetworkRunner> runner_;
  std::size_t points_ = 0;
  std::size_t score_ = 0;
};

/// The square to look for a face's mesh in: upright with respect to the eyes and half as large again as the
/// face.
[[nodiscard]] TurnedSquare meshRegion(const Candidate& face);
[[nodiscard]] TurnedSquare meshRegion(const FaceMesh& mesh);

/// The upright box about a mesh's points.
[[nodiscard]] Region boundingBox(const FaceMesh& mesh);

}  // namespace sentrel::vision
