// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>

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

/// The length of a head from the ears to the nose over half its width, as the detector sees them.
inline constexpr double keypointDepth = 2.0;
/// With this a face seems more turned than it is: for one who may be looking away.
inline constexpr double shallowKeypointDepth = 1.4;

/// A rough yaw in radians from where the nose stands between the ears: for faces whose mesh cannot be read.
[[nodiscard]] double yawFromKeypoints(const Candidate& face, double depth);

/// What was read off a face lately, so that a single misreading changes nothing.
class RecentYaws {
 public:
  void add(double yaw);
  /// The median of the last readings; none until there are three.
  [[nodiscard]] std::optional<double> yaw() const;

 private:
  std::array<double, 5> yaws_{};
  std::size_t added_ = 0;
};

/// The pitch at which a person looks at the screen. A camera on the screen's upper edge sees someone who
/// reads its lower half looking down by 10 to 20 degrees all the time; that is not looking away. It is the
/// median over the last minute of frames with a face that looks roughly ahead, where a minute not yet lived
/// counts as 0. Allocates nothing.
class NeutralPitch {
 public:
  /// Takes in a reading; returns the neutral pitch in radians, within +-12 degrees.
  double update(const HeadPose& pose, std::int64_t timestampMs);

  void restart();

 private:
  static constexpr std::size_t samples = 600;
  static constexpr std::size_t bins = 80;  // of half a degree, from -20 to 20

  std::array<std::uint8_t, samples> bin_{};
  std::array<std::uint16_t, bins> count_{};
  std::size_t next_ = 0;
  std::size_t filled_ = 0;
  std::int64_t lastMs_ = 0;
  double neutral_ = 0;
};

/// Exponential smoothing in time, not in frames, of a value that may be missing for a while.
class TimeSmoother {
 public:
  /// `constantMs` is the time in which a step is followed to 63 %; 0 follows at once.
  double update(double value, std::int64_t timestampMs, double constantMs);
  void restart() { value_.reset(); }

 private:
  std::optional<double> value_;
  std::int64_t lastMs_ = 0;
};

/// The time constant of a sensitivity level, 1 (slow, smooth) to 5 (none), in ms.
[[nodiscard]] double smoothingConstantMs(int sensitivity);

}  // namespace sentrel::vision
