// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "support/frame.h"
#include "vision/face_mesh.h"
#include "vision/face_tracker.h"
#include "vision/head_pose.h"
#include "vision/models.h"
#include "vision/region_sampler.h"

namespace sentrel::vision {

/// Where the faces beside the primary one turn: from the mesh where they are wide enough for one, from their
/// keypoints below that. Allocates nothing per frame. One thread.
class OtherFaceReader {
 public:
  OtherFaceReader(MeshFinder& finder, CanonicalFace canonical);

  /// Reads those that a close look saw in this frame, which bounds the work, and large ones that were not
  /// read often enough yet; the others stay as they were read. `faces` are all but the primary one.
  void read(const Frame& frame, std::span<const TrackedFace> faces, std::int64_t timestampMs);

  /// In radians, positive when the face turns to the image's right: the median of the last readings, so that
  /// no single misreading shows. None until there are some.
  [[nodiscard]] std::optional<double> yaw(const TrackedFace& face) const;

  void restart() { readings_.clear(); }

 private:
  struct Reading {
    std::uint64_t id = 0;  // of the face
    RecentYaws yaws;
    std::optional<TurnedSquare> place;  // of its mesh, while it has one
  };

  [[nodiscard]] Reading& readingOf(const TrackedFace& face);
  [[nodiscard]] double readYaw(const Frame& frame, const Candidate& face, std::optional<TurnedSquare>& place);

  MeshFinder* finder_;
  CanonicalFace canonical_;
  FaceMesh mesh_;
  std::vector<Reading> readings_;
};

}  // namespace sentrel::vision
