// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QString>
#include <optional>

#include "detection/camera_control.h"
#include "detection/filter_fsm.h"
#include "look/palette.h"

namespace sentrel {

/// What protection is doing, in words and in the colour of those words.
struct StatusWords {
  QString words;
  QColor AppColors::*color;
};
[[nodiscard]] StatusWords statusWords(const FilterState& state);

/// What keeps the camera from giving frames, in words; empty while nothing does.
[[nodiscard]] QString failureWords(const std::optional<CameraFailure>& failure);

}  // namespace sentrel
