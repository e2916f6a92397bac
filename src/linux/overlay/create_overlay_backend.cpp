// SPDX-License-Identifier: Apache-2.0
#include "linux/overlay/create_overlay_backend.h"

#include <cstdlib>
#include <string>

#include "linux/overlay/null_overlay_backend.h"
#include "linux/overlay/x11/x11_overlay_backend.h"

namespace sentrel {

std::unique_ptr<OverlayBackend> createOverlayBackend(MainLoop& loop) {
  const char* display = std::getenv("DISPLAY");
  if (display != nullptr && *display != '\0') return std::make_unique<X11OverlayBackend>(loop, display);
  return std::make_unique<NullOverlayBackend>();
}

}  // namespace sentrel
