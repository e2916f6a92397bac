// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>

namespace sentrel {

/// What the person asked of the desktop's looks; what it does not tell is absent or not so.
struct Appearance {
  std::optional<bool> dark;  ///< the colour scheme
  bool highContrast = false;
  bool reducedMotion = false;       ///< less movement
  std::optional<double> textScale;  ///< size of text, 1 is the usual one
  bool operator==(const Appearance&) const = default;
};

}  // namespace sentrel
