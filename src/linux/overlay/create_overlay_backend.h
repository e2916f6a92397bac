// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>

#include "platform/overlay_surface.h"
#include "support/main_loop.h"

namespace sentrel {

/// The back end for the desktop that this process lives on: the layer shell where WAYLAND_DISPLAY leads to a
/// compositor that has one, else X11 where DISPLAY is set, which also covers Wayland windows through the
/// compositor's own X server, else none. `loop` must outlive it. Main thread, after the QGuiApplication.
[[nodiscard]] std::unique_ptr<OverlayBackend> createOverlayBackend(MainLoop& loop);

}  // namespace sentrel
