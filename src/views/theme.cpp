// SPDX-License-Identifier: Apache-2.0
#include "views/theme.h"

#include <algorithm>

namespace sentrel {

namespace {
constexpr double largestTextScale = 2;
}

Theme::Theme() = default;

Theme& Theme::shared() {
  static Theme theme;
  return theme;
}

void Theme::setLook(Look look) {
  look.textScale = std::clamp(look.textScale, 1.0, largestTextScale);
  if (look == look_) return;
  look_ = look;
  Q_EMIT changed();
}

const AppColors& colors() {
  return Theme::shared().colors();
}

}  // namespace sentrel
