// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>
#include <random>
#include <string_view>

#include "support/frame.h"

namespace sentrel::bench {

/// What bad light and a cheap camera do to a picture.
struct Degradation {
  double gain = 1;        ///< of every channel
  double noiseLevel = 0;  ///< standard deviation in steps of 1/255, new in every frame

  /// "plain", "dark" (an eighth of the light, with the noise that comes with it), "noisy".
  [[nodiscard]] static std::optional<Degradation> named(std::string_view name);

  /// `to` becomes the degraded `from`.
  void apply(const Frame& from, Frame& to, std::mt19937& random) const;
};

}  // namespace sentrel::bench
