// SPDX-License-Identifier: Apache-2.0
#include "vision/neutral_pitch.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace sentrel::vision {
namespace {

constexpr double degree = std::numbers::pi / 180;
constexpr double aheadYaw = 15;
constexpr double aheadPitch = 20;
constexpr double mostNeutral = 12;
constexpr double binWidth = 0.5;
// A minute of samples.
constexpr std::int64_t sampleMs = 100;

}  // namespace

void NeutralPitch::restart() {
  *this = NeutralPitch();
}

double NeutralPitch::update(const HeadPose& pose, std::int64_t timestampMs) {
  const double pitch = pose.pitch / degree;
  const bool ahead = std::abs(pose.yaw / degree) < aheadYaw && std::abs(pitch) < aheadPitch;
  const std::int64_t age = timestampMs - lastMs_;
  if (!ahead || (filled_ > 0 && age >= 0 && age < sampleMs)) return neutral_ * degree;
  lastMs_ = timestampMs;
  if (filled_ == samples) {
    --count_[bin_[next_]];
  } else {
    ++filled_;
  }
  const double place = std::clamp((pitch + aheadPitch) / binWidth, 0.0, bins - 1.0);
  bin_[next_] = static_cast<std::uint8_t>(place);
  ++count_[bin_[next_]];
  next_ = (next_ + 1) % samples;

  // The median; the samples that are still missing stand in the bin of 0.
  std::size_t below = 0;
  std::size_t median = 0;
  constexpr std::size_t zeroBin = bins / 2;
  for (; median < bins; ++median) {
    below += count_[median] + (median == zeroBin ? samples - filled_ : 0);
    if (2 * below >= samples) break;
  }
  const double centre = median == zeroBin ? 0 : (static_cast<double>(median) + 0.5) * binWidth - aheadPitch;
  neutral_ = std::clamp(centre, -mostNeutral, mostNeutral);
  return neutral_ * degree;
}

}  // namespace sentrel::vision
