// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>

#include "platform/overlay_surface.h"

namespace sentrel {

/// The alert's tint as a premultiplied ARGB32 pixel.
[[nodiscard]] std::uint32_t premultipliedTint(TintLevel level);

}  // namespace sentrel
