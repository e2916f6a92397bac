// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "linux/overlay/surface_list.h"
#include "linux/overlay/x11/x11_desktop.h"

namespace sentrel {

using X11SurfaceList = SurfaceList<X11Desktop>;

}  // namespace sentrel
