// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>
#include <optional>

#include "platform/face_detector.h"
#include "support/frame.h"
#include "vision/candidate.h"
#include "vision/canonical_face.h"
#include "vision/face_mesh.h"
#include "vision/head_pose.h"

namespace sentrel::vision {

/// What was read off the primary face. Angles in radians as in HeadPose; points in the frame's pixels.
struct FaceReading {
  double yaw = 0;
  /// The rest is absent when the mesh could not be read.
  struct Detail {
    double pitch = 0;
    Point leftEye;  ///< centre between the corners, the person's own left
    Point rightEye;
    Region meshBox;
  };
  std::optional<Detail> detail;
};

/// Reads head pose and eyes of one face from frame to frame. While the same face stays, its mesh is looked
/// for where the last one was, which is steadier than the detector's box. A face whose mesh cannot be read
/// keeps a yaw from its keypoints: one that had turned away stays turned away. One thread.
class PrimaryFaceReader {
 public:
  PrimaryFaceReader(MeshFinder finder, CanonicalFace canonical);

  [[nodiscard]] FaceReading read(const Frame& frame, const Candidate& face);

  void restart();

 private:
  [[nodiscard]] bool findMesh(const Frame& frame, const Candidate& face, bool sameFace);

  MeshFinder finder_;
  CanonicalFace canonical_;
  FaceMesh mesh_;
  bool hasMesh_ = false;
  std::optional<Region> lastBox_;
  double lastYaw_ = 0;
};

}  // namespace sentrel::vision
