// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <filesystem>

#include "vision/canonical_face.h"
#include "vision/network.h"

namespace sentrel::vision {

/// What the detector needs from disk.
struct Models {
  Network detection;
  Network mesh;
  CanonicalFace face;
};

/// Reads the three files and checks them against the digests that this build was made with. Throws ModelError
/// with a message for people: it names the file, what is wrong with it, and what to do.
[[nodiscard]] Models readModels(const std::filesystem::path& folder);

}  // namespace sentrel::vision
