// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <span>
#include <vector>

#include "vision/network.h"

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

/// What the detector needs from disk.
struct Models {
  Network detection;
  Network mesh;
  CanonicalFace face;
};

/// Reads the three files and checks them against the digests that this build was made with. Throws ModelError
/// with a message for people: it names the file, what is wrong with it, and what to do.
[[nodiscard]] Models readModels(const std::filesystem::path& folder);

/// Where this program's models are: in the data folder beside the running binary's, be it installed or in its
/// build tree. The folder need not exist.
[[nodiscard]] std::filesystem::path modelFolder();

}  // namespace sentrel::vision
