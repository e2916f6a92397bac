// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "vision/head_pose.h"

namespace sentrel::vision {

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

}  // namespace sentrel::vision
