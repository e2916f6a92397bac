// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <cstddef>
#include <memory>
#include <vector>

#include "support/frame.h"
#include "support/geometry.h"
#include "vision/inference.h"
#include "vision/region_sampler.h"

namespace sentrel::vision {

/// The six points that the detection network gives with each box. Left and right are the person's own.
enum FaceKeypoint : std::size_t { rightEye, leftEye, noseTip, mouth, rightEar, leftEar, keypointCount };

/// Something that may be a face, in a frame's pixels, origin at the top left.
struct Candidate {
  double score = 0;  ///< 0..1
  Region box;
  std::array<Point, keypointCount> keypoints;
};

/// The part of `a` that lies in `b`, as a fraction of the area of both together.
[[nodiscard]] double intersectionOverUnion(const Region& a, const Region& b);

/// The part of `inner` that lies in `outer`, as a fraction of the area of `inner`.
[[nodiscard]] double containedShare(const Region& inner, const Region& outer);

/// Whether two boxes are of one face.
[[nodiscard]] bool samePlace(const Region& a, const Region& b);

/// Sorts by score and drops every candidate in the same place as a better one. Allocates nothing.
void suppressOverlaps(std::vector<Candidate>& candidates);

/// The box about the same centre with its sides multiplied by `factor`.
[[nodiscard]] Region scaledAboutCentre(const Region& box, double factor);

/// The detection network at one input size: looks for faces in a region of a frame. One thread.
class FaceSearch {
 public:
  /// Throws ModelError when the runner's outputs are not those of the detection network at `size`.
  FaceSearch(std::unique_ptr<NetworkRunner> runner, InputSize size, RegionSampler& sampler);

  /// Appends everything that scores at least `threshold`, in the frame's pixels; several candidates may stand
  /// for one face. Nothing is appended when `found` is as long as its capacity. Throws InferenceFailure.
  void find(const Frame& frame, const Region& region, double threshold, std::vector<Candidate>& found);

  [[nodiscard]] InputSize size() const { return size_; }

 private:
  std::unique_ptr<NetworkRunner> runner_;
  InputSize size_;
  RegionSampler* sampler_;
  std::size_t boxes_ = 0;
  std::size_t scores_ = 0;
};

}  // namespace sentrel::vision
