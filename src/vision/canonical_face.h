// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace sentrel::vision {

/// A point in space.
struct Vector3 {
  double x = 0;
  double y = 0;
  double z = 0;
};

/// A mean face that looks straight ahead: the mesh's points in centimetres, x to the image's right, y up, z
/// towards the viewer, with the weight that each has in fitting a rigid head (0 for points that move with the
/// features).
struct CanonicalFace {
  std::vector<Vector3> points;
  std::vector<double> weights;
  std::vector<std::array<std::uint16_t, 3>> triangles;
};

/// Reads the packaged geometry. Throws ModelError.
[[nodiscard]] CanonicalFace readCanonicalFace(std::span<const std::byte> file);

}  // namespace sentrel::vision
