// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <vector>

#include "support/frame.h"
#include "vision/face_mesh.h"
#include "vision/face_search.h"
#include "vision/face_tracker.h"
#include "vision/inference.h"
#include "vision/models.h"
#include "vision/motion_gate.h"
#include "vision/noise_filter.h"
#include "vision/other_faces.h"
#include "vision/region_sampler.h"

namespace sentrel::vision {

/// What was read off the primary face. Angles in radians as in HeadPose; points in the frame's pixels.
struct FaceReading {
  double yaw = 0;
  /// The rest is absent when the mesh could not be read.
  struct Detail {
    double pitch = 0;
    Point leftEye;  ///< centre between the corners, the person's own left
    Point rightEye;
  };
  std::optional<Detail> detail;
};

/// Reads head pose and eyes of one face from frame to frame. While the same face stays, its mesh is looked
/// for where the last one was, which is steadier than the detector's box, and tells where the face went. A
/// face whose mesh cannot be read keeps a yaw from its keypoints: one that had turned away stays turned away.
/// One thread.
class PrimaryFaceReader {
 public:
  PrimaryFaceReader(MeshFinder& finder, CanonicalFace canonical);

  /// Reads a face that a close look saw in this frame, the one that was read last or another.
  [[nodiscard]] FaceReading read(const Frame& frame, const Candidate& face, bool sameFace);

  /// Reads the face that was read last where its mesh is now, and moves `face` there. None where there is no
  /// mesh, or a doubtful one; then a close look must see the face before it is read.
  [[nodiscard]] std::optional<FaceReading> follow(const Frame& frame, Candidate& face);

  void restart();

 private:
  /// Reads the mesh that is found at a place, if it is on the face in the box.
  [[nodiscard]] std::optional<FaceReading> readMesh(const Frame& frame, const TurnedSquare& place,
                                                    const Region& box);

  MeshFinder* finder_;
  CanonicalFace canonical_;
  FaceMesh mesh_;
  bool hasMesh_ = false;
  double lastYaw_ = 0;
};

/// What is done with one frame, so that faces down to two hundredths of its width are found at a steady
/// price, in a picture freed of strong noise:
///
///  1. the mesh of the widest face, which shows where it is now; a face about which nothing moved is taken
///     for unchanged for a while,
///  2. a close look at the other faces that are followed,
///  3. one coarse pass over the whole frame, if the motion gate says that something changed,
///  4. one pass over a tile at full resolution, where it says so,
///  5. a close look at new candidates,
///  6. if that is asked for, where the faces turn that had a close look.
///
/// One thread. Allocates nothing after the first frames.
class DetectorPipeline {
 public:
  /// Throws ModelError.
  DetectorPipeline(const Models& models, MakeEngine makeEngine);

  /// `taken` is not empty. With `others` it is read where all faces turn, not only the first. Throws
  /// InferenceFailure; the next frame then begins anew.
  void analyse(const Frame& taken, std::int64_t timestampMs, bool others = false);

  /// The confirmed faces of the last frame, widest first, with the network's wide boxes.
  [[nodiscard]] std::span<const TrackedFace> faces() const { return tracker_.faces(); }
  /// What was read off the first of them.
  [[nodiscard]] const std::optional<FaceReading>& primary() const { return primary_; }
  /// The yaw of one of the others, in radians; none where it is not known.
  [[nodiscard]] std::optional<double> yawOf(const TrackedFace& face) const { return others_.yaw(face); }

  /// For how long nothing has moved in a face's box; 0 where that cannot be told.
  [[nodiscard]] std::int64_t stillMs(const TrackedFace& face) const { return gate_.stillMs(face.face.box); }

  /// Whether something of the frames so far is still to be looked at.
  [[nodiscard]] bool hasBacklog() const { return tracker_.hasBacklog() || gate_.hasBacklog(); }

  void restart();

  /// The box about a face without hair and ears, for a box as `faces` gives it.
  [[nodiscard]] static Region tightBox(const Candidate& face);

 private:
  [[nodiscard]] bool canWait(const TrackedFace& first, std::int64_t timestampMs) const;
  /// Whether what was read off the primary face holds in this frame.
  bool followPrimary(const Frame& frame, std::int64_t timestampMs);
  void scan(const Frame& frame);
  void readPrimary(const Frame& frame, std::int64_t timestampMs, bool followed);

  std::unique_ptr<InferenceEngine> engine_;
  RegionSampler sampler_;
  std::vector<std::unique_ptr<NetworkRunner>> runners_;
  FaceSearch coarse_;
  FaceSearch fine_;
  MeshFinder mesh_;
  FaceTracker tracker_;
  PrimaryFaceReader reader_;
  OtherFaceReader others_;
  MotionGate gate_;
  NoiseFilter noise_;
  std::vector<Candidate> candidates_;
  std::optional<FaceReading> primary_;
  std::uint64_t readId_ = 0;  // of the face that `primary_` was read off
  std::int64_t readMs_ = 0;
  double yawStep_ = 0;  // from the reading before to `primary_`
  int frameWidth_ = 0;
  int frameHeight_ = 0;
};

}  // namespace sentrel::vision
