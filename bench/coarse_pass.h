// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>

#include "vision/inference.h"
#include "vision/models.h"

namespace sentrel::bench {

/// The unit in which costs of different machines can be compared: one pass of the detection network, in
/// 32-bit floats, over an input of 192 x 160.
class CoarsePass {
 public:
  /// Throws ModelError.
  explicit CoarsePass(const vision::Models& models);

  /// Of one pass, the median of some.
  [[nodiscard]] double milliseconds();

 private:
  std::unique_ptr<vision::InferenceEngine> engine_ = vision::makeInferenceEngine();
  std::unique_ptr<vision::NetworkRunner> runner_;
};

}  // namespace sentrel::bench
