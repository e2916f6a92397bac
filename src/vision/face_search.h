// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>
#include <vector>

#include "support/frame.h"
#include "vision/candidate.h"
#include "vision/inference.h"
#include "vision/region_sampler.h"

namespace sentrel::vision {

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
