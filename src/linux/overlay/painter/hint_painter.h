// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "linux/overlay/painter/overlay_picture.h"

namespace sentrel {

/// Paints the permanent hint with its padding: an eye and, when `keys`, the shortcut beside it. `scale` is
/// device pixels to a logical one. Needs a QGuiApplication. Main thread.
[[nodiscard]] OverlayPicture paintHint(double scale, bool keys);

}  // namespace sentrel
