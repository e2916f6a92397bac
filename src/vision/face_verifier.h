// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>
#include <vector>

#include "support/frame.h"
#include "vision/candidate.h"
#include "vision/face_search.h"

namespace sentrel::vision {

/// Looks at one place closely: the square about a box, twice as wide, at the size at which the network sees
/// faces best. It scores a real face of any size higher than a single pass over a larger region does, and
/// what only looked like one lower. One thread.
class FaceVerifier {
 public:
  static constexpr InputSize inputSize{96, 96};

  explicit FaceVerifier(FaceSearch search);

  /// The best face that stands where `box` is, with its score here, or none.
  [[nodiscard]] std::optional<Candidate> look(const Frame& frame, const Region& box);

 private:
  FaceSearch search_;
  std::vector<Candidate> found_;
};

}  // namespace sentrel::vision
