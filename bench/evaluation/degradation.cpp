// SPDX-License-Identifier: Apache-2.0
#include "evaluation/degradation.h"

#include <algorithm>
#include <cmath>

namespace sentrel::bench {

std::optional<Degradation> Degradation::named(std::string_view name) {
  if (name == "plain") return Degradation{};
  if (name == "dark") return Degradation{0.125, 2};
  if (name == "noisy") return Degradation{1, 16};
  return std::nullopt;
}

void Degradation::apply(const Frame& from, Frame& to, std::mt19937& random) const {
  to.resize(from.width(), from.height());
  const std::size_t count = static_cast<std::size_t>(from.stride()) * static_cast<std::size_t>(from.height());
  std::normal_distribution<float> noise(0, 1);
  for (std::size_t i = 0; i < count; ++i) {
    double value = gain * from.data()[i];
    if (noiseLevel > 0) value += noiseLevel * static_cast<double>(noise(random));
    to.data()[i] = static_cast<std::uint8_t>(std::lround(std::clamp(value, 0.0, 255.0)));
  }
}

}  // namespace sentrel::bench
