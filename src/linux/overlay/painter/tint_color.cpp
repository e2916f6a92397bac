// SPDX-License-Identifier: Apache-2.0
#include "linux/overlay/painter/tint_color.h"

#include <QColor>
#include <algorithm>

#include "look/palette.h"

namespace sentrel {

std::uint32_t premultipliedTint(TintLevel level) {
  const QColor& color = fixed_colors::alertTint;
  return qPremultiply(qRgba(color.red(), color.green(), color.blue(), std::clamp(level, 0, 255)));
}

}  // namespace sentrel
